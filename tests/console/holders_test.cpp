/*
 * "umm show holders <pool>" and "umm show leaks".
 */
#include <array>

#include "console_process.h"
#include "zyax_log.h"

namespace
{

class ShowHolders : public console_process
{
};

/* The slab layer counts time in ticks of 134 ms, and learns of a clock that was set when it looks.
 * */
void advance_and_look(uint64_t ms)
{
    advance_clock_ms(ms);
    zymm_slab_get_leak_number(pool_named("PAGE PARTITION").handle);
}

/* Two old pages of one call site, three young ones of another, one of a module without a name. */
struct held_pages {
    std::vector<page_ctrl *> pages;

    held_pages()
    {
        pages = {allocOnePageSync(TEST_MODULE, "old_taker", 12),
                 allocOnePageSync(TEST_MODULE, "old_taker", 12)};
        advance_and_look(650'700);
        for (int turn = 0; turn < 3; ++turn)
            pages.push_back(allocOnePageSync(TEST_MODULE, "young_taker", 34));
        pages.push_back(allocOnePageSync(4711, "stranger", 0));
        advance_and_look(30'500);
    }
    ~held_pages()
    {
        for (page_ctrl *page : pages)
            freeOnePage(page, TEST_MODULE, "giver", 13);
    }
};

std::string page_pool()
{
    return hex(pool_named("PAGE PARTITION").handle);
}

const json OLD_SITE = json::parse(R"({
    "module_id": 77, "module": "tester", "function": "old_taker", "line": 12,
    "objects": 2, "bytes": 16752, "oldest_age_s": 681, "leaked": 2})");
const json YOUNG_SITE = json::parse(R"({
    "module_id": 77, "module": "tester", "function": "young_taker", "line": 34,
    "objects": 3, "bytes": 25128, "oldest_age_s": 30, "leaked": 0})");
const json STRANGER_SITE = json::parse(R"({
    "module_id": 4711, "module": "unknown", "function": "stranger", "line": 0,
    "objects": 1, "bytes": 8376, "oldest_age_s": 30, "leaked": 0})");

/* The fields that name a pool. */
json page_pool_named()
{
    json pool = json::parse(R"({
        "name": "PAGE PARTITION", "module_id": 386, "module": "cmm", "object_bytes": 8376})");
    pool["handle"] = page_pool();
    return pool;
}

} // namespace

TEST_F(ShowHolders, holders_are_listed_with_the_most_objects_first)
{
    const held_pages held;
    const answer said = run_line("umm show holders PAGE PARTITION");
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.text,
              fill_in("PAGE PARTITION, handle {handle}: 6 objects out, 49.0 KiB, held by "
                      "3 call sites\n"
                      "  objects     bytes    leaked oldest(s)  module       function:line\n"
                      "        3  24.5 KiB         0        30  tester       young_taker:34\n"
                      "        2  16.3 KiB         2       681  tester       old_taker:12\n"
                      "        1   8.1 KiB         0        30  4711         stranger:0\n",
                      {{"handle", page_pool()}}));
}

TEST_F(ShowHolders, holders_have_every_field_in_json)
{
    const held_pages held;
    json pool = page_pool_named();
    pool.update(json::parse(R"({"objects": 6, "bytes": 50256, "sites_total": 3, "ungrouped": 0})"));
    pool["sites"] = {YOUNG_SITE, OLD_SITE, STRANGER_SITE};
    const json expected = {{"leak_age_s", 600}, {"pools", json::array({pool})}};
    EXPECT_EQ(run_json("umm show holders PAGE PARTITION"), expected);
}

TEST_F(ShowHolders, a_pool_with_nothing_out_has_no_holders)
{
    const std::string handle = hex(pool_named("SGL PARTITION").handle);
    EXPECT_EQ(run_line("umm show holders sgl").text,
              "SGL PARTITION, handle " + handle + ": 0 objects out, 0 B, held by 0 call sites\n");
    const json pool = run_json("umm show holders sgl")["pools"][0];
    EXPECT_EQ(pool["objects"], 0);
    EXPECT_EQ(pool["sites"], json::array());
}

/* 300 call sites, told apart by their lines; 256 of them are shown. */
TEST_F(ShowHolders, call_sites_beyond_256_are_counted)
{
    uint32_t id = 0;
    ASSERT_EQ(createStructurePartition(300, "wide", TEST_MODULE, 0, 64, &id, nullptr, nullptr, 0),
              0u);
    const uint64_t handle = pool_named("wide").handle;
    std::vector<void *> taken;
    for (uint32_t line = 1; line <= 300; ++line)
        taken.push_back(zymm_slab_malloc(handle, TEST_MODULE, "one_of_many", line));
    const std::string text = run_line("umm show holders wide").text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 + 256 + 1);
    EXPECT_NE(text.find("\nand 44 further call sites.\n"), std::string::npos) << text;
    const json pool = run_json("umm show holders wide")["pools"][0];
    EXPECT_EQ(pool["sites_total"], 300);
    EXPECT_EQ(pool["sites"].size(), 256u);
    EXPECT_EQ(pool["ungrouped"], 0);
    for (void *object : taken)
        freeStructure(object, id, TEST_MODULE, "giver", 0);
    EXPECT_EQ(deleteStructurePartition(id), 0u);
}

TEST_F(ShowHolders, only_sites_with_leaked_objects_are_among_the_leaks)
{
    const held_pages held;
    const answer said = run_line("umm show leaks");
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.text,
              fill_in("2 objects out for 600 s or more, 16.3 KiB, of 1 pool\n"
                      "PAGE PARTITION, handle {handle}: 2 of 6 out, 16.3 KiB\n"
                      "  objects     bytes    leaked oldest(s)  module       function:line\n"
                      "        2  16.3 KiB         2       681  tester       old_taker:12\n",
                      {{"handle", page_pool()}}));
}

TEST_F(ShowHolders, leaks_have_every_field_in_json)
{
    const held_pages held;
    json pool = page_pool_named();
    pool.update(json::parse(R"({"leaked": 2, "leaked_bytes": 16752})"));
    pool["sites"] = json::array({OLD_SITE});
    const json expected = {{"leak_age_s", 600},
                           {"leaked", 2},
                           {"leaked_bytes", 16752},
                           {"pools", json::array({pool})}};
    EXPECT_EQ(run_json("umm show leaks"), expected);
}

TEST_F(ShowHolders, a_process_that_leaks_nothing_hears_so)
{
    advance_and_look(700'000);
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    EXPECT_EQ(run_line("umm show leaks").text, "No object is out for 600 s or more.\n");
    EXPECT_EQ(run_json("umm show leaks"),
              json::parse(R"({"leak_age_s": 600, "leaked": 0, "leaked_bytes": 0, "pools": []})"));
    freeOnePage(page, TEST_MODULE, "giver", 13);
}

TEST_F(ShowHolders, the_leak_age_is_the_one_that_the_process_set)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    advance_and_look(10'000);
    zymm_leak_age_set(5);
    const json said = run_json("umm show leaks");
    EXPECT_EQ(said["leak_age_s"], 5);
    EXPECT_EQ(said["leaked"], 1);
    EXPECT_EQ(run_json("umm show pools")["pools"][3]["leaked"], 1);
    freeOnePage(page, TEST_MODULE, "giver", 13);
}

/*
 * "umm show pools" and "umm show pool <name>".
 *
 * What depends on how much a thread's cache takes at once, or on a sanitizer's gaps between
 * objects, is asked from the slab layer and put into the expected text; everything else is literal.
 */
#include "console_process.h"

#include "zyumm_cmm_buffer.h"

namespace
{

class ShowPools : public console_process
{
};

/* Three pages by two call sites, a fourth given back. */
std::vector<page_ctrl *> take_three_pages()
{
    freeOnePage(allocOnePageSync(TEST_MODULE, "taker", 12), TEST_MODULE, "giver", 13);
    return {allocOnePageSync(TEST_MODULE, "taker", 12), allocOnePageSync(TEST_MODULE, "taker", 12),
            allocOnePageSync(TEST_MODULE, "other", 14)};
}

void give_back(const std::vector<page_ctrl *> &pages)
{
    for (page_ctrl *page : pages)
        freeOnePage(page, TEST_MODULE, "giver", 13);
}

std::string number(uint64_t value)
{
    return std::to_string(value);
}

/* What a build decides about a pool, as JSON has it. */
void expect_and_drop_build_facts(json &pool, const zymm_slab_record &record)
{
    EXPECT_EQ(pool["handle"], hex(record.handle));
    EXPECT_EQ(pool["whole_bytes"], record.whole_size);
    EXPECT_EQ(pool["made"], record.made);
    EXPECT_EQ(pool["memory_bytes"], record.bytes);
    for (const char *key : {"handle", "whole_bytes", "made", "memory_bytes"})
        pool.erase(key);
}

} // namespace

TEST_F(ShowPools, pools_are_listed_with_what_is_out_and_leaked)
{
    const std::vector<page_ctrl *> pages = take_three_pages();
    advance_clock_ms(700'000);
    const answer said = run_line("umm show pools");
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.text,
              "pool                                 used     total      high   leaked    memory\n"
              "REQ PARTITION                           0        32         0        0  64.0 KiB\n"
              "SGL PARTITION                           0        64         0        0   128 KiB\n"
              "ZERO_PAGE_POOL                          1         1         1        0  64.0 KiB\n"
              "PAGE PARTITION                          3       128         3        3   1.0 MiB\n"
              "PAGE REQUEST                            0        16         0        0       0 B\n"
              "5 pools, 1.3 MiB for objects. Leaked: out for 600 s or more.\n");
    give_back(pages);
}

TEST_F(ShowPools, pools_have_every_field_in_json)
{
    const std::vector<page_ctrl *> pages = take_three_pages();
    advance_clock_ms(700'000);
    json said = run_json("umm show pools");
    EXPECT_EQ(said["leak_age_s"], 600);
    EXPECT_GT(said["mapped_bytes"], 128 * 8376);
    EXPECT_GT(said["control_bytes"], 0);
    EXPECT_EQ(said.size(), 4u);
    ASSERT_EQ(said["pools"].size(), 5u);
    EXPECT_EQ(said["pools"][0]["name"], "REQ PARTITION");
    EXPECT_EQ(said["pools"][4]["name"], "PAGE REQUEST");

    json page_pool = said["pools"][3];
    expect_and_drop_build_facts(page_pool, pool_named("PAGE PARTITION"));
    EXPECT_EQ(page_pool, json::parse(R"({
        "name": "PAGE PARTITION", "module_id": 386, "module": "cmm", "is_class": false,
        "object_bytes": 8376, "used": 3, "total": 128, "max": 128, "min": 128,
        "high_water": 3, "allocs": 4, "frees": 1, "leaked": 3,
        "out_bytes": 25128, "leaked_bytes": 25128})"));
    give_back(pages);
}

TEST_F(ShowPools, the_block_of_the_zero_pages_is_never_a_leak)
{
    advance_clock_ms(700'000);
    json pool = run_json("umm show pools")["pools"][2];
    expect_and_drop_build_facts(pool, pool_named("ZERO_PAGE_POOL"));
    EXPECT_EQ(pool, json::parse(R"({
        "name": "ZERO_PAGE_POOL", "module_id": 386, "module": "cmm", "is_class": false,
        "object_bytes": 40960, "used": 1, "total": 1, "max": 1, "min": 1,
        "high_water": 1, "allocs": 1, "frees": 0, "leaked": 0,
        "out_bytes": 40960, "leaked_bytes": 0})"));
}

TEST_F(ShowPools, one_pool_is_shown_with_all_that_is_known)
{
    const std::vector<page_ctrl *> pages = take_three_pages();
    advance_clock_ms(700'000);
    const zymm_slab_record record = pool_named("PAGE PARTITION");
    const std::string expected = fill_in(
        "PAGE PARTITION, handle {handle}, module cmm\n"
        "  object            8376 bytes, {whole} with all that one costs, aligned to 64\n"
        "  attributes        cached\n"
        "  used              3 of 128, 24.5 KiB of objects\n"
        "  high-water mark   3 at least, {made} at most\n"
        "  objects made      {made}, backed from the start 128\n"
        "  allocations       4, frees 1\n"
        "  leaked            3, 24.5 KiB, out for 600 s or more\n"
        "  node 0            3 used, {free} free ({free} in threads' caches), 1.0 MiB in 1 piece\n",
        {{"handle", hex(record.handle)},
         {"whole", number(record.whole_size)},
         {"made", number(record.made)},
         {"free", number(record.made - 3)}});
    for (const char *line : {"umm show pool PAGE PARTITION", "umm show pool page p",
                             "umm  show\tpool  PAGE  PARTITION"}) {
        const answer said = run_line(line);
        EXPECT_EQ(said.status, 0);
        EXPECT_EQ(said.text, expected);
    }
    EXPECT_EQ(run_line("umm show pool " + hex(record.handle)).text, expected);
    give_back(pages);
}

TEST_F(ShowPools, one_pool_has_its_details_in_json)
{
    const std::vector<page_ctrl *> pages = take_three_pages();
    json said = run_json("umm show pool PAGE PARTITION");
    EXPECT_EQ(said["leak_age_s"], 600);
    ASSERT_EQ(said["pools"].size(), 1u);
    json pool = said["pools"][0];
    const zymm_slab_record record = pool_named("PAGE PARTITION");
    EXPECT_EQ(pool["align"], 64);
    EXPECT_EQ(pool["attributes"], json::parse(R"(["cached"])"));
    const json node = {{"node", 0},
                       {"made", record.made},
                       {"used", 3},
                       {"free", record.made - 3},
                       {"pieces", 1},
                       {"cached", record.made - 3},
                       {"memory_bytes", record.bytes}};
    EXPECT_EQ(pool["nodes"], json::array({node}));
    for (const char *key : {"align", "attributes", "nodes"})
        pool.erase(key);
    EXPECT_EQ(pool, run_json("umm show pools")["pools"][3]);
    give_back(pages);
}

TEST_F(ShowPools, all_pools_whose_names_begin_so_are_shown)
{
    const json said = run_json("umm show pool page");
    ASSERT_EQ(said["pools"].size(), 2u);
    EXPECT_EQ(said["pools"][0]["name"], "PAGE PARTITION");
    EXPECT_EQ(said["pools"][1]["name"], "PAGE REQUEST");
}

TEST_F(ShowPools, a_whole_name_goes_before_beginnings)
{
    uint32_t id = 0;
    ASSERT_EQ(createStructurePartition(4, "PAGE", TEST_MODULE, 0, 64, &id, nullptr, nullptr, 0),
              0u);
    EXPECT_EQ(run_json("umm show pool PAGE")["pools"].size(), 1u);
    EXPECT_EQ(run_json("umm show pool page")["pools"].size(), 3u);
    EXPECT_EQ(deleteStructurePartition(id), 0u);
}

TEST_F(ShowPools, a_pool_without_a_limit_says_so)
{
    uint32_t id = 0;
    ASSERT_EQ(createExpStructurePartition(0, 0, "endless", TEST_MODULE, STRUCTURE_FLAG_CLEARED, 64,
                                          &id, nullptr, nullptr),
              0u);
    const json pool = run_json("umm show pool endless")["pools"][0];
    EXPECT_EQ(pool["max"], nullptr);
    EXPECT_EQ(pool["total"], 0);
    EXPECT_EQ(pool["attributes"], json::parse(R"(["cleared"])"));
    EXPECT_NE(
        run_line("umm show pools")
            .text.find("endless                                 0  no limit         0        0"),
        std::string::npos);
    EXPECT_NE(
        run_line("umm show pool endless").text.find("  used              0, no limit but memory\n"),
        std::string::npos);
    EXPECT_EQ(deleteStructurePartition(id), 0u);
}

/* 141 classes stand beside a buffer pool; only one of them has had an object. Their table lies in a
 * block of the slab layer's own, whose class is the 147th pool. */
TEST_F(ShowPools, size_classes_without_objects_are_counted_and_not_listed)
{
    ASSERT_EQ(cmm_create_buffer_mempool(0, 0), 0u);
    zymm_allocator *buffers = &g_ucmm_config.buffer_allocator;
    void *const buffer = buffers->alloc(buffers, 100, TEST_MODULE, "taker", 12);
    ASSERT_NE(buffer, nullptr);
    const std::string text = run_line("umm show pools").text;
    EXPECT_NE(text.find("buffer_slab_table/128                   1 "), std::string::npos) << text;
    EXPECT_EQ(text.find("buffer_slab_table/64 "), std::string::npos) << text;
    EXPECT_NE(text.find("\n140 further size classes never had an object.\n"), std::string::npos)
        << text;
    EXPECT_EQ(run_json("umm show pools")["pools"].size(), 147u);
    const json classes = run_json("umm show pool buffer_slab_table");
    ASSERT_EQ(classes["pools"].size(), 141u);
    EXPECT_EQ(classes["pools"][1]["is_class"], true);
    buffers->free(buffers, buffer, TEST_MODULE, "giver");
    cmm_destory_buffer_mempool();
}

TEST_F(ShowPools, an_unknown_pool_is_an_error_that_names_it)
{
    for (const char *line : {"umm show pool nix da", "--json umm show pool nix da",
                             "umm show holders nix da", "--json umm show holders nix da"}) {
        const answer said = run_line(line);
        EXPECT_EQ(said.status, -1);
        EXPECT_EQ(said.text, "There is no pool nix da\n");
    }
}

TEST_F(ShowPools, a_pool_that_is_gone_is_unknown_by_its_handle)
{
    uint32_t id = 0;
    ASSERT_EQ(createStructurePartition(4, "short", TEST_MODULE, 0, 64, &id, nullptr, nullptr, 0),
              0u);
    const std::string handle = hex(pool_named("short").handle);
    EXPECT_EQ(run_line("umm show pool " + handle).status, 0);
    EXPECT_EQ(deleteStructurePartition(id), 0u);
    EXPECT_EQ(run_line("umm show pool " + handle).text, "There is no pool " + handle + "\n");
}

TEST_F(ShowPools, a_missing_name_is_answered_with_the_usage)
{
    EXPECT_EQ(run_line("umm show pool").text, "usage: umm show pool <name>\n");
    EXPECT_EQ(run_line("--json umm show pool").text, "usage: umm show pool <name>\n");
    EXPECT_EQ(run_line("umm show holders").text, "usage: umm show holders <pool>\n");
    EXPECT_EQ(run_line("--json umm show holders").text, "usage: umm show holders <pool>\n");
    EXPECT_EQ(run_line("umm show holders").status, -1);
    EXPECT_EQ(run_line("umm show pool").status, -1);
}

TEST_F(ShowPools, names_of_any_bytes_are_escaped)
{
    uint32_t id = 0;
    ASSERT_EQ(createStructurePartition(4, "q\"b\\t\tu\xC3\xA9", TEST_MODULE, 0, 64, &id, nullptr,
                                       nullptr, 0),
              0u);
    const answer said = run_line("--json umm show pool q");
    EXPECT_NE(said.text.find(R"("name":"q\"b\\t\u0009u\u00c3\u00a9")"), std::string::npos)
        << said.text;
    EXPECT_EQ(parse_answer("umm show pool", said)["pools"].size(), 1u);
    EXPECT_EQ(deleteStructurePartition(id), 0u);
}

TEST_F(ShowPools, too_many_words_are_no_command)
{
    EXPECT_EQ(run_line("umm show pools now").status, -1);
    EXPECT_EQ(run_line("--json umm show pools now").status, -1);
}

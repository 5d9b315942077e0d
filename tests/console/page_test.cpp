/*
 * "umm show page <addr>": pages that are out, free, zero or none at all.
 */
#include "console_process.h"

#include <sys/mman.h>

#include "zymm.h"

namespace
{

class ShowPage : public console_process
{
};

uint64_t address_of(const page_ctrl *ctrl)
{
    return reinterpret_cast<uint64_t>(ctrl) - 8320;
}

std::string refusal(const std::string &typed)
{
    return "---------------------------\n"
           "input error!!!\n"
           "invalid page addr " +
           typed +
           "\n"
           "---------------------------\n";
}

void expect_refused(const std::string &typed)
{
    for (const char *json_word : {"", "--json "}) {
        const answer said = run_line(json_word + ("umm show page " + typed));
        EXPECT_EQ(said.status, -1);
        EXPECT_EQ(said.text, refusal(typed));
    }
}

const char PAGE_TEXT[] = "           attr name:                                   value\n"
                         "-----------------------------------------------------------------------\n"
                         "           page addr:{address}\n"
                         "         ref counter:{ref}\n"
                         "          page flags:{flags}\n"
                         "   page valid_bitmap:{bitmap}\n"
                         "     page zero_flags:{zero}\n"
                         "     page owner_func:{func}\n"
                         "    page owner_modid:{module}\n";

std::string right(const std::string &text)
{
    return std::string(40 - text.size(), ' ') + text;
}

} // namespace

TEST_F(ShowPage, a_page_that_is_out_is_shown_in_the_library_s_words)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    incAndRetPageReference(page, "sharer", 13);
    addPageValidBitMap(page, 0x21);
    const std::string address = hex(address_of(page));
    const answer said = run_line("umm show page " + address);
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.text, fill_in(PAGE_TEXT, {{"address", right(address)},
                                             {"ref", right("2")},
                                             {"flags", right("1")},
                                             {"bitmap", right("33")},
                                             {"zero", right("0")},
                                             {"func", right("taker")},
                                             {"module", right("77")}}));
    EXPECT_EQ(run_line("umm show page " + std::to_string(address_of(page))).text, said.text);
    freeOnePage(page, TEST_MODULE, "giver", 14);
    freeOnePage(page, TEST_MODULE, "giver", 14);
}

TEST_F(ShowPage, a_page_that_is_out_has_every_field_in_json)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    setPageZeroFlags(page, 1);
    advance_clock_ms(90'000);
    json expected = json::parse(R"({
        "is_zero_page": false, "is_out": true, "node": 0, "ref": 1, "valid_bitmap": 0,
        "zero_flags": 32, "module_id": 77, "module": "tester", "function": "taker", "line": 12,
        "out_age_s": 90})");
    expected["page"] = hex(address_of(page));
    expected["node"] = zyumm_page_get_numaid(page);
    EXPECT_EQ(run_json("umm show page " + hex(address_of(page))), expected);
    freeOnePage(page, TEST_MODULE, "giver", 14);
}

TEST_F(ShowPage, a_page_that_is_free_shows_what_its_last_holder_left)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    const std::string address = hex(address_of(page));
    const uint32_t node = zyumm_page_get_numaid(page);
    freeOnePage(page, TEST_MODULE, "giver", 14);
    EXPECT_EQ(run_line("umm show page " + address).text,
              fill_in(PAGE_TEXT, {{"address", right(address)},
                                  {"ref", right("0")},
                                  {"flags", right("0")},
                                  {"bitmap", right("0")},
                                  {"zero", right("0")},
                                  {"func", right("taker")},
                                  {"module", right("77")}}));
    json expected = json::parse(R"({
        "is_zero_page": false, "is_out": false, "ref": 0, "valid_bitmap": 0,
        "zero_flags": 0, "module_id": 77, "module": "tester", "function": "taker", "line": null,
        "out_age_s": null})");
    expected["page"] = address;
    expected["node"] = node;
    EXPECT_EQ(run_json("umm show page " + address), expected);
}

TEST_F(ShowPage, both_zero_pages_are_shown)
{
    for (const page_ctrl *page : {getZeroPageCtrlWithoutDif(), getZeroPageCtrl()}) {
        const std::string address = hex(address_of(page));
        const answer said = run_line("umm show page " + address);
        EXPECT_EQ(said.status, 0);
        EXPECT_EQ(said.text, fill_in(PAGE_TEXT, {{"address", right(address)},
                                                 {"ref", right("1")},
                                                 {"flags", right("1")},
                                                 {"bitmap", right("255")},
                                                 {"zero", right("32")},
                                                 {"func", right("umm_create_global_zero_pages")},
                                                 {"module", right("386")}}));
        json expected = json::parse(R"({
            "is_zero_page": true, "is_out": true, "node": 0, "ref": 1, "valid_bitmap": 255,
            "zero_flags": 32, "module_id": 386, "module": "cmm",
            "function": "umm_create_global_zero_pages", "line": null, "out_age_s": null})");
        expected["page"] = address;
        EXPECT_EQ(run_json("umm show page " + address), expected);
    }
}

TEST_F(ShowPage, a_number_beside_a_page_is_refused)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    const uint64_t address = address_of(page);
    for (const uint64_t typed : {address + 1, address - 1, address + 8, address + 8320,
                                 address + 8376, address ^ 0x100000000000})
        expect_refused(hex(typed));
    freeOnePage(page, TEST_MODULE, "giver", 14);
}

TEST_F(ShowPage, numbers_that_nothing_lies_at_are_refused)
{
    for (const char *typed : {"0", "1", "12345678", "0x10", "0xffffffffffffffff",
                              "0xffffffffffffdf80", "18446744073709551615", "0xdeadbeefdeadbeef",
                              "99999999999999999999999", "-1", "page", "0x", "%s%n"})
        expect_refused(typed);
}

/* Memory that cannot be read: a look at a record there would end the process. */
TEST_F(ShowPage, an_address_whose_memory_is_not_there_is_refused)
{
    void *const hole = mmap(nullptr, 65536, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(hole, MAP_FAILED);
    expect_refused(hex(reinterpret_cast<uint64_t>(hole)));
    munmap(hole, 65536);
}

/* An object of another pool that looks like a page, record and all. */
TEST_F(ShowPage, another_pool_s_object_is_refused)
{
    uint32_t id = 0;
    void *object = nullptr;
    ASSERT_EQ(createStructurePartition(4, "alike", TEST_MODULE, 0, 8376, &id, nullptr, nullptr, 0),
              0u);
    allocStructure(TEST_MODULE, id, &object, "taker");
    uint8_t *const bytes = static_cast<uint8_t *>(object);
    reinterpret_cast<page_ctrl *>(bytes + 8320)->page_addr = bytes;
    expect_refused(hex(reinterpret_cast<uint64_t>(object)));
    freeStructure(object, id, TEST_MODULE, "giver", 0);
    EXPECT_EQ(deleteStructurePartition(id), 0u);
}

/* Threads take several pages at once; those that lie in a cache never had a record. */
TEST_F(ShowPage, a_page_that_was_never_handed_out_is_refused)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    const uint64_t slab = __atomic_load_n(&s_page_partition_id, __ATOMIC_RELAXED);
    const auto ignore = [](void *, const zymm_object_record *) {};
    uint64_t neighbour = 0;
    for (uint64_t at = address_of(page) - 70'016; at < address_of(page) + 70'016; at += 64) {
        const void *const object = reinterpret_cast<const void *>(at);
        if (at != address_of(page) && zymm_object_look(slab, object, ignore, nullptr) == 0)
            neighbour = at;
    }
    ASSERT_NE(neighbour, 0u);
    expect_refused(hex(neighbour));
    freeOnePage(page, TEST_MODULE, "giver", 14);
}

TEST_F(ShowPage, another_number_of_words_is_answered_with_the_library_s_usage)
{
    for (const char *line : {"umm show page", "umm show page 1 2", "--json umm show page",
                             "--json umm show page 1 2"}) {
        const answer said = run_line(line);
        EXPECT_EQ(said.status, -1);
        EXPECT_EQ(said.text, "---------------------------\n"
                             "input error!!!\n"
                             "usage: umm show page <addr>\n"
                             "---------------------------\n");
    }
}

TEST(ShowPageInAnEmptyProcess, has_no_page_at_any_address)
{
    const config_directory config({0, 0, 0});
    ASSERT_EQ(cmm_module_init(), 0u);
    ASSERT_EQ(zyumm_console_register(), 0);
    expect_refused("0");
    expect_refused(hex(reinterpret_cast<uint64_t>(&config)));
    EXPECT_EQ(zyumm_console_unregister(), 0);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

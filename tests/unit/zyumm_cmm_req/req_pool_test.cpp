/*
 * The request pool: who makes it, with which parameters, and what a record looks like on its way
 * out and back.
 */
#include "zyumm_cmm_req.h"

#include <array>
#include <csignal>
#include <cstring>

#include "expect_log.h"
#include "zyumm_cmm.h"

namespace
{

void configure(uint32_t min, uint32_t max)
{
    g_ucmm_config.req_min = min;
    g_ucmm_config.req_max = max;
}

/* A pool of an outside component, with its own enclosing pool. */
uint64_t outside_pool()
{
    return zymm_pool_create("outside", 1 << 20, 0, 77, "the test");
}

uint32_t create_outside(uint64_t pool_id)
{
    return zyumm_req_slab_create(pool_id, 0x10, 77, "outside_start");
}

/* A request from a pool of four that the start made. */
cmm_req *new_request()
{
    configure(0, 4);
    cmm_create_req_mempool();
    cmm_req *req = nullptr;
    allocReq(&req, 77, "the_caller", 5);
    return req;
}

void set_byte(cmm_req *req, size_t offset, uint8_t value)
{
    memcpy(reinterpret_cast<char *>(req) + offset, &value, 1);
}

template <typename T>
T get(const cmm_req *req, size_t offset)
{
    T value;
    memcpy(&value, reinterpret_cast<const char *>(req) + offset, sizeof value);
    return value;
}

std::string in_hex(uint64_t value)
{
    char text[32];
    snprintf(text, sizeof text, "0x%lx", value);
    return text;
}

std::string queue_line(const cmm_req *req, const char *mark)
{
    char text[96];
    snprintf(text, sizeof text, "2\\|freeReq\\|0\\|Req\\(%p\\) is in queue\\(%s\\)\\.\n$",
             static_cast<const void *>(req), mark);
    return std::string("^") + text;
}

} // namespace

TEST(ReqPoolStart, a_maximum_of_0_makes_no_pool_and_is_a_success)
{
    configure(5, 0);

    EXPECT_EQ(cmm_create_req_mempool(), 0u);

    EXPECT_EQ(g_req_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_NO_LINE();
}

TEST(ReqPoolStart, a_pool_left_to_an_outside_component_is_skipped)
{
    configure(1, 8);
    g_cmm_part_creator = 0x4;

    EXPECT_EQ(cmm_create_req_mempool(), 0u);

    EXPECT_EQ(g_req_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zymm_slab_param_init), 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(ReqPoolStart, the_bits_of_other_pools_do_not_matter)
{
    configure(1, 8);
    g_cmm_part_creator = 0x3;

    EXPECT_EQ(cmm_create_req_mempool(), 0u);

    EXPECT_NE(g_req_partition_id, 0u);
}

TEST(ReqPoolStart, the_slab_has_the_configured_counts_and_the_requests_size)
{
    configure(3, 9);

    ASSERT_EQ(cmm_create_req_mempool(), 0u);

    const fake_call created = fake_last_call(OP_zymm_create_slab);
    const auto param        = created.as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "REQ PARTITION");
    EXPECT_EQ(param.module_id, 386u);
    EXPECT_EQ(param.attr, 2u);
    EXPECT_EQ(param.obj_size, 768u);
    EXPECT_EQ(param.min_num, 3u);
    EXPECT_EQ(param.max_num, 9u);
    EXPECT_EQ(param.align, 8u);
    EXPECT_EQ(param.pool_id, 0u);
    EXPECT_EQ(created.args.at(1).number, 386u);
    EXPECT_EQ(created.args.at(2).text, "cmm_create_req_mempool");
    EXPECT_EQ(g_req_partition_id, created.result);
}

TEST(ReqPoolStart, the_name_is_copied_into_31_bytes)
{
    configure(0, 1);

    cmm_create_req_mempool();

    const std::vector<fake_call> copies = fake_calls(OP_memcpy_s);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(copies[0].args.at(1).number, 31u);
    EXPECT_EQ(copies[0].args.at(3).number, 13u);
}

TEST(ReqPoolStart, a_name_that_cannot_be_copied_fails_before_the_slab_is_created)
{
    configure(0, 1);
    fake_fail_with(OP_memcpy_s, 1, 34);

    EXPECT_EQ(cmm_create_req_mempool(), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cmm_create_req_mempool", "[UMM_CMM] memcpy_s error 34.");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_EQ(g_req_partition_id, 0u);
}

TEST(ReqPoolStart, the_line_about_the_name_is_not_limited)
{
    configure(0, 1);
    fake_fail_always_with(OP_memcpy_s, 22);

    EXPECT_NOT_LIMITED(cmm_create_req_mempool(), "[UMM_CMM] memcpy_s error 22.");
}

TEST(ReqPoolStart, a_slab_that_cannot_be_created_fails)
{
    configure(0, 1);
    fake_fail(OP_zymm_create_slab);

    EXPECT_EQ(cmm_create_req_mempool(), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cmm_create_req_mempool",
                     "[UMM_CMM] REQ PARTITION create failed.");
    EXPECT_EQ(g_req_partition_id, 0u);
}

TEST(ReqPoolStart, the_line_about_the_slab_is_limited)
{
    configure(0, 1);
    fake_fail_always(OP_zymm_create_slab);

    EXPECT_LIMITED(cmm_create_req_mempool(), "[UMM_CMM] REQ PARTITION create failed.");
}

TEST(ReqPoolStop, the_slab_is_destroyed_and_the_handle_forgotten)
{
    configure(0, 1);
    cmm_create_req_mempool();
    const uint64_t slab = g_req_partition_id;

    cmm_destory_req_mempool();

    const fake_call destroyed = fake_last_call(OP_zymm_destory_slab);
    EXPECT_EQ(destroyed.args.at(0).number, slab);
    EXPECT_EQ(destroyed.args.at(1).number, 386u);
    EXPECT_EQ(destroyed.args.at(2).text, "cmm_destory_req_mempool");
    EXPECT_EQ(g_req_partition_id, 0u);
    EXPECT_FALSE(fake_handle_alive(slab));
}

TEST(ReqPoolStop, without_a_pool_nothing_happens)
{
    cmm_destory_req_mempool();

    EXPECT_EQ(fake_count(OP_zymm_destory_slab), 0u);
}

TEST(ReqPoolStop, a_second_stop_is_harmless)
{
    configure(0, 1);
    cmm_create_req_mempool();

    cmm_destory_req_mempool();
    cmm_destory_req_mempool();

    EXPECT_EQ(fake_count(OP_zymm_destory_slab), 1u);
}

TEST(ReqPoolStop, a_refused_destruction_forgets_the_handle_all_the_same)
{
    configure(0, 1);
    cmm_create_req_mempool();
    fake_fail(OP_zymm_destory_slab);

    cmm_destory_req_mempool();

    EXPECT_EQ(g_req_partition_id, 0u);
    EXPECT_NO_LINE();
}

TEST(ReqPoolOutside, a_null_function_is_refused_first)
{
    g_cmm_part_creator = 0x4;

    EXPECT_EQ(zyumm_req_slab_create(0, 0, 77, nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_req_slab_create",
                     "[UMM_CMM] Zyumm req pool create failed, pool_id(0x0), module_id(77), "
                     "function((nil)).");
}

TEST(ReqPoolOutside, the_line_about_a_null_function_is_not_limited)
{
    EXPECT_NOT_LIMITED(zyumm_req_slab_create(0x1234, 0, 77, nullptr),
                       "[UMM_CMM] Zyumm req pool create failed, pool_id(0x1234), module_id(77), "
                       "function((nil)).");
}

TEST(ReqPoolOutside, a_pool_id_of_0_is_refused_before_the_mask_is_looked_at)
{
    EXPECT_EQ(create_outside(0), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_req_slab_create",
                     "[UMM_CMM] Zyumm req pool create failed, pool_id(0x0), module_id(77), "
                     "function(outside_start).");
}

TEST(ReqPoolOutside, the_line_about_a_pool_id_of_0_is_not_limited)
{
    EXPECT_NOT_LIMITED(create_outside(0),
                       "[UMM_CMM] Zyumm req pool create failed, pool_id(0x0), module_id(77), "
                       "function(outside_start).");
}

TEST(ReqPoolOutside, without_its_bit_it_says_that_the_pool_exists_is_kept)
{
    configure(0, 4);
    g_cmm_part_creator = 0x3;

    EXPECT_EQ(create_outside(outside_pool()), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_req_slab_create",
                     "[UMM_CMM] Zyumm req pool has been created, req_partition_id(0x0), "
                     "module_id(77), function(outside_start).");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(ReqPoolOutside, a_second_creation_is_refused_with_the_handle_of_the_first)
{
    configure(0, 4);
    g_cmm_part_creator  = 0x4;
    const uint64_t pool = outside_pool();
    ASSERT_EQ(create_outside(pool), 0u);
    const uint64_t first = g_req_partition_id;

    EXPECT_EQ(zyumm_req_slab_create(pool, 0, 78, "second_start"), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_req_slab_create",
                     "[UMM_CMM] Zyumm req pool has been created, req_partition_id(" +
                         in_hex(first) + "), module_id(78), function(second_start).");
    EXPECT_EQ(g_req_partition_id, first);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 1u);
}

TEST(ReqPoolOutside, the_line_about_an_existing_pool_is_not_limited)
{
    EXPECT_NOT_LIMITED(create_outside(0x77),
                       "[UMM_CMM] Zyumm req pool has been created, req_partition_id(0x0), "
                       "module_id(77), function(outside_start).");
}

TEST(ReqPoolOutside, the_slab_belongs_to_the_caller_and_lives_in_his_pool)
{
    configure(3, 9);
    g_cmm_part_creator  = 0x4;
    const uint64_t pool = outside_pool();

    ASSERT_EQ(create_outside(pool), 0u);

    const fake_call created = fake_last_call(OP_zymm_create_slab);
    const auto param        = created.as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "REQ PARTITION");
    EXPECT_EQ(param.module_id, 77u);
    EXPECT_EQ(param.obj_size, 768u);
    EXPECT_EQ(param.min_num, 3u);
    EXPECT_EQ(param.max_num, 9u);
    EXPECT_EQ(param.align, 8u);
    EXPECT_EQ(param.pool_id, pool);
    EXPECT_EQ(created.args.at(1).number, 77u);
    EXPECT_EQ(created.args.at(2).text, "outside_start");
    EXPECT_EQ(g_req_partition_id, created.result);
    EXPECT_NO_LINE();
}

TEST(ReqPoolOutside, the_attribute_word_is_converted)
{
    configure(0, 4);
    g_cmm_part_creator = 0x4;

    ASSERT_EQ(zyumm_req_slab_create(outside_pool(), 0xD2, 77, "outside_start"), 0u);

    EXPECT_EQ(fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>().attr, 0x882u);
}

TEST(ReqPoolOutside, a_slab_that_cannot_be_created_fails)
{
    configure(0, 4);
    g_cmm_part_creator  = 0x4;
    const uint64_t pool = outside_pool();
    fake_fail(OP_zymm_create_slab);

    EXPECT_EQ(create_outside(pool), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_req_slab_create",
                     "[UMM_CMM] Req partition create failed, pool_id(" + in_hex(pool) +
                         "), module_id(77), function_name(outside_start).");
    EXPECT_EQ(g_req_partition_id, 0u);
}

TEST(ReqPoolOutside, the_line_about_a_failed_slab_is_not_limited)
{
    configure(0, 4);
    g_cmm_part_creator = 0x4;
    fake_fail_always(OP_zymm_create_slab);

    EXPECT_NOT_LIMITED(create_outside(0x55),
                       "[UMM_CMM] Req partition create failed, pool_id(0x55), module_id(77), "
                       "function_name(outside_start).");
}

TEST(ReqPoolOutside, after_a_failure_creation_may_be_tried_again)
{
    configure(0, 4);
    g_cmm_part_creator  = 0x4;
    const uint64_t pool = outside_pool();
    fake_fail(OP_zymm_create_slab);
    create_outside(pool);

    EXPECT_EQ(create_outside(pool), 0u);
}

TEST(ReqAlloc, the_callers_identity_reaches_the_slab)
{
    cmm_req *req = new_request();

    const fake_call allocated = fake_last_call(OP_zymm_slab_malloc);
    EXPECT_EQ(allocated.args.at(0).number, g_req_partition_id);
    EXPECT_EQ(allocated.args.at(1).number, 77u);
    EXPECT_EQ(allocated.args.at(2).text, "the_caller");
    EXPECT_EQ(allocated.args.at(3).number, 5u);
    EXPECT_EQ(allocated.result, reinterpret_cast<uint64_t>(req));
}

TEST(ReqAlloc, a_fresh_request_is_in_no_queue)
{
    const cmm_req *req = new_request();

    EXPECT_EQ(get<uint8_t>(req, 29), 0xABu);
    EXPECT_EQ(get<uint16_t>(req, 100), 5u);
}

/* The second user of a record finds the first one's bytes everywhere but in the header. */
TEST(ReqAlloc, the_header_is_reset_and_no_other_byte_is_touched)
{
    configure(0, 1);
    cmm_create_req_mempool();
    static cmm_req memory;
    memset(&memory, 0x5A, sizeof memory);
    fake_fail_with(OP_zymm_slab_malloc, 1, reinterpret_cast<uint64_t>(&memory));

    cmm_req *req = nullptr;
    allocReq(&req, 77, "the_caller", 5);

    std::array<uint8_t, 768> expected;
    expected.fill(0x5A);
    const auto expect = [&expected](size_t offset, auto value) {
        memcpy(&expected[offset], &value, sizeof value);
    };
    expect(26, uint16_t{0xFFFF});
    expect(28, uint8_t{0xFF});
    expect(29, uint8_t{0xAB});
    expect(30, uint8_t{0});
    expect(40, uint64_t{0xFFFFFFFFFFFFFFFF});
    expect(48, uint64_t{0x00000000FFFFFFFF});
    expect(56, std::array<uint8_t, 44>{});
    expect(100, uint16_t{5});
    expect(104, uint64_t{0});
    expect(112, uint64_t{0});
    ASSERT_EQ(req, &memory);
    EXPECT_EQ(memcmp(req, expected.data(), 768), 0);
}

TEST(ReqAlloc, a_dry_pool_gives_null)
{
    new_request();
    fake_limit(g_req_partition_id, 1);
    cmm_req *req = reinterpret_cast<cmm_req *>(0x1234);

    allocReq(&req, 77, "the_caller", 5);

    EXPECT_EQ(req, nullptr);
    EXPECT_NO_LINE();
}

TEST(ReqAlloc, without_a_pool_the_slab_allocator_is_asked_with_handle_0)
{
    cmm_req *req = reinterpret_cast<cmm_req *>(0x1234);

    allocReq(&req, 77, "the_caller", 5);

    EXPECT_EQ(req, nullptr);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args.at(0).number, 0u);
}

TEST(ReqAlloc, a_null_out_pointer_is_refused)
{
    allocReq(nullptr, 77, "the_caller", 5);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocReq",
                     "[UMM_CMM] The param req is NULL. ModuleID: 77 funcName: the_caller "
                     "fileLine: 5");
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST(ReqAlloc, the_line_about_a_null_out_pointer_is_limited)
{
    EXPECT_LIMITED(allocReq(nullptr, 77, "the_caller", 5),
                   "[UMM_CMM] The param req is NULL. ModuleID: 77 funcName: the_caller "
                   "fileLine: 5");
}

TEST(ReqAlloc, a_null_function_name_is_written_in_brackets)
{
    allocReq(nullptr, 77, nullptr, 5);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocReq",
                     "[UMM_CMM] The param req is NULL. ModuleID: 77 funcName: (null) fileLine: 5");
}

TEST(ReqFree, the_request_goes_back_to_the_slab)
{
    cmm_req *req = new_request();

    freeReq(req, 78, "the_other", 9);

    const fake_call freed = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(freed.args.at(0).number, g_req_partition_id);
    EXPECT_EQ(freed.args.at(1).number, reinterpret_cast<uint64_t>(req));
    EXPECT_EQ(freed.args.at(2).number, 78u);
    EXPECT_EQ(freed.args.at(3).text, "the_other");
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_NO_LINE();
}

TEST(ReqFree, a_null_request_is_refused_with_the_module_id_as_pid_is_kept)
{
    freeReq(nullptr, 77, "the_caller", 5);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeReq",
                     "[UMM_CMM] Req is NULL, pid: 77 funcName: the_caller line: 5.");
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST(ReqFree, the_line_about_a_null_request_is_limited)
{
    EXPECT_LIMITED(freeReq(nullptr, 77, "the_caller", 5),
                   "[UMM_CMM] Req is NULL, pid: 77 funcName: the_caller line: 5.");
}

TEST(ReqFree, a_null_function_name_is_written_in_brackets)
{
    freeReq(nullptr, 77, nullptr, 5);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeReq",
                     "[UMM_CMM] Req is NULL, pid: 77 funcName: (null) line: 5.");
}

TEST(ReqFreeDeath, a_queue_mark_of_0_ends_the_process)
{
    cmm_req *req = new_request();
    set_byte(req, 29, 0x00);

    EXPECT_EXIT(freeReq(req, 77, "the_caller", 5), testing::KilledBySignal(SIGABRT),
                queue_line(req, "0"));
}

TEST(ReqFreeDeath, any_mark_but_the_one_ends_the_process)
{
    cmm_req *req = new_request();
    set_byte(req, 29, 0xAC);

    EXPECT_EXIT(freeReq(req, 77, "the_caller", 5), testing::KilledBySignal(SIGABRT),
                queue_line(req, "ac"));
}

TEST(ReqFreeDeath, with_the_fatal_level_disabled_the_process_ends_without_a_word)
{
    cmm_req *req = new_request();
    set_byte(req, 29, 0x00);
    fake_set_log_level(1);

    EXPECT_EXIT(freeReq(req, 77, "the_caller", 5), testing::KilledBySignal(SIGABRT), "^$");
}

TEST(ReqInfo, printing_a_request_does_nothing)
{
    cmm_req req = {};
    fake_forget_calls();

    printReqInfo(&req);
    printReqInfo(nullptr);

    EXPECT_TRUE(fake_calls().empty());
    EXPECT_NO_LINE();
    EXPECT_EQ(fake_console(), "");
}

TEST(ReqInfo, facts_are_those_of_the_pool)
{
    new_request();
    zyumm_partition_info info = {};

    EXPECT_EQ(zyumm_req_info_get(&info), 0);

    EXPECT_EQ(fake_last_call(OP_zyumm_partition_info_get).args.at(0).number, g_req_partition_id);
    EXPECT_EQ(fake_last_call(OP_zyumm_partition_info_get).args.at(1).number,
              reinterpret_cast<uint64_t>(&info));
    EXPECT_STREQ(info.name, "REQ PARTITION");
    EXPECT_EQ(info.used, 1u);
}

TEST(ReqInfo, the_memory_managers_answer_is_passed_back)
{
    new_request();
    fake_fail_with(OP_zyumm_partition_info_get, 1, 5);
    zyumm_partition_info info = {};

    EXPECT_EQ(zyumm_req_info_get(&info), 5);
}

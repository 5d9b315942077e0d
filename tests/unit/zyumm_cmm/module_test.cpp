/*
 * Start and stop: the ladder up, each rung that breaks, the way down, and the audit.
 */
#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "started_node.h"

namespace
{

constexpr char EXIT_BEGIN[]  = "[UMM_CMM] umm_cmm module exit begin.";
constexpr char EXIT_FINISH[] = "[UMM_CMM] umm_cmm module exit finish.";

/* Sentences of a complete start's story, so that a stop's story begins after them. */
constexpr size_t START_STEPS = 8;

std::vector<std::string> texts_from(const std::string &func)
{
    std::vector<std::string> texts;
    for (const fake_line &line : fake_log_from(func))
        texts.push_back(line.text);
    return texts;
}

/* The stop that a failed one can be repeated with: as if one user were left. */
uint32_t exit_as_last_user()
{
    g_cmm_init_count = 1;
    return cmm_module_exit();
}

uint32_t forgotten_partition()
{
    uint32_t id = 0;
    createStructurePartition(1, "forgotten", 77, 0, 64, &id, nullptr, nullptr, 0);
    return id;
}

void expect_nothing_stands()
{
    EXPECT_EQ(g_req_partition_id, 0u);
    EXPECT_EQ(g_sgl_partition_id, 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_EQ(slabs_alive(), 0u);
}

/* Every call of `op` in the start that fails makes the start fail, for good and without remains. */
void expect_start_fails_at_every(fake_op op, uint64_t at_least)
{
    const started_node node;
    uint64_t steps = 0;

    for_each_fault(op, [&](const fault &f) {
        start_over();
        const uint64_t partitions = fake_partitions_alive();
        const uint32_t status     = cmm_module_init();
        if (!f.hit) {
            EXPECT_EQ(status, 0u);
            EXPECT_EQ(g_cmm_init_count, 1);
            EXPECT_EQ(cmm_module_exit(), 0u);
        } else {
            ++steps;
            EXPECT_EQ(status, 0xFFFFFFFFu) << f.nth;
            EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu) << f.nth;
            EXPECT_EQ(g_cmm_init_count, 0) << f.nth;
            EXPECT_EQ(fake_partitions_alive(), partitions + (g_cmm_umm_partition != 0 ? 1 : 0));
        }
        expect_nothing_stands();
    });
    EXPECT_GE(steps, at_least);
}

/* No failure of `op` in the start keeps the library from starting and stopping. */
void expect_start_survives_every(fake_op op, uint64_t at_least)
{
    const started_node node;
    uint64_t steps = 0;

    for_each_fault(op, [&](const fault &f) {
        start_over();
        EXPECT_EQ(cmm_module_init(), 0u) << f.nth;
        steps += f.hit ? 1 : 0;
        EXPECT_EQ(cmm_module_exit(), 0u) << f.nth;
        expect_nothing_stands();
    });
    EXPECT_GE(steps, at_least);
}

} // namespace

TEST(ModuleInit, at_load_nothing_is_started)
{
    EXPECT_EQ(g_cmm_init_magic, 0u);
    EXPECT_EQ(g_cmm_init_status, 0u);
    EXPECT_EQ(g_cmm_init_count, 0);
    EXPECT_EQ(g_cmm_umm_partition, 0u);
}

TEST(ModuleInit, the_start_goes_through_the_once_guard)
{
    const started_node node;

    EXPECT_EQ(cmm_module_init(), 0u);

    const fake_call once = fake_last_call(OP_zymm_init_once);
    EXPECT_EQ(once.args.at(0).number, reinterpret_cast<uint64_t>(&g_cmm_init_magic));
    EXPECT_EQ(once.args.at(1).number, reinterpret_cast<uint64_t>(&cmm_module_init_inner));
    EXPECT_EQ(once.args.at(2).number, reinterpret_cast<uint64_t>(&g_cmm_init_status));
    EXPECT_EQ(once.args.at(3).text, "cmm_module_init");
    EXPECT_NE(g_cmm_init_magic, 0u);
    EXPECT_EQ(g_cmm_init_count, 1);
}

TEST(ModuleInit, the_steps_come_in_order)
{
    const started_node node;

    ASSERT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(whole_story(),
              (story{"make partition cmm_moduleInit", "load document", "core dump level 2",
                     "make REQ PARTITION", "make SGL PARTITION", "make ZERO_PAGE_POOL",
                     "make PAGE PARTITION", "make PAGE REQUEST"}));
}

TEST(ModuleInit, the_librarys_partition_is_made_with_1_0_0)
{
    const started_node node;

    cmm_module_init();

    const fake_call made = fake_last_call(OP_zyumm_partition_create);
    EXPECT_EQ(made.args.at(0).number, 1u);
    EXPECT_EQ(made.args.at(1).number, 0u);
    EXPECT_EQ(made.args.at(2).number, 0u);
    EXPECT_EQ(g_cmm_umm_partition, made.result);
}

TEST(ModuleInit, the_whole_registry_is_cleared)
{
    const started_node node("no document");
    memset(static_cast<void *>(g_cmm_part_s), 0xEE, sizeof g_cmm_part_s);

    ASSERT_EQ(cmm_module_init(), 0u);

    static const char zero[65536] = {};
    EXPECT_EQ(memcmp(g_cmm_part_s, zero, 65536), 0);
}

TEST(ModuleInit, the_registry_lock_is_set_to_its_unlocked_state)
{
    const started_node node("no document");
    g_cmm_part_lock = {1, 2, 3, 4};

    ASSERT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(g_cmm_part_lock.word, 0u);
    EXPECT_EQ(g_cmm_part_lock.magic, 0xdead4eadu);
    EXPECT_EQ(g_cmm_part_lock.owner_cpu, 0xFFFFFFFFu);
    EXPECT_EQ(g_cmm_part_lock.owner, 0xFFFFFFFFFFFFFFFFu);
}

TEST(ModuleInit, without_its_partition_the_start_fails_without_a_word)
{
    const started_node node;
    g_cmm_part_s[5].part_id = 5;
    fake_fail(OP_zyumm_partition_create);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(whole_story(), story{"make partition cmm_moduleInit"});
    EXPECT_EQ(g_cmm_part_s[5].part_id, 5u);
    EXPECT_EQ(fake_count(OP_posix_readlink), 0u);
    EXPECT_NO_LINE();
}

TEST(ModuleInit, a_configuration_path_that_cannot_be_found_fails_the_start)
{
    const started_node node;
    fake_fail(OP_posix_readlink);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_init_inner",
                     "[UMM_CMM] get node_config.xml failed");
    EXPECT_EQ(whole_story(), story{"make partition cmm_moduleInit"});
    EXPECT_EQ(fake_partitions_alive(), 1u);
    EXPECT_EQ(g_cmm_init_count, 0);
}

TEST(ModuleInit, the_line_about_the_configuration_path_is_limited)
{
    fake_fail_always(OP_posix_readlink);

    EXPECT_LIMITED(cmm_module_init_inner(), "[UMM_CMM] get node_config.xml failed");
}

TEST(ModuleInit, a_document_that_cannot_be_parsed_leaves_the_defaults_and_no_pools)
{
    const started_node node("<cmm><not closed");

    EXPECT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(whole_story(),
              (story{"make partition cmm_moduleInit", "load document", "core dump level 0"}));
    EXPECT_EQ(g_cmm_init_count, 1);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ModuleInit, a_missing_document_leaves_the_defaults_and_no_pools)
{
    fake_set_executable("/there/is/no/such/directory/cmm_test");

    EXPECT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(whole_story(), (story{"make partition cmm_moduleInit", "core dump level 0"}));
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ModuleInit, pools_left_to_outside_components_are_skipped)
{
    const started_node node;
    g_cmm_part_creator = 0x7;

    ASSERT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(whole_story(), (story{"make partition cmm_moduleInit", "load document",
                                    "core dump level 2", "make PAGE REQUEST"}));
}

TEST(ModuleInit, without_a_request_pool_nothing_has_to_be_taken_down)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 1);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(story_since(3), story{"make REQ PARTITION"});
}

TEST(ModuleInit, without_an_sgl_pool_the_request_pool_is_taken_down)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 2);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(story_since(4), (story{"make SGL PARTITION", "end REQ PARTITION"}));
}

TEST(ModuleInit, without_a_page_pool_requests_and_sgls_are_taken_down_in_this_order)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 3);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(story_since(6),
              (story{"make PAGE PARTITION", "end REQ PARTITION", "end SGL PARTITION"}));
}

TEST(ModuleInit, without_the_retry_queue_requests_sgls_and_pages_are_taken_down_in_this_order)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 4);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(story_since(7), (story{"make PAGE REQUEST", "end REQ PARTITION",
                                     "end SGL PARTITION", "end PAGE PARTITION",
                                     "end ZERO_PAGE_POOL"}));
    expect_nothing_stands();
}

TEST(ModuleInit, without_the_retry_queue_the_buffer_pool_goes_before_all_others)
{
    const started_node node;
    fake_hook(OP_zymm_create_slab, 4, [] { cmm_create_buffer_mempool(1, 1); });
    fake_fail(OP_zymm_create_slab, 4);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(story_since(8), (story{"make rdma_pool", "end the buffer allocator",
                                     "end rdma_pool", "end REQ PARTITION", "end SGL PARTITION",
                                     "end PAGE PARTITION", "end ZERO_PAGE_POOL"}));
    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
    expect_nothing_stands();
}

TEST(ModuleInit, a_failure_before_the_retry_queue_leaves_the_buffer_pool)
{
    const started_node node;
    fake_hook(OP_zymm_create_slab, 3, [] { cmm_create_buffer_mempool(1, 1); });
    fake_fail(OP_zymm_create_slab, 3);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_TRUE(fake_handle_alive(g_ucmm_config.io_pool.pool_handle));
    EXPECT_EQ(fake_allocators_alive(), 1u);
}

TEST(ModuleInit, a_failed_retry_queue_ends_also_a_buffer_pool_made_before_the_start)
{
    const started_node node("no document");
    g_ucmm_config.page_max = 64;
    ASSERT_EQ(cmm_create_buffer_mempool(1, 1), 0u);
    fake_fail_always(OP_zyax_timer_add);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
    EXPECT_EQ(fake_allocators_alive(), 0u);
    EXPECT_EQ(fake_count(OP_zymm_pool_destory), 1u);
}

TEST(ModuleInit, a_start_that_reads_a_document_forgets_the_buffer_pool_is_kept)
{
    const started_node node;
    ASSERT_EQ(cmm_create_buffer_mempool(1, 1), 0u);
    const uint64_t pool = g_ucmm_config.io_pool.pool_handle;

    ASSERT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
    EXPECT_TRUE(fake_handle_alive(pool));
}

TEST(ModuleInit, a_start_without_a_document_keeps_the_buffer_pool)
{
    const started_node node("no document");
    ASSERT_EQ(cmm_create_buffer_mempool(1, 1), 0u);
    const uint64_t pool = g_ucmm_config.io_pool.pool_handle;

    ASSERT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, pool);
}

TEST(ModuleInit, a_retry_timer_that_fails_takes_everything_down)
{
    const started_node node;
    fake_fail_always(OP_zyax_timer_add);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);

    expect_nothing_stands();
}

TEST(ModuleInit, the_librarys_partition_stays_after_a_failed_start_is_kept)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 4);

    cmm_module_init();

    EXPECT_NE(g_cmm_umm_partition, 0u);
    EXPECT_EQ(fake_partitions_alive(), 1u);
    EXPECT_EQ(fake_count(OP_zyumm_partition_delete), 0u);
}

TEST(ModuleInit, a_failed_start_is_final)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 1);

    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);
    EXPECT_EQ(cmm_module_init(), 0xFFFFFFFFu);
    EXPECT_EQ(zyumm_cmm_module_init(), 0xFFFFFFFFu);

    EXPECT_EQ(fake_count(OP_zyumm_partition_create), 1u);
    EXPECT_EQ(g_cmm_init_status, 0xFFFFFFFFu);
    EXPECT_EQ(g_cmm_init_count, 0);
}

TEST(ModuleInit, later_calls_count_but_do_not_start_again)
{
    const started_node node;

    EXPECT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(zyumm_cmm_module_init(), 0u);

    EXPECT_EQ(g_cmm_init_count, 3);
    EXPECT_EQ(fake_count(OP_zyumm_partition_create), 1u);
}

TEST(ModuleInit, the_extended_form_refuses_null_and_does_not_count)
{
    const started_node node;

    EXPECT_EQ(cmm_module_init_ext(nullptr), 0xFFFFFFFFu);

    EXPECT_EQ(g_cmm_init_count, 0);
    EXPECT_EQ(fake_count(OP_zymm_init_once), 0u);
    EXPECT_NO_LINE();
}

TEST(ModuleInit, the_extended_form_starts_the_library_without_reading_its_block)
{
    const started_node node;
    const void *unreadable = reinterpret_cast<const void *>(0x10);

    EXPECT_EQ(cmm_module_init_ext(unreadable), 0u);

    EXPECT_EQ(g_cmm_init_count, 1);
}

TEST(ModuleInit, the_second_name_starts_the_library_under_the_firsts_name)
{
    const started_node node;

    EXPECT_EQ(zyumm_cmm_module_init(), 0u);

    EXPECT_EQ(fake_last_call(OP_zymm_init_once).args.at(3).text, "cmm_module_init");
    EXPECT_EQ(g_cmm_init_count, 1);
}

TEST(ModuleInitFaults, every_partition_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_zyumm_partition_create, 1);
}

TEST(ModuleInitFaults, every_step_to_the_configuration_path_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_posix_readlink, 1);
}

TEST(ModuleInitFaults, every_pool_name_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_memcpy_s, 4);
}

TEST(ModuleInitFaults, every_slab_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_zymm_create_slab, 4);
}

TEST(ModuleInitFaults, every_memory_pool_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_zyumm_mpool_create, 1);
}

TEST(ModuleInitFaults, every_block_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_ucmm_mpool_alloc_i, 1);
}

TEST(ModuleInitFaults, every_page_protection_refused_fails_the_start)
{
    expect_start_fails_at_every(OP_zyax_setmemory_ro, 2);
}

TEST(ModuleInitFaults, a_document_that_cannot_be_loaded_does_not_fail_the_start)
{
    expect_start_survives_every(OP_zyax_xml_loadfd, 1);
}

TEST(ModuleInitFaults, no_attribute_that_cannot_be_read_fails_the_start)
{
    expect_start_survives_every(OP_zyax_xml_element_getattr, 3);
}

TEST(ModuleInitFaults, the_memory_size_is_not_needed_for_a_start)
{
    expect_start_survives_every(OP_zyax_xml_getfirstchild, 1);
}

TEST(ModuleExit, without_a_start_nothing_is_torn_down)
{
    EXPECT_EQ(cmm_module_exit(), 0u);

    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
                                    EXIT_BEGIN, "[UMM_CMM] umm_cmm module exit count is -1."}));
    EXPECT_EQ(g_cmm_init_count, -1);
    EXPECT_TRUE(fake_calls().empty());
}

TEST(ModuleExit, exits_too_many_drive_the_count_down_is_kept)
{
    cmm_module_exit();
    cmm_module_exit();
    EXPECT_EQ(cmm_module_exit(), 0u);

    EXPECT_EQ(g_cmm_init_count, -3);
    EXPECT_LAST_LINE(ZYLOG_INFO, "cmm_module_exit",
                     "[UMM_CMM] umm_cmm module exit count is -3.");
}

TEST(ModuleExit, with_two_users_only_the_second_exit_tears_down)
{
    const started_node node;
    cmm_module_init();
    cmm_module_init();
    fake_forget_log();

    EXPECT_EQ(cmm_module_exit(), 0u);
    EXPECT_EQ(texts_from("cmm_module_exit"),
              (std::vector<std::string>{EXIT_BEGIN, "[UMM_CMM] umm_cmm module exit count is 1."}));
    EXPECT_EQ(slabs_alive(), 4u);

    EXPECT_EQ(cmm_module_exit(), 0u);
    expect_nothing_stands();
}

TEST(ModuleExit, the_steps_come_in_order)
{
    const started_node node;
    cmm_module_init();

    ASSERT_EQ(cmm_module_exit(), 0u);

    EXPECT_EQ(story_since(START_STEPS),
              (story{"end PAGE REQUEST", "end REQ PARTITION", "end SGL PARTITION",
                     "end PAGE PARTITION", "end ZERO_PAGE_POOL", "delete partition 1"}));
}

TEST(ModuleExit, the_buffer_pool_is_left_to_its_user)
{
    const started_node node;
    cmm_module_init();
    ASSERT_EQ(cmm_create_buffer_mempool(1, 1), 0u);
    const uint64_t pool = g_ucmm_config.io_pool.pool_handle;

    EXPECT_EQ(cmm_module_exit(), 0u);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, pool);
    EXPECT_TRUE(fake_handle_alive(pool));
    EXPECT_EQ(fake_allocators_alive(), 1u);
    cmm_destory_buffer_mempool();
}

TEST(ModuleExit, a_clean_stop_says_so_and_opens_the_guard)
{
    const started_node node;
    cmm_module_init();
    fake_forget_log();

    EXPECT_EQ(cmm_module_exit(), 0u);

    EXPECT_EQ(texts_from("cmm_module_exit"), (std::vector<std::string>{EXIT_BEGIN, EXIT_FINISH}));
    EXPECT_LAST_LINE(ZYLOG_INFO, "cmm_module_exit", EXIT_FINISH);
    EXPECT_EQ(g_cmm_init_magic, 0u);
    EXPECT_EQ(g_cmm_umm_partition, 0u);
    EXPECT_EQ(g_cmm_init_count, 0);
    EXPECT_EQ(fake_handles_alive(), 0u);
    EXPECT_EQ(fake_partitions_alive(), 0u);
}

TEST(ModuleExit, the_recorded_status_is_not_reset)
{
    const started_node node;
    cmm_module_init();
    g_cmm_init_status = 0x77;

    cmm_module_exit();

    EXPECT_EQ(g_cmm_init_status, 0x77u);
}

TEST(ModuleExit, after_a_clean_stop_the_library_starts_again)
{
    const started_node node;
    cmm_module_init();
    cmm_module_exit();

    EXPECT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(fake_count(OP_zyumm_partition_create), 2u);
    EXPECT_EQ(slabs_alive(), 4u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ModuleExit, the_first_partition_after_a_restart_gets_the_lowest_id_again)
{
    const started_node node("no document");
    cmm_module_init();
    cmm_module_exit();
    cmm_module_init();

    EXPECT_EQ(forgotten_partition(), 1u);
}

TEST(ModuleExit, its_info_lines_are_not_limited)
{
    const started_node node("no document");

    EXPECT_NOT_LIMITED(cmm_module_exit(), EXIT_BEGIN);
    EXPECT_NOT_LIMITED((g_cmm_init_count = 5, cmm_module_exit()),
                       "[UMM_CMM] umm_cmm module exit count is 4.");
    EXPECT_NOT_LIMITED((g_cmm_init_count = 0, cmm_module_init(), cmm_module_exit()), EXIT_FINISH);
}

TEST(ModuleExit, a_page_pool_that_stays_fails_the_stop_before_the_partition_goes)
{
    const started_node node;
    cmm_module_init();
    fake_fail(OP_zymm_destory_slab, 4);

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_exit", "[UMM_CMM] Delete page mempool error.");
    EXPECT_EQ(story_since(START_STEPS), (story{"end PAGE REQUEST", "end REQ PARTITION",
                                               "end SGL PARTITION", "end PAGE PARTITION"}));
    EXPECT_EQ(g_cmm_umm_partition, 1u);
    EXPECT_NE(g_cmm_init_magic, 0u);
}

TEST(ModuleExit, the_line_about_the_page_pool_is_limited)
{
    const started_node node;
    cmm_module_init();
    fake_fail_always(OP_zymm_destory_slab);

    EXPECT_LIMITED(exit_as_last_user(), "[UMM_CMM] Delete page mempool error.");
}

TEST(ModuleExit, pools_that_stay_for_requests_and_sgls_do_not_fail_the_stop)
{
    const started_node node;
    cmm_module_init();
    fake_fail(OP_zymm_destory_slab, 2);
    fake_fail(OP_zymm_destory_slab, 3);

    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ModuleExit, a_partition_that_stays_fails_the_stop)
{
    const started_node node;
    cmm_module_init();
    fake_fail(OP_zyumm_partition_delete);

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_exit",
                     "[UMM_CMM] Delete umm_cmm partition error. partId[1]");
    EXPECT_EQ(g_cmm_umm_partition, 1u);
    EXPECT_NE(g_cmm_init_magic, 0u);
    EXPECT_EQ(fake_log_count(EXIT_FINISH), 0u);
}

TEST(ModuleExit, the_line_about_the_partition_is_limited)
{
    const started_node node;
    cmm_module_init();
    fake_fail_always(OP_zyumm_partition_delete);

    EXPECT_LIMITED(exit_as_last_user(), "[UMM_CMM] Delete umm_cmm partition error. partId[1]");
}

TEST(ModuleAudit, a_forgotten_partition_fails_the_stop_after_all_pools_are_gone)
{
    const started_node node;
    cmm_module_init();
    const uint32_t id   = forgotten_partition();
    const uint64_t pool = g_cmm_part_s[id].pool;

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_exit",
                     "[UMM_CMM] Some umm_cmm partition is not delete. partId[" +
                         std::to_string(id) + "] pool_id(" + std::to_string(pool) + ")");
    expect_nothing_stands();
    EXPECT_EQ(fake_count(OP_zyumm_partition_delete), 1u);
    EXPECT_NE(g_cmm_init_magic, 0u);
    EXPECT_EQ(fake_log_count(EXIT_FINISH), 0u);
}

TEST(ModuleAudit, of_several_leftovers_only_the_lowest_is_named)
{
    const started_node node("no document");
    cmm_module_init();
    forgotten_partition();
    const uint32_t lowest = forgotten_partition();
    forgotten_partition();
    deleteStructurePartition(1);
    const uint64_t pool = g_cmm_part_s[lowest].pool;
    fake_forget_log();

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_EQ(texts_from("cmm_module_exit"),
              (std::vector<std::string>{
                  EXIT_BEGIN, "[UMM_CMM] Some umm_cmm partition is not delete. partId[2] pool_id(" +
                                  std::to_string(pool) + ")"}));
}

TEST(ModuleAudit, the_highest_id_is_looked_at_too)
{
    const started_node node("no document");
    cmm_module_init();
    g_cmm_part_s[2047].pool = 99;

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_exit",
                     "[UMM_CMM] Some umm_cmm partition is not delete. partId[2047] pool_id(99)");
}

TEST(ModuleAudit, entry_0_is_not_looked_at)
{
    const started_node node("no document");
    cmm_module_init();
    g_cmm_part_s[0].pool = 99;

    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ModuleAudit, the_line_about_a_leftover_is_limited)
{
    const started_node node("no document");
    cmm_module_init();
    g_cmm_part_s[3].pool = 99;
    const auto exit_again = [] {
        g_cmm_umm_partition = zyumm_partition_create(1, 0, 0, "again");
        exit_as_last_user();
    };

    EXPECT_LIMITED(exit_again(),
                   "[UMM_CMM] Some umm_cmm partition is not delete. partId[3] pool_id(99)");
}

TEST(ModuleAudit, a_block_that_could_not_be_had_is_reported_with_its_stale_handle)
{
    const started_node node("no document");
    cmm_module_init();
    fake_fail(OP_ucmm_mpool_alloc_i);
    uint32_t id = 0;
    void *addr  = nullptr;
    createContinuousPartition(64, "block", 77, 0, &id, &addr, "the test");
    const uint64_t stale = fake_last_call(OP_zyumm_mpool_create).result;

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_exit",
                     "[UMM_CMM] Some umm_cmm partition is not delete. partId[1] pool_id(" +
                         std::to_string(stale) + ")");
}

TEST(ModuleAudit, ids_without_pools_fail_the_stop)
{
    const started_node node("no document");
    cmm_module_init();
    cmm_alloc_part_id();
    cmm_alloc_part_id();

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "cmm_module_exit",
                     "[UMM_CMM] Any umm_cmm partition is not delete. remain(2)");
    EXPECT_NE(g_cmm_init_magic, 0u);
}

TEST(ModuleAudit, the_line_about_ids_without_pools_is_limited)
{
    const started_node node("no document");
    cmm_module_init();
    cmm_alloc_part_id();
    const auto exit_again = [] {
        g_cmm_umm_partition = zyumm_partition_create(1, 0, 0, "again");
        exit_as_last_user();
    };

    EXPECT_LIMITED(exit_again(), "[UMM_CMM] Any umm_cmm partition is not delete. remain(1)");
}

TEST(ModuleAudit, after_a_failed_stop_a_start_answers_the_old_status_and_counts_is_kept)
{
    const started_node node;
    cmm_module_init();
    forgotten_partition();
    cmm_module_exit();
    fake_forget_calls();

    EXPECT_EQ(cmm_module_init(), 0u);

    EXPECT_EQ(g_cmm_init_count, 1);
    EXPECT_EQ(fake_count(OP_zyumm_partition_create), 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(ModuleThreads, of_racing_starts_one_starts_and_all_count)
{
    const started_node node;
    std::atomic<int> failures = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { failures += cmm_module_init() != 0 ? 1 : 0; });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(g_cmm_init_count, 8);
    EXPECT_EQ(fake_count(OP_zyumm_partition_create), 1u);
    EXPECT_EQ(slabs_alive(), 4u);
}

TEST(ModuleThreads, of_racing_starts_that_fail_none_counts)
{
    const started_node node;
    fake_fail(OP_zymm_create_slab, 2);
    std::atomic<int> failures = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { failures += cmm_module_init() == 0xFFFFFFFF ? 1 : 0; });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(failures, 8);
    EXPECT_EQ(g_cmm_init_count, 0);
    EXPECT_EQ(fake_count(OP_zyumm_partition_create), 1u);
}

TEST(ModuleThreads, of_racing_stops_one_tears_down)
{
    const started_node node;
    for (int i = 0; i < 8; ++i)
        cmm_module_init();
    std::atomic<int> failures = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { failures += cmm_module_exit() != 0 ? 1 : 0; });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(g_cmm_init_count, 0);
    EXPECT_EQ(fake_log_count(EXIT_FINISH), 1u);
    EXPECT_EQ(fake_count(OP_zyumm_partition_delete), 1u);
    EXPECT_EQ(fake_handles_alive(), 0u);
}

TEST(ModuleAttr, each_known_bit_is_converted)
{
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0x10), 0x2u);
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0x40), 0x80u);
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0x80), 0x800u);
}

TEST(ModuleAttr, known_bits_add_up)
{
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0xD0), 0x882u);
}

TEST(ModuleAttr, no_other_bit_passes)
{
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0), 0u);
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0xFFFFFFFFFFFFFF2F), 0u);
    EXPECT_EQ(zyumm_attr_conver_zymm_attr(0xFFFFFFFFFFFFFFFF), 0x882u);
}

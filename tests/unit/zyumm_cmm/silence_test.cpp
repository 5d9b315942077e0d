/*
 * Start, stop, configuration and partitions with all levels off: the answers are the same, and not
 * a line is written.
 */
#include "unit/silence.h"

#include "partition_test_help.h"
#include "started_node.h"

#include "zyumm_cmm/partition_local.h"

static constexpr uint32_t FAILURE = 0xFFFFFFFF;

/* ---- start and stop */

TEST_F(Silence, a_node_starts_and_stops)
{
    started_node node;
    EXPECT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
    EXPECT_EQ(fake_handles_alive(), 0u);
}

TEST_F(Silence, a_process_that_cannot_find_itself_does_not_start)
{
    fake_fail(OP_posix_readlink);
    EXPECT_EQ(cmm_module_init(), FAILURE);
}

TEST_F(Silence, a_page_pool_that_cannot_be_ended_fails_the_stop)
{
    started_node node;
    ASSERT_EQ(cmm_module_init(), 0u);
    fake_fail_always(OP_zymm_destory_slab);
    EXPECT_EQ(cmm_module_exit(), FAILURE);
}

TEST_F(Silence, a_partition_that_cannot_be_ended_fails_the_stop)
{
    started_node node;
    ASSERT_EQ(cmm_module_init(), 0u);
    fake_fail(OP_zyumm_partition_delete);
    EXPECT_EQ(cmm_module_exit(), FAILURE);
}

TEST_F(Silence, a_client_that_left_its_pool_behind_fails_the_stop)
{
    started_node node;
    ASSERT_EQ(cmm_module_init(), 0u);
    ASSERT_NE(new_partition(), 0u);
    EXPECT_EQ(cmm_module_exit(), FAILURE);
}

TEST_F(Silence, a_client_that_left_its_id_behind_fails_the_stop)
{
    started_node node;
    ASSERT_EQ(cmm_module_init(), 0u);
    cmm_alloc_part_id();
    EXPECT_EQ(cmm_module_exit(), FAILURE);
}

/* ---- where the document is */

TEST_F(Silence, a_link_name_that_does_not_fit_fails_the_search)
{
    char path[CMM_PATH_SIZE] = {}, name[CMM_PROC_NAME_SIZE];
    fake_fail(OP_snprintf_s, 1);
    EXPECT_EQ(get_umm_cfg_path(path, name), FAILURE);
}

TEST_F(Silence, a_program_name_that_does_not_fit_fails_the_search)
{
    char path[CMM_PATH_SIZE] = {}, name[CMM_PROC_NAME_SIZE];
    fake_fail(OP_snprintf_s, 2);
    EXPECT_EQ(get_umm_cfg_path(path, name), FAILURE);
}

TEST_F(Silence, a_document_path_that_does_not_fit_fails_the_search)
{
    char path[CMM_PATH_SIZE] = {}, name[CMM_PROC_NAME_SIZE];
    fake_fail(OP_snprintf_s, 3);
    EXPECT_EQ(get_umm_cfg_path(path, name), FAILURE);
}

TEST_F(Silence, a_path_that_was_set_is_kept)
{
    char path[CMM_PATH_SIZE] = "/etc/node.xml", name[CMM_PROC_NAME_SIZE];
    EXPECT_EQ(get_umm_cfg_path(path, name), 0u);
    EXPECT_STREQ(path, "/etc/node.xml");
}

TEST_F(Silence, a_configuration_path_is_set_and_refused)
{
    EXPECT_EQ(zyumm_set_config_path(nullptr, "me", 1), FAILURE);
    EXPECT_EQ(zyumm_set_config_path("/no/such/folder", "me", 1), FAILURE);
    fake_set_realpath(std::string(CMM_PATH_SIZE, 'x'));
    EXPECT_EQ(zyumm_set_config_path("/tmp", "me", 1), FAILURE);
    fake_set_realpath("/opt/node");
    EXPECT_EQ(zyumm_set_config_path("/tmp", "me", 1), 0u);

    char path[CMM_PATH_SIZE] = {}, name[CMM_PROC_NAME_SIZE];
    EXPECT_EQ(zyumm_config_info_get(path, name), 0u);
    EXPECT_STREQ(path, "/opt/node/node_config.xml");
}

TEST_F(Silence, a_checked_path_that_does_not_fit_ends_the_process)
{
    fake_set_realpath("/opt/node");
    fake_fail_with(OP_snprintf_s, 1, uint64_t(-1));
    EXPECT_EXIT(zyumm_set_config_path("/tmp", "me", 1), testing::KilledBySignal(SIGABRT), "^$");
    EXPECT_EQ(zyumm_set_config_path(nullptr, "me", 1), FAILURE);
}

/* ---- what the document says */

static uint32_t read_document(const std::string &body)
{
    scratch_directory directory;
    const std::string text = "<?xml version=\"1.0\"?>\n<cmm>\n" + body + "\n</cmm>\n";
    return umm_parse_xml(directory.write("node_config.xml", text).c_str(), "p");
}

static constexpr char ONE_SIZE[] = "<memcfg> <mem>1</mem> </memcfg>\n";

TEST_F(Silence, a_document_that_cannot_be_read_is_refused)
{
    EXPECT_EQ(umm_parse_xml("/no/such/file", "p"), FAILURE);
    fake_fail(OP_zyax_xml_loadfd);
    EXPECT_EQ(read_document(""), FAILURE);
}

TEST_F(Silence, a_document_without_its_parts_is_refused)
{
    std::string sizes;
    for (int i = 0; i < 17; ++i)
        sizes += "<mem>1</mem> ";
    fake_fail(OP_zyax_get_total_mem, 1);
    EXPECT_EQ(read_document(ONE_SIZE), FAILURE);
    EXPECT_EQ(read_document("<config> </config>"), FAILURE);
    EXPECT_EQ(read_document("<memcfg> " + sizes + "</memcfg>"), FAILURE);
    EXPECT_EQ(read_document(ONE_SIZE), FAILURE);
    EXPECT_EQ(read_document(std::string(ONE_SIZE) + "<config> </config>"), FAILURE);
    EXPECT_EQ(
        read_document(std::string(ONE_SIZE) + "<config> <node memory=\"1\"> </node> </config>"),
        FAILURE);
    EXPECT_EQ(read_document(std::string(ONE_SIZE) +
                            "<config> <node memory=\"1\"> <umm> </umm> </node> </config>"),
              FAILURE);
}

TEST_F(Silence, an_entry_without_parameters_is_read)
{
    EXPECT_EQ(read_document(std::string(ONE_SIZE) +
                            "<config> <node memory=\"1\"> <umm> <uprocess name=\"p\"/> </umm> "
                            "</node> </config>"),
              0u);
}

TEST_F(Silence, the_control_group_is_asked_first)
{
    fake_set_ini("/opt/marrowbay/cgroup_info.ini");
    EXPECT_EQ(umm_get_total_mem(), 0u);
    fake_set_ini("/opt/marrowbay/cgroup_info.ini", "cgroup_info", "cgroup_mem", "1048576");
    EXPECT_EQ(umm_get_total_mem(), 1048576u);
}

TEST_F(Silence, the_share_of_the_storage_is_asked_second)
{
    strcpy(g_proc_name, "p");
    fake_set_ini("/opt/marrowbay/storage_resource_info.ini");
    EXPECT_EQ(umm_get_total_mem(), 209715200u);
    fake_set_ini("/opt/marrowbay/storage_resource_info.ini", "p", "mem", "1048576");
    EXPECT_EQ(umm_get_total_mem(), 1048576u);
}

TEST_F(Silence, an_unknown_node_mask_leaves_the_counts)
{
    uint32_t min = 5, max = 9;
    fake_set_numa(1, 3, 2);
    fake_fail(OP_zyax_numam_proc_numamask_get);
    umm_fix_cmm_quota(&min, &max, 1, 100);
    EXPECT_EQ(min, 5u);
    EXPECT_EQ(max, 9u);
}

TEST_F(Silence, quotas_out_of_range_are_adjusted)
{
    cmm_pool_quota quota = {};
    quota.max_limit = 2;
    quota.leak_rate = 101;
    quota.dontfork_flag = 2;
    umm_adjust_pool_config_info(&quota);
    EXPECT_EQ(quota.max_limit, 1u);
    EXPECT_EQ(quota.leak_rate, 100u);
    EXPECT_EQ(quota.dontfork_flag, 1u);
}

TEST_F(Silence, pools_without_their_sizes_are_refused)
{
    entry normal("<normal_pool/>"), io("<io_pool/>");
    EXPECT_EQ(umm_parse_pool_quota(normal.first_child(), normal.top()), FAILURE);
    EXPECT_EQ(umm_parse_pool_quota(io.first_child(), io.top()), FAILURE);
}

TEST_F(Silence, caches_without_their_sizes_get_none)
{
    g_ucmm_config.cache_size = 7;
    entry caches("<pool_threadcache/>");
    EXPECT_EQ(umm_parse_pool_cachesize(caches.first_child(), caches.top()), 0u);
    EXPECT_EQ(umm_parse_pool_cachenum(caches.first_child(), caches.top()), 0u);
    EXPECT_EQ(g_ucmm_config.cache_size, 0u);
}

TEST_F(Silence, a_transport_without_its_flag_is_refused)
{
    entry none(""), without("<rdma_flag/>"), wrong("<rdma_flag flag=\"2\"/>");
    EXPECT_EQ(umm_parse_rdma_flag_quota(none.first_child(), none.top()), 0u);
    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    EXPECT_EQ(umm_parse_rdma_flag_quota(without.first_child(), without.top()), FAILURE);
    EXPECT_EQ(umm_parse_rdma_flag_quota(wrong.first_child(), wrong.top()), FAILURE);
}

TEST_F(Silence, a_further_file_is_found_and_refused)
{
    strcpy(g_config_path, "/opt/node/node_config.xml");
    entry without("<cfg_path/>"), given("<cfg_path path=\"x.cfg\"/>");
    EXPECT_EQ(umm_parse_cfg_path(without.first_child(), without.top()), FAILURE);
    EXPECT_EQ(umm_parse_cfg_path(given.first_child(), given.top()), 0u);
    EXPECT_STREQ(g_cfg_path_absolute, "/opt/node/x.cfg");
    fake_fail(OP_snprintf_s);
    EXPECT_EQ(umm_parse_cfg_path(given.first_child(), given.top()), FAILURE);
}

TEST_F(Silence, a_core_dump_without_a_level_gets_0)
{
    g_ucmm_config.coredump_level = 3;
    entry dump("<mem_coredump/>");
    EXPECT_EQ(umm_parse_coredump_level(dump.first_child(), dump.top()), 0u);
    EXPECT_EQ(g_ucmm_config.coredump_level, 0u);
}

/* ---- partitions */

TEST_F(Silence, wrong_arguments_make_no_partition)
{
    enter_library();
    structure_mempool_para para = new_para();
    uint32_t id = 0;
    void *at = nullptr;
    EXPECT_EQ(createStructureMempool(nullptr, &id), FAILURE);
    para.magic = 1;
    EXPECT_EQ(createStructureMempool(&para, &id), FAILURE);
    EXPECT_EQ(createStructurePartition(4, nullptr, 77, 0, 64, &id, nullptr, nullptr, 0), FAILURE);
    EXPECT_EQ(createStructurePartition(4, "x", 77, 0, 64, nullptr, nullptr, nullptr, 0), FAILURE);
    EXPECT_EQ(createContinuousPartition(64, "x", 77, 0, nullptr, &at, "me"), FAILURE);
    initStructureMempoolPara(nullptr);
    EXPECT_EQ(fake_handles_alive(), 0u);
}

TEST_F(Silence, a_refused_pool_is_a_failure)
{
    enter_library();
    structure_mempool_para para = new_para();
    uint32_t id = 0;
    fake_fail(OP_zyumm_mpool_create);
    EXPECT_EQ(createStructureMempool(&para, &id), FAILURE);
}

TEST_F(Silence, a_full_registry_is_a_failure)
{
    enter_library();
    structure_mempool_para para = new_para();
    uint32_t id = 0;
    void *at = nullptr;
    reserve_ids(0);
    EXPECT_EQ(createStructureMempool(&para, &id), FAILURE);
    EXPECT_EQ(new_partition(), 0u);
    EXPECT_EQ(createContinuousPartition(64, "x", 77, 0, &id, &at, "me"), FAILURE);
}

TEST_F(Silence, deleting_what_is_not_there)
{
    EXPECT_EQ(deleteStructurePartition(2048), 0u);
    EXPECT_EQ(deleteStructurePartition(5), FAILURE);
}

TEST_F(Silence, objects_of_partitions_that_cannot_be)
{
    void *object = &object;
    allocStructure(77, 5, nullptr, "me");
    allocStructure(77, 2048, &object, "me");
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(freeStructure(&object, 2048, 77, "me", 1), 0u);
    EXPECT_EQ(freeStructure(nullptr, 5, 77, "me", 1), 0u);
}

TEST_F(Silence, the_creator_is_set_and_added_to)
{
    zyumm_partition_creator_set(1);
    zyumm_partition_creator_add(4);
    EXPECT_EQ(zyumm_is_partition_creator(5), 1u);
    EXPECT_EQ(zyumm_is_partition_creator(2), 0u);
}

TEST_F(Silence, counts_that_cannot_be_had)
{
    uint32_t total = 0, allocated = 0;
    EXPECT_EQ(getPartitionAllocInfo(5, nullptr, &allocated), FAILURE);
    EXPECT_EQ(getPartitionAllocInfo(2048, &total, &allocated), FAILURE);
}

/*
 * The parameter elements of a process's entry. Each stands alone: one that cannot be read leaves
 * its fields as they were, and the reader of the whole entry goes on with the next. A number that
 * cannot be converted is 0. Attributes are read in the order in which the rows count them: a
 * quota's are numa_factor, num_factor, min_num, max_num, num; a pool's are its three sizes, then
 * max_limit, leak_rate and dontfork_flag.
 */
#include "sweep.h"

#include "unit/zyumm_cmm/config_documents.h"
#include "zyumm_cmm.h"

namespace
{

const entry &parameters()
{
    static const entry parsed(R"(
  <rdma_flag flag="0"/>
  <normal_pool reserve_size="1" max_size="2" extand_size="3" leak_rate="9"/>
  <io_pool reserve_size="4" max_size="5" extand_size="6"/>
  <pool_threadcache cache_size="7"/>
  <pool_cachenum page="1" page_maxcachethreadnum="2" 64K_inner="3" 64K_outer="4"/>
  <req_num num="16"/>
  <sgl_num min_num="8" max_num="32"/>
  <page_num num="64" numa_factor="1" num_factor="100"/>
  <cfg_path path="sub/x.cfg"/>
  <mem_coredump dump_level="2"/>)");
    return parsed;
}

mxml_node_t *first()
{
    return parameters().first_child();
}

mxml_node_t *top()
{
    return parameters().top();
}

void nothing_read()
{
    g_ucmm_config = {};
    g_cfg_path_absolute[0] = '\0';
    strcpy(g_config_path, "/a/b/./node_config.xml");
}

void two_numa_nodes()
{
    fake_set_numa(1, 3, 2);
}

std::string told_numbers(std::initializer_list<uint64_t> numbers)
{
    std::string text;
    for (const uint64_t number : numbers)
        text += " " + told(number);
    return text;
}

} // namespace

const std::vector<operation> &parameter_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(umm_xml_get_element_attr),
            .call =
                [] {
                    uint32_t value = 99;
                    const uint32_t status =
                        umm_xml_get_element_attr(parameters().find("req_num"), "num", &value);
                    return told(status) + " " + told(value);
                },
            .clean = "0 16",
            .stops = {ends("0xFFFFFFFF 99", {OP_zyax_xml_element_getattr, OP_zyax_str_isuint}),
                      ends("0 0", {OP_zyax_str_tou64})},
        },
        {
            .name = EXPORTED(umm_parse_param),
            .scene = two_numa_nodes,
            .ready = nothing_read,
            .call = [] { return told(umm_parse_param(parameters().element(), top())); },
            .clean = "0",
            .stops = {goes_on({OP_zyax_xml_findelement, OP_zyax_xml_element_getattr,
                               OP_zyax_str_isuint, OP_zyax_str_tou64, OP_zyax_numam_status_get,
                               OP_zyax_numam_proc_numamask_get, OP_zyax_numam_num_get, OP_memcpy_s,
                               OP_snprintf_s, OP_zymm_pool_cache_num_set}),
                      ends("0xFFFFFFFF", {OP_zyax_xml_getfirstchild})},
        },
        {
            .name = EXPORTED(umm_parse_rdma_flag_quota),
            .ready = [] { g_ucmm_config.rdma_flag = 7; },
            .call =
                [] {
                    const uint32_t status = umm_parse_rdma_flag_quota(first(), top());
                    return told(status) + " " + told(g_ucmm_config.rdma_flag);
                },
            .clean = "0 0",
            .stops = {ends("0 1", {OP_zyax_xml_findelement}),
                      ends("0xFFFFFFFF 7", {OP_zyax_xml_element_getattr, OP_zyax_str_isuint}),
                      goes_on({OP_zyax_str_tou64})},
        },
        {
            .name = EXPORTED(umm_parse_pool_quota),
            .ready = nothing_read,
            .call =
                [] {
                    const uint32_t status = umm_parse_pool_quota(first(), top());
                    return told(status) + told_numbers({g_ucmm_config.normal_pool.max_size,
                                                        g_ucmm_config.normal_pool.leak_rate,
                                                        g_ucmm_config.io_pool.max_size,
                                                        g_ucmm_config.io_pool.leak_rate});
                },
            .clean = "0 2 9 5 30",
            .stops = {ends("0 0 0 5 30", {OP_zyax_xml_findelement}).at({1}),
                      ends("0 2 9 0 0", {OP_zyax_xml_findelement}).at({2}),
                      ends("0xFFFFFFFF 0 0 0 0", {OP_zyax_xml_element_getattr, OP_zyax_str_isuint})
                          .at({1, 2, 3}),
                      goes_on({OP_zyax_xml_element_getattr}).at({4, 6, 10, 11, 12}),
                      ends("0 2 30 5 30", {OP_zyax_xml_element_getattr}).at({5}),
                      ends("0xFFFFFFFF 2 9 0 0", {OP_zyax_xml_element_getattr}).at({7, 8, 9}),
                      ends("0 2 30 5 30", {OP_zyax_str_isuint}).at({4}),
                      ends("0xFFFFFFFF 2 9 0 0", {OP_zyax_str_isuint}).at({5, 6, 7}),
                      goes_on({OP_zyax_str_tou64}), ends("0 0 9 5 30", {OP_zyax_str_tou64}).at({2}),
                      ends("0 2 0 5 30", {OP_zyax_str_tou64}).at({4}),
                      ends("0 2 9 0 30", {OP_zyax_str_tou64}).at({6})},
        },
        {
            .name = EXPORTED(umm_parse_pool_quota_for_each),
            .call =
                [] {
                    cmm_pool_quota quota = {};
                    const uint32_t status =
                        umm_parse_pool_quota_for_each(first(), top(), "normal_pool", &quota);
                    return told(status) + told_numbers({quota.reserve_size, quota.max_size,
                                                        quota.extand_size, quota.leak_rate});
                },
            .clean = "0 1 2 3 9",
            .stops = {ends("0 0 0 0 0", {OP_zyax_xml_findelement}),
                      ends("0xFFFFFFFF 0 0 0 0", {OP_zyax_xml_element_getattr, OP_zyax_str_isuint})
                          .at({1, 2, 3}),
                      goes_on({OP_zyax_xml_element_getattr}).at({4, 6}),
                      ends("0 1 2 3 30", {OP_zyax_xml_element_getattr}).at({5}),
                      ends("0 1 2 3 30", {OP_zyax_str_isuint}).at({4}),
                      ends("0 0 2 3 9", {OP_zyax_str_tou64}).at({1}),
                      ends("0 1 0 3 9", {OP_zyax_str_tou64}).at({2}),
                      ends("0 1 2 0 9", {OP_zyax_str_tou64}).at({3}),
                      ends("0 1 2 3 0", {OP_zyax_str_tou64}).at({4})},
        },
        {
            .name = EXPORTED(umm_adjust_pool_config_info),
            .call =
                [] {
                    cmm_pool_quota quota = {};
                    quota.leak_rate = 150;
                    umm_adjust_pool_config_info(&quota);
                    return told(quota.leak_rate);
                },
            .clean = "100",
        },
        {
            .name = EXPORTED(umm_parse_pool_cachesize),
            .ready = nothing_read,
            .call =
                [] {
                    const uint32_t status = umm_parse_pool_cachesize(first(), top());
                    return told(status) + " " + told(g_ucmm_config.cache_size);
                },
            .clean = "0 7",
            .stops = {ends("0 0", {OP_zyax_xml_findelement, OP_zyax_xml_element_getattr,
                                   OP_zyax_str_isuint, OP_zyax_str_tou64})},
        },
        {
            .name = EXPORTED(umm_parse_pool_cachenum),
            .call = [] { return told(umm_parse_pool_cachenum(first(), top())); },
            .clean = "0",
            .stops = {goes_on({OP_zyax_xml_findelement, OP_zyax_xml_element_getattr,
                               OP_zyax_str_isuint, OP_zyax_str_tou64, OP_zymm_pool_cache_num_set})},
        },
        {
            .name = EXPORTED(umm_parse_cmm_xml),
            .scene = two_numa_nodes,
            .ready = nothing_read,
            .call =
                [] {
                    const uint32_t status = umm_parse_cmm_xml(first(), top());
                    return told(status) +
                           told_numbers({g_ucmm_config.req_max, g_ucmm_config.sgl_max,
                                         g_ucmm_config.page_max});
                },
            .clean = "0 16 32 128",
            .stops =
                {
                    goes_on({OP_zyax_xml_element_getattr, OP_zyax_str_tou64}),
                    ends("0 0 32 128",
                         {OP_zyax_xml_findelement, OP_zyax_str_isuint, OP_zyax_str_tou64})
                        .at({1}),
                    ends("0 16 0 128", {OP_zyax_xml_findelement}).at({2}),
                    ends("0 16 32 0", {OP_zyax_xml_findelement}).at({3}),
                    ends("0 0 32 128", {OP_zyax_xml_element_getattr}).at({4}),
                    ends("0 16 0 128", {OP_zyax_xml_element_getattr}).at({7, 8}),
                    ends("0 16 32 64", {OP_zyax_xml_element_getattr}).at({9}),
                    ends("0 16 32 0", {OP_zyax_xml_element_getattr}).at({10, 12}),
                    ends("0 16 0 128", {OP_zyax_str_isuint}).at({2, 3}),
                    ends("0 16 0 128", {OP_zyax_str_tou64}).at({3}),
                    ends("0 16 32 64", {OP_zyax_str_isuint, OP_zyax_str_tou64}).at({4}),
                    ends("0 16 32 0", {OP_zyax_str_isuint, OP_zyax_str_tou64}).at({5, 6}),
                    goes_on({OP_zyax_numam_status_get}).at({1, 2}),
                    ends("0 16 32 64", {OP_zyax_numam_status_get, OP_zyax_numam_proc_numamask_get}),
                    ends("0 16 32 0", {OP_zyax_numam_num_get}),
                },
        },
        {
            .name = EXPORTED(umm_parse_cmm_quota),
            .call =
                [] {
                    uint32_t min = 7, max = 7, numa = 7, factor = 7;
                    const uint32_t status =
                        umm_parse_cmm_quota(first(), top(), "page_num", &min, &max, &numa, &factor);
                    return told(status) + told_numbers({min, max, numa, factor});
                },
            .clean = "0 64 64 1 100",
            .stops = {ends("0 0 0 7 7", {OP_zyax_xml_findelement}),
                      ends("0 64 64 0 100",
                           {OP_zyax_xml_element_getattr, OP_zyax_str_isuint, OP_zyax_str_tou64})
                          .at({1}),
                      ends("0 64 64 1 0",
                           {OP_zyax_xml_element_getattr, OP_zyax_str_isuint, OP_zyax_str_tou64})
                          .at({2}),
                      goes_on({OP_zyax_xml_element_getattr}).at({3}),
                      ends("0xFFFFFFFF 7 7 1 100", {OP_zyax_xml_element_getattr}).at({4}),
                      ends("0xFFFFFFFF 7 7 1 100", {OP_zyax_str_isuint}).at({3}),
                      ends("0 0 0 1 100", {OP_zyax_str_tou64}).at({3})},
        },
        {
            .name = EXPORTED(umm_fix_cmm_quota),
            .scene = two_numa_nodes,
            .call =
                [] {
                    uint32_t min = 10, max = 20;
                    umm_fix_cmm_quota(&min, &max, 1, 200);
                    return told(min) + " " + told(max);
                },
            .clean = "40 80",
            .stops = {ends("10 20", {OP_zyax_numam_status_get, OP_zyax_numam_proc_numamask_get}),
                      ends("0 0", {OP_zyax_numam_num_get})},
        },
        {
            .name = EXPORTED(umm_parse_cfg_path),
            .ready = nothing_read,
            .call =
                [] {
                    const uint32_t status = umm_parse_cfg_path(first(), top());
                    return told(status) + " " + g_cfg_path_absolute;
                },
            .clean = "0 /a/b/./sub/x.cfg",
            .stops = {ends("0 ", {OP_zyax_xml_findelement}),
                      ends("0xFFFFFFFF ", {OP_zyax_xml_element_getattr, OP_snprintf_s}),
                      ends("0 ./sub/x.cfg", {OP_memcpy_s})},
        },
        {
            .name = EXPORTED(umm_parse_coredump_level),
            .ready = nothing_read,
            .call =
                [] {
                    const uint32_t status = umm_parse_coredump_level(first(), top());
                    return told(status) + " " + told(g_ucmm_config.coredump_level);
                },
            .clean = "0 2",
            .stops = {ends("0 0", {OP_zyax_xml_findelement, OP_zyax_xml_element_getattr,
                                   OP_zyax_str_isuint, OP_zyax_str_tou64})},
        },
        {
            .name = EXPORTED(umm_parse_cmm_page_creator),
            .call =
                [] {
                    static const entry creator("  <page_creator creator=\"5\"/>");
                    uint32_t mask = 9;
                    const uint32_t status = umm_parse_cmm_page_creator(
                        creator.first_child(), creator.top(), "page_creator", &mask);
                    return told(status) + " " + told(mask);
                },
            .clean = "0 5",
            .stops = {ends("0 0", {OP_zyax_xml_findelement, OP_zyax_str_tou64}),
                      ends("0xFFFFFFFF 9", {OP_zyax_xml_element_getattr, OP_zyax_str_isuint})},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Parameter, Sweep, ::testing::ValuesIn(parameter_operations()), row_name);

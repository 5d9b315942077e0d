/*
 * Where the configuration lies, the node's memory size, and the way to the process's entry.
 *
 * An element that is not found is one that is not there. A number that cannot be converted is 0,
 * and a memory size of 0 keeps the loaded tree. In the node's document the searches are, in this
 * order: memcfg, mem and its end, config, node, umm, the process's entry and its end, the default
 * entry, and from the 10th on the parameters.
 */
#include "sweep.h"

#include "unit/zyumm_cmm/started_node.h"

namespace
{

constexpr char FAILED[] = "0xFFFFFFFF";
constexpr char CGROUP[] = "/opt/marrowbay/cgroup_info.ini";
constexpr char STORAGE[] = "/opt/marrowbay/storage_resource_info.ini";

char config_path[4096];
char process_name[32];

const document &node_document()
{
    static const document parsed(ALL_POOLS);
    return parsed;
}

const scratch_directory &directory()
{
    static const scratch_directory made;
    return made;
}

void a_document_file()
{
    directory().write("node_config.xml", ALL_POOLS);
}

void clear_paths()
{
    config_path[0] = '\0';
    process_name[0] = '\0';
    g_config_path[0] = '\0';
}

std::string told_total()
{
    return told(umm_get_total_mem());
}

std::string told_process(const char *name)
{
    mxml_node_t *const umm = node_document().find("umm");
    const mxml_node_t *found = umm_get_process_xml(umm, node_document().top(), name);
    return told(found);
}

/* Without the directory, which differs from run to run. */
std::string told_path(uint32_t status)
{
    const std::string path = g_config_path;
    const size_t at = path.find(directory().path());
    return told(status) + " " + (at == 0 ? path.substr(directory().path().size()) : path);
}

} // namespace

const std::vector<operation> &config_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(get_umm_cfg_path),
            .ready = clear_paths,
            .call =
                [] {
                    const uint32_t status = get_umm_cfg_path(config_path, process_name);
                    return told(status) + " " + process_name + " " + config_path;
                },
            .clean = "0 cmm_test /opt/node/bin/./node_config.xml",
            .stops = {goes_on({OP_posix_getpid}), ends("0xFFFFFFFF  ", {OP_posix_readlink}),
                      ends("0xFFFFFFFF  ", {OP_snprintf_s}).at({1, 2}),
                      ends("0xFFFFFFFF cmm_test ", {OP_snprintf_s}).at({3})},
        },
        {
            .name = EXPORTED(zyumm_set_config_path),
            .ready = clear_paths,
            .call =
                [] {
                    return told_path(
                        zyumm_set_config_path(directory().path().c_str(), "the test", 1));
                },
            .clean = "0 /node_config.xml",
            .stops = {goes_on({OP_zyax_access}), ends("0xFFFFFFFF ", {OP_posix_realpath}),
                      ends("aborts: 2|zyumm_set_config_path|0|BUG", {OP_snprintf_s})},
        },
        {
            .name = EXPORTED(zyumm_config_path_get),
            .scene = [] { strcpy(g_cfg_path_absolute, "/a/b"); },
            .call =
                [] {
                    char copied[4096] = "";
                    const uint32_t status = zyumm_config_path_get(copied);
                    return told(status) + " " + copied;
                },
            .clean = "0 /a/b",
            .stops = {ends("0xFFFFFFFF ", {OP_strncpy_s})},
        },
        {
            .name = EXPORTED(zyumm_config_info_get),
            .scene =
                [] {
                    strcpy(g_config_path, "/a/b");
                    strcpy(g_proc_name, "p");
                },
            .call =
                [] {
                    char path[4096] = "", name[32] = "";
                    const uint32_t status = zyumm_config_info_get(path, name);
                    return told(status) + " " + path + " " + name;
                },
            .clean = "0 /a/b p",
            .stops = {ends("0xFFFFFFFF  ", {OP_memcpy_s}),
                      ends("0xFFFFFFFF /a/b ", {OP_strncpy_s})},
        },
        {
            .name = EXPORTED(umm_get_total_mem),
            .when = "of_the_machine",
            .call = told_total,
            .clean = "209715200",
            .stops = {goes_on({OP_zyax_cfg_init}), ends("0", {OP_zyax_get_total_mem})},
        },
        {
            .name = EXPORTED(umm_get_total_mem),
            .when = "of_the_storage_resource",
            .scene =
                [] {
                    strcpy(g_proc_name, "p");
                    fake_set_ini(STORAGE, "p", "mem", "3145728");
                },
            .call = told_total,
            .clean = "3145728",
            .stops = {goes_on({OP_zyax_cfg_init}).at({1}),
                      ends("209715200", {OP_zyax_cfg_init}).at({2}),
                      ends("209715200", {OP_zyax_cfg_getItemValue}),
                      goes_on({OP_zyax_cfg_destroy_ex}).leaving("inis+1"),
                      ends("0", {OP_zyax_str_tou64, OP_zyax_get_total_mem})},
        },
        {
            .name = EXPORTED(umm_get_total_mem),
            .when = "of_the_control_group",
            .scene = [] { fake_set_ini(CGROUP, "cgroup_info", "cgroup_mem", "2097152"); },
            .call = told_total,
            .clean = "2097152",
            .stops = {ends("209715200", {OP_zyax_cfg_init}),
                      ends("0",
                           {OP_zyax_cfg_getItemValue, OP_zyax_str_tou64, OP_zyax_get_total_mem}),
                      goes_on({OP_zyax_cfg_destroy_ex}).leaving("inis+1")},
        },
        {
            .name = EXPORTED(umm_get_node_mem_size),
            .call = [] { return told(umm_get_node_mem_size(node_document().top())); },
            .clean = "1",
            .stops = {goes_on({OP_zyax_cfg_init}),
                      ends("0", {OP_zyax_get_total_mem, OP_zyax_str_tos64}),
                      ends("0", {OP_zyax_xml_findelement}).at({1}),
                      ends("200", {OP_zyax_xml_findelement}).at({2}),
                      goes_on({OP_zyax_xml_findelement}).at({3}),
                      ends("200", {OP_zyax_xml_getfirstchild})},
        },
        {
            .name = EXPORTED(umm_get_quota_xml),
            .call = [] { return told(umm_get_quota_xml(node_document().top(), 1)); },
            .clean = "there",
            .stops = {ends("null", {OP_zyax_xml_findelement, OP_zyax_xml_element_getattr,
                                    OP_zyax_str_isuint, OP_zyax_str_tou64})},
        },
        {
            .name = EXPORTED(umm_get_process_xml),
            .call = [] { return told_process("p"); },
            .clean = "there",
            .stops =
                {goes_on({OP_zyax_xml_findelement}),
                 ends("null", {OP_zyax_xml_findelement}).at({3}),
                 goes_on({OP_zyax_xml_getfirstchild, OP_zyax_xml_element_getattr}).at({1}),
                 ends("null", {OP_zyax_xml_getfirstchild, OP_zyax_xml_element_getattr}).at({2})},
        },
        {
            .name = EXPORTED(get_process_xml_by_name),
            .call =
                [] {
                    return told(get_process_xml_by_name(node_document().find("umm"),
                                                        node_document().top(), "default"));
                },
            .clean = "there",
            .stops = {ends("null", {OP_zyax_xml_getfirstchild, OP_zyax_xml_findelement,
                                    OP_zyax_xml_element_getattr})},
        },
        {
            .name = EXPORTED(umm_parse_xml),
            .scene = a_document_file,
            .ready = [] { g_ucmm_config = {}; },
            .call =
                [] {
                    const std::string path = directory().path() + "/node_config.xml";
                    const uint32_t status = umm_parse_xml(path.c_str(), "p");
                    return told(status);
                },
            .clean = "0",
            .stops = {goes_on({OP_zyax_xml_findelement, OP_zyax_xml_element_getattr,
                               OP_zyax_str_isuint, OP_zyax_str_tou64, OP_zyax_numam_status_get,
                               OP_zyax_cfg_init, OP_zymm_pool_cache_num_set}),
                      ends(FAILED, {OP_zyax_xml_loadfd}),
                      ends(FAILED, {OP_zyax_get_total_mem, OP_zyax_str_tos64}).leaving("trees+1"),
                      ends(FAILED, {OP_zyax_xml_findelement}).at({1}).leaving("trees+1"),
                      ends(FAILED, {OP_zyax_xml_findelement}).at({2, 4, 5, 6, 9}),
                      ends(FAILED, {OP_zyax_xml_element_getattr}).at({1, 3}),
                      ends(FAILED, {OP_zyax_str_isuint, OP_zyax_str_tou64}).at({1}),
                      goes_on({OP_zyax_xml_getfirstchild}).at({2, 4}),
                      ends(FAILED, {OP_zyax_xml_getfirstchild}).at({1, 3}),
                      goes_on({OP_zyax_xml_del}).leaving("trees+1")},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Config, Sweep, ::testing::ValuesIn(config_operations()), row_name);

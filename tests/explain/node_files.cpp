#include "node_files.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

const char SOUND_PARAMETERS[] =
    "\n<rdma_flag flag=\"1\"/>\n"
    "<normal_pool reserve_size=\"8\" max_size=\"64\" extand_size=\"4\"/>\n"
    "<io_pool reserve_size=\"0\" max_size=\"0\" extand_size=\"0\"/>\n"
    "<pool_threadcache cache_size=\"256\"/>\n"
    "<pool_cachenum page=\"32\" page_maxcachethreadnum=\"16\""
    " 64K_inner=\"8\" 64K_outer=\"4\"/>\n"
    "<req_num min_num=\"16\" max_num=\"64\"/>\n"
    "<sgl_num num=\"8\"/>\n"
    "<page_num num=\"128\"/>\n"
    "<cfg_path path=\"io/limits.cfg\"/>\n"
    "<mem_coredump dump_level=\"2\"/>\n";

node_files::node_files(const std::string &document)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "explain_XXXXXX").string();
    path_ = std::filesystem::canonical(mkdtemp(pattern.data())).string();
    add("node_config.xml", document);
}

node_files::~node_files()
{
    std::filesystem::remove_all(path_);
}

void node_files::add(const char *name, const std::string &text)
{
    const std::filesystem::path file = path_ + "/" + name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

void node_files::add_cgroup_info(const std::string &text)
{
    add("opt/marrowbay/cgroup_info.ini", text);
}

void node_files::add_storage_info(const std::string &text)
{
    add("opt/marrowbay/storage_resource_info.ini", text);
}

explain_request node_files::request(const std::string &process) const
{
    explain_request request;
    request.file = path_ + "/node_config.xml";
    request.process = process;
    request.memory = 1073741824;
    request.numa_nodes = 1;
    return request;
}

std::string document_of(const std::string &sizes, const std::string &sections)
{
    return "<?xml version=\"1.0\"?>\n<file>\n<memcfg>\n" + sizes + "</memcfg>\n<config>\n" +
           sections + "</config>\n</file>\n";
}

std::string one_entry(const std::string &parameters)
{
    return document_of("<mem>1024</mem>\n", "<node memory=\"1024\">\n<umm>\n"
                                            "<uprocess name=\"io_process\">" +
                                                parameters + "</uprocess>\n</umm>\n</node>\n");
}

#include "config_directory.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "zyumm_cmm.h"

static std::string count_element(const char *name, uint32_t count)
{
    return std::string("        <") + name + " num=\"" + std::to_string(count) + "\"/>\n";
}

config_directory::config_directory(const pool_sizes &sizes)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "cmm_stack_XXXXXX").string();
    path_               = mkdtemp(pattern.data());

    std::ofstream document(path_ + "/node_config.xml");
    document << "<?xml version=\"1.0\"?>\n<root>\n"
                "  <memcfg>\n    <mem>1</mem>\n  </memcfg>\n"
                "  <config>\n    <node memory=\"1\">\n      <umm>\n"
                "      <uprocess name=\"default\">\n"
             << "        <rdma_flag flag=\"0\"/>\n"
             << count_element("req_num", sizes.reqs) << count_element("sgl_num", sizes.sgls)
             << count_element("page_num", sizes.pages)
             << "      </uprocess>\n      </umm>\n    </node>\n  </config>\n</root>\n";
    document.close();
    zyumm_set_config_path(path_.c_str(), __func__, __LINE__);
}

config_directory::~config_directory()
{
    std::filesystem::remove_all(path_);
}

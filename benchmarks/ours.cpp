/*
 * Loading and starting the two copies of the library.
 *
 * The configuration is a file in a fresh folder, with one entry for any program and a section that
 * serves a machine of any size. Both starts read it; then it is removed.
 */
#include "ours.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench_error.h"

namespace bench
{

/* Nothing is reserved: memory is taken when it is used, as the peers do it. */
static std::string count_element(const char *name, uint32_t count)
{
    return std::string("          <") + name + " min_num=\"0\" max_num=\"" + std::to_string(count) +
           "\"/>\n";
}

static std::string write_configuration(const quota &sizes)
{
    std::string folder = (std::filesystem::temp_directory_path() / "cmm_bench_XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        fail("no temporary folder can be made");

    std::ofstream document(folder + "/node_config.xml");
    document << "<?xml version=\"1.0\"?>\n<root>\n"
                "  <memcfg>\n    <mem>1</mem>\n  </memcfg>\n"
                "  <config>\n    <node memory=\"1\">\n      <umm>\n"
                "        <uprocess name=\"default\">\n          <rdma_flag flag=\"0\"/>\n"
             << count_element("req_num", sizes.reqs) << count_element("sgl_num", sizes.sgls)
             << count_element("page_num", sizes.pages)
             << "        </uprocess>\n      </umm>\n    </node>\n  </config>\n</root>\n";
    document.close();
    if (!document)
        fail("the configuration cannot be written");
    return folder;
}

static void load_shared(void)
{
    void *library = dlopen(BENCH_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        fail(dlerror());

    bool is_complete = true;
#define X(operation)                                                                               \
    ours_shared::operation = reinterpret_cast<decltype(&::operation)>(dlsym(library, #operation)); \
    is_complete = is_complete && ours_shared::operation != nullptr &&                              \
                  ours_shared::operation != &::operation;
    BENCH_OPERATIONS(X)
#undef X
    if (!is_complete)
        fail("the shared library is not a complete copy of its own");
}

template <class L>
static void start(const std::string &folder, const quota &sizes)
{
    /* A refused page is what some rows measure: its line must not be part of them. */
    L::zyax_log_set_level(ZYLOG_FATAL);
    L::zyumm_set_config_path(folder.c_str(), __func__, __LINE__);
    const uint32_t started = L::cmm_module_init();
    if (started != 0)
        fail("the library does not start");

    uint64_t total = 0;
    uint64_t used = 0;
    L::zyumm_page_get_usage_info(&total, &used);
    if (total < sizes.pages || used != 0)
        fail("the library has started without its pages");
}

void start_ours(const quota &sizes)
{
    const std::string folder = write_configuration(sizes);
    load_shared();
    start<ours_static>(folder, sizes);

    uint64_t total = 0;
    uint64_t used = 0;
    if (ours_shared::zyumm_page_get_usage_info(&total, &used) == 0)
        fail("the shared library has the static one's pages");
    start<ours_shared>(folder, sizes);
    std::filesystem::remove_all(folder);
}

void stop_ours(void)
{
    if (ours_shared::cmm_module_exit() != 0 || ours_static::cmm_module_exit() != 0)
        fail("the library does not stop cleanly");
}

} // namespace bench

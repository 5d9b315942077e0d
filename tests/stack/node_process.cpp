#include "node_process.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

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

retry_poller::retry_poller() : thread_([this] { run(); })
{
}

retry_poller::~retry_poller()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void retry_poller::signal()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        signalled_ = true;
    }
    wake_.notify_one();
}

void retry_poller::run()
{
    std::unique_lock<std::mutex> guard(mutex_);
    while (!stopping_) {
        /* Signals alone are not enough: a run may end with servable requests left behind. */
        wake_.wait_for(guard, std::chrono::milliseconds(5),
                       [this] { return signalled_ || stopping_; });
        signalled_ = false;
        guard.unlock();

        if (__atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED) != 0)
            page_start_retry();
        if (__atomic_load_n(&s_enter_retry_cnt, __ATOMIC_RELAXED) != 0)
            page_do_retry();

        guard.lock();
    }
}

uint64_t pages_out()
{
    uint64_t total = 0;
    uint64_t used  = 0;
    zyumm_page_get_usage_info(&total, &used);
    return used;
}

uint64_t sgls_out()
{
    uint64_t total = 0;
    uint64_t used  = 0;
    zyumm_sgl_get_usage_info(&total, &used);
    return used;
}

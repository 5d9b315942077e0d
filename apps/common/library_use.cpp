/*
 * Finds the configuration, starts the library and looks whether all three pools are there.
 */
#include "library_use.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "missing_pool.h"
#include "node_error.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

namespace {

void choose_config(const std::string &dir)
{
    if (!std::filesystem::is_directory(dir))
        throw node_error(dir + ": no folder with a configuration");
    if (zyumm_set_config_path(dir.c_str(), __func__, __LINE__) != CMM_OK)
        throw node_error(dir + ": cannot be used as the configuration's folder");
    if (access(g_config_path, R_OK) != 0)
        throw system_failure(g_config_path, errno);
}

} // namespace

library_use::library_use(const std::string &config_dir)
{
    choose_config(config_dir);
    if (cmm_module_init() != CMM_OK)
        throw node_error("the library did not start; --log-level info tells more");
    running_ = true;

    const std::string missing = why_a_pool_is_missing();
    if (!missing.empty()) {
        stop();
        throw node_error(missing);
    }
}

library_use::~library_use()
{
    stop();
}

bool library_use::stop()
{
    if (!running_)
        return true;
    running_ = false;
    /* This process starts the library once. The eviction timer would outlive the stop and complain
     * that there is no pool any more; and with it go the call-backs, which cannot be taken back. */
    zyax_timer_delete(&g_page_async_evict_handler.timer);
    return cmm_module_exit() == CMM_OK;
}

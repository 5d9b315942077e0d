/*
 * Finds the configuration, starts the library and looks whether all three pools are there.
 */
#include "library_use.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <semaphore>

#include "missing_pool.h"
#include "node_error.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

namespace {

std::binary_semaphore s_evict_timer_deleted(0);

void choose_config(const std::string &dir)
{
    if (!std::filesystem::is_directory(dir))
        throw node_error(dir + ": no folder with a configuration");
    if (zyumm_set_config_path(dir.c_str(), __func__, __LINE__) != CMM_OK)
        throw node_error(dir + ": cannot be used as the configuration's folder");
    if (access(g_config_path, R_OK) != 0)
        throw system_failure(g_config_path, errno);
}

void delete_evict_timer(void)
{
    zyax_timer_delete(&g_page_async_evict_handler.timer);
    s_evict_timer_deleted.release();
}

/* A tick during which the timer goes reports that it cannot be armed again. All timers run in one
 * thread, so there is no tick while another timer's function deletes it. */
void delete_evict_timer_between_ticks()
{
    static zyax_timer between;

    const bool armed = zyax_timer_init(&between) == 0 &&
                       zyax_timer_set_raw(&between, 0, 0, delete_evict_timer, "delete_evict_timer",
                                          __FILE__, __LINE__) == 0 &&
                       zyax_timer_add(&between) == 0;
    if (armed)
        s_evict_timer_deleted.acquire();
    else
        zyax_timer_delete(&g_page_async_evict_handler.timer);
    zyax_timer_delete(&between);
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
    delete_evict_timer_between_ticks();
    return cmm_module_exit() == CMM_OK;
}

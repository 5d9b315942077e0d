/*
 * Start and stop. The console comes last: where there is none, the start did not get through, and
 * there is nothing to report.
 */
#include "device_service.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>

#include "node_error.h"
#include "node_identity.h"
#include "zyax_log.h"
#include "zyumm_cmm.h"

namespace {

/* Where the build, and a package, put the sample: beside the plugin's folder. */
std::string sample_config_dir()
{
    Dl_info here;
    if (dladdr(reinterpret_cast<const void *>(sample_config_dir), &here) == 0)
        throw node_error("config= is missing, and the plugin does not know where it lies");
    const std::filesystem::path plugin = std::filesystem::absolute(here.dli_fname);
    return (plugin.parent_path().parent_path() / "etc" / "nbd_node").string();
}

} // namespace

void device_service::open()
{
    zyax_module_name_set(NODE_MODULE_ID, "nbd_node");
    zyax_module_name_set(CMM_MODULE_ID, "cmm");
    if (options.config_dir.empty())
        options.config_dir = sample_config_dir();
    files_ = std::make_unique<device_files>(options.file, options.replicas, options.size,
                                            options.barrier);
    device_ = std::make_unique<block_device>(*files_, options.write_through);
}

void device_service::start()
{
    library_ = std::make_unique<library_use>(options.config_dir);
    auto console = std::make_unique<console_use>(options.console);
    device_->start(options.timeout);
    console_ = std::move(console);
}

bool device_service::stop()
{
    if (console_ == nullptr)
        return true;
    const int flush_failure = device_->stop();
    if (flush_failure == 0)
        files_->close();
    audit_ = audit_at_the_end();
    print_holders(audit_);
    console_->stop();
    const bool clean = library_->stop() && !device_->records_left();
    write_report(flush_failure, clean);
    return flush_failure == 0 && audit_.clean() && clean;
}

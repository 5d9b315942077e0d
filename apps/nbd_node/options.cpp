/*
 * Paths are made absolute at once: a server in the background has another working directory.
 */
#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

#include "options.h"

#include <cstdlib>

#include "node_error.h"
#include "zyumm_cmm_types.h"

const char OPTIONS_HELP[] =
    "file=PATH           (required) backing file; made when it is not there and size= is given\n"
    "size=SIZE           size of a new device, a multiple of 512\n"
    "replica=PATH        another copy, up to 4 times\n"
    "mode=writeback      answer writes when they are in the cache (the default)\n"
    "mode=writethrough   answer writes when they are in the files\n"
    "config=DIR          folder with the memory manager's node_config.xml\n"
    "timeout=SECONDS     how long a request waits for pages; 30\n"
    "barrier=BOOL        sync intents before pages are written in place; false\n"
    "report=PATH         where the report goes at the end; standard error\n"
    "console=SOCKET      serve the memory manager's debug console there\n";

namespace {

std::string absolute(const std::string &path)
{
    char *text = nbdkit_absolute_path(path.c_str());
    if (text == nullptr)
        throw node_error(path + ": cannot be made an absolute path");
    const std::string result = text;
    free(text);
    return result;
}

uint64_t size_of(const std::string &value)
{
    const int64_t size = nbdkit_parse_size(value.c_str());
    if (size <= 0 || size % PAGE_SECTOR_DATA_SIZE != 0)
        throw node_error("size=" + value + ": not a multiple of 512 above 0");
    return uint64_t(size);
}

bool is_through(const std::string &value)
{
    if (value != "writeback" && value != "writethrough")
        throw node_error("mode=" + value + ": neither writeback nor writethrough");
    return value == "writethrough";
}

bool truth_of(const std::string &key, const std::string &value)
{
    const int truth = nbdkit_parse_bool(value.c_str());
    if (truth < 0)
        throw node_error(key + "=" + value + ": neither true nor false");
    return truth != 0;
}

} // namespace

void set_option(device_options *options, const std::string &key, const std::string &value)
{
    if (key == "file")
        options->file = absolute(value);
    else if (key == "replica")
        options->replicas.push_back(absolute(value));
    else if (key == "config")
        options->config_dir = absolute(value);
    else if (key == "report")
        options->report = absolute(value);
    else if (key == "size")
        options->size = size_of(value);
    else if (key == "mode")
        options->write_through = is_through(value);
    else if (key == "barrier")
        options->barrier = truth_of(key, value);
    else if (key == "console")
        options->console = absolute(value);
    else if (key != "timeout")
        throw node_error(key + ": no such parameter");
    else if (nbdkit_parse_uint32_t("timeout", value.c_str(), &options->timeout) != 0)
        throw node_error("timeout=" + value + ": not a number of seconds");
}

void check_options(const device_options &options)
{
    if (options.file.empty())
        throw node_error("file= is missing");
    for (const std::string &replica : options.replicas)
        if (replica == options.file)
            throw node_error(replica + ": a replica needs a file of its own");
}

/*
 * nbdkit's side: its call-backs, each a boundary that lets no exception out.
 *
 * Requests come from many threads at once, several a connection. There is one device a process and
 * one cache for all connections, so a flush on any of them covers all: they need no handle of their
 * own.
 */
#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "device_service.h"
#include "error_text.h"

#define THREAD_MODEL NBDKIT_THREAD_MODEL_PARALLEL

namespace {

device_service *s_service; /* made by load, kept for good */

/* Set-up steps: 0, or -1 with the reason told. */
template <typename F>
int step(F work)
{
    try {
        work();
        return 0;
    } catch (const std::exception &error) {
        nbdkit_error("%s", error.what());
        return -1;
    }
}

/* A client's request: 0, or -1 with the errno for the client. Who finds no pages while dirty ones
 * cannot be written is told why. */
template <typename F>
int answer(const char *what, std::atomic<uint64_t> &kind, F work)
{
    request_statistics &counts = s_service->requests;
    int failed = 0;

    ++counts.taken;
    ++kind;
    try {
        failed = work();
    } catch (const std::exception &error) {
        const int cause = s_service->device().write_failure();
        failed = cause != 0 ? cause : ENOMEM;
        nbdkit_error("%s: %s", what, error.what());
    }
    ++counts.answered;
    if (failed == 0)
        return 0;
    ++counts.failed;
    nbdkit_error("%s: %s", what, error_text(failed));
    nbdkit_set_error(failed);
    return -1;
}

bool has(uint32_t flags, uint32_t flag)
{
    return (flags & flag) != 0;
}

void load()
{
    s_service = new device_service;
}

int config(const char *key, const char *value)
{
    return step([&] { set_option(&s_service->options, key, value); });
}

int get_ready()
{
    return step([] {
        check_options(s_service->options);
        s_service->open();
    });
}

int after_fork()
{
    return step([] { s_service->start(); });
}

void cleanup()
{
    step([] { s_service->stop(); });
}

void *open_connection(int)
{
    return NBDKIT_HANDLE_NOT_NEEDED;
}

int64_t get_size(void *)
{
    return int64_t(s_service->device().files().size());
}

int yes(void *)
{
    return 1;
}

int native_fua(void *)
{
    return NBDKIT_FUA_NATIVE;
}

int block_size(void *, uint32_t *minimum, uint32_t *preferred, uint32_t *maximum)
{
    *minimum = 1;
    *preferred = PAGE_DATA_SIZE;
    *maximum = 64u << 20;
    return 0;
}

int read_data(void *, void *buffer, uint32_t count, uint64_t offset, uint32_t)
{
    s_service->requests.bytes_read += count;
    return answer("read", s_service->requests.reads,
                  [&] { return s_service->device().read(buffer, count, offset); });
}

int write_data(void *, const void *data, uint32_t count, uint64_t offset, uint32_t flags)
{
    s_service->requests.bytes_written += count;
    return answer("write", s_service->requests.writes, [&] {
        return s_service->device().write(data, count, offset, has(flags, NBDKIT_FLAG_FUA));
    });
}

int flush(void *, uint32_t)
{
    return answer("flush", s_service->requests.flushes,
                  [] { return s_service->device().flush(); });
}

int trim(void *, uint32_t count, uint64_t offset, uint32_t flags)
{
    return answer("trim", s_service->requests.trims, [&] {
        return s_service->device().zero(count, offset, true, has(flags, NBDKIT_FLAG_FUA));
    });
}

/* A client that wants zeros only if they cost nothing is told so when they must keep their room. */
int zero(void *, uint32_t count, uint64_t offset, uint32_t flags)
{
    const bool may_trim = has(flags, NBDKIT_FLAG_MAY_TRIM);

    if (has(flags, NBDKIT_FLAG_FAST_ZERO) && !may_trim) {
        nbdkit_set_error(EOPNOTSUPP);
        return -1;
    }
    return answer("zero", s_service->requests.zeros, [&] {
        return s_service->device().zero(count, offset, may_trim, has(flags, NBDKIT_FLAG_FUA));
    });
}

/* Runs of pages that are holes, and of those that are not. */
int extents(void *, uint32_t count, uint64_t offset, uint32_t flags, nbdkit_extents *list)
{
    const device_files &files = s_service->device().files();
    const uint64_t end = offset + count;

    while (offset < end) {
        const bool data = files.present.has(offset / PAGE_DATA_SIZE);
        uint64_t next = offset / PAGE_DATA_SIZE + 1;
        while (next * PAGE_DATA_SIZE < end && files.present.has(next) == data)
            ++next;
        const uint64_t stop = std::min(next * PAGE_DATA_SIZE, end);
        if (nbdkit_add_extent(list, offset, stop - offset,
                              data ? 0 : NBDKIT_EXTENT_HOLE | NBDKIT_EXTENT_ZERO) != 0)
            return -1;
        if (has(flags, NBDKIT_FLAG_REQ_ONE))
            return 0;
        offset = stop;
    }
    return 0;
}

nbdkit_plugin make_plugin()
{
    nbdkit_plugin plugin{};

    plugin.name = "cmm";
    plugin.longname = "block device on the common memory manager";
    plugin.version = NBD_NODE_VERSION;
    plugin.description = "pages with protection information, cached, journaled and replicated";
    plugin.load = load;
    plugin.config = config;
    plugin.config_help = OPTIONS_HELP;
    plugin.magic_config_key = "file";
    plugin.get_ready = get_ready;
    plugin.after_fork = after_fork;
    plugin.cleanup = cleanup;
    plugin.open = open_connection;
    plugin.get_size = get_size;
    plugin.can_write = yes;
    plugin.can_flush = yes;
    plugin.can_trim = yes;
    plugin.can_zero = yes;
    plugin.can_fast_zero = yes;
    plugin.can_extents = yes;
    plugin.can_multi_conn = yes;
    plugin.can_fua = native_fua;
    plugin.block_size = block_size;
    plugin.pread = read_data;
    plugin.pwrite = write_data;
    plugin.flush = flush;
    plugin.trim = trim;
    plugin.zero = zero;
    plugin.extents = extents;
    return plugin;
}

nbdkit_plugin s_plugin = make_plugin();

} // namespace

NBDKIT_REGISTER_PLUGIN(s_plugin)

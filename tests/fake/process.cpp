/*
 * The machine and the process: memory size, NUMA, page protection, files, names, and the process
 * calls that the linker redirects here (--wrap).
 *
 * Page protection is recorded and not done: objects share their pages with the heap.
 */
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <map>

#include <unistd.h>

#include "fake_local.h"

extern "C" {
ssize_t __real_readlink(const char *path, char *buffer, size_t size);
char   *__real_realpath(const char *path, char *resolved);
pid_t   __real_getpid(void);

ssize_t __wrap_readlink(const char *path, char *buffer, size_t size);
char   *__wrap_realpath(const char *path, char *resolved);
pid_t   __wrap_getpid(void);
}

namespace
{

struct process_state {
    std::string                     executable = "/opt/node/bin/cmm_test";
    std::string                     realpath;
    std::vector<std::string>        existing;
    uint64_t                        total_mem   = uint64_t{200} << 20;
    int                             numa_status = 0;
    uint64_t                        numa_mask   = 1;
    uint32_t                        numa_num    = 1;
    std::map<uint32_t, std::string> names;
};

process_state &state()
{
    static process_state *const process = new process_state;
    return *process;
}

int protect(const void *addr, uint32_t count)
{
    const bool aligned = reinterpret_cast<uintptr_t>(addr) % 4096 == 0;
    return addr != nullptr && aligned && count != 0 ? 0 : -1;
}

bool is_executable_link(const std::string &path)
{
    return path.starts_with("/proc/") && path.ends_with("/exe");
}

} // namespace

int zyax_access(const char *path, int mode)
{
    fake::call c(OP_zyax_access, path, mode);
    return c.answer<int>([&] {
        if (path == nullptr)
            return -1;
        const fake::guard held(fake::state_mutex());
        const auto       &files = state().existing;
        if (files.empty())
            return access(path, mode);
        return std::find(files.begin(), files.end(), path) != files.end() ? 0 : -1;
    });
}

int zyax_get_total_mem(uint64_t *bytes)
{
    fake::call c(OP_zyax_get_total_mem, bytes);
    return c.answer<int>([&] {
        if (bytes == nullptr)
            return -1;
        const fake::guard held(fake::state_mutex());
        *bytes = state().total_mem;
        return 0;
    });
}

int zyax_setmemory_ro(void *addr, uint32_t count)
{
    fake::call c(OP_zyax_setmemory_ro, addr, count);
    return c.answer<int>([&] { return protect(addr, count); });
}

int zyax_setmemory_rw(void *addr, uint32_t count)
{
    fake::call c(OP_zyax_setmemory_rw, addr, count);
    return c.answer<int>([&] { return protect(addr, count); });
}

const char *zyax_pid_get_name(uint32_t module_id)
{
    fake::call        c(OP_zyax_pid_get_name, module_id);
    const char *const name = c.answer<const char *>([&] {
        const fake::guard held(fake::state_mutex());
        std::string      &kept = state().names[module_id];
        if (kept.empty())
            kept = "module_" + std::to_string(module_id);
        return kept.c_str();
    });
    return name != nullptr ? name : ""; /* also a failed one is never null */
}

int zyax_numam_status_get(void)
{
    return fake::call(OP_zyax_numam_status_get).answer<int>([] {
        const fake::guard held(fake::state_mutex());
        return state().numa_status;
    });
}

int zyax_numam_proc_numamask_get(uint64_t *mask)
{
    fake::call c(OP_zyax_numam_proc_numamask_get, mask);
    return c.answer<int>([&] {
        if (mask == nullptr)
            return -1;
        const fake::guard held(fake::state_mutex());
        *mask = state().numa_mask;
        return 0;
    });
}

uint32_t zyax_numam_num_get(void)
{
    return fake::call(OP_zyax_numam_num_get).answer<uint32_t>([] {
        const fake::guard held(fake::state_mutex());
        return state().numa_num;
    });
}

ssize_t __wrap_readlink(const char *path, char *buffer, size_t size)
{
    fake::call    c(OP_posix_readlink, path, static_cast<void *>(buffer), size);
    const ssize_t length = c.answer<ssize_t>([&] {
        if (path == nullptr || !is_executable_link(path))
            return __real_readlink(path, buffer, size);
        const fake::guard  held(fake::state_mutex());
        const std::string &target = state().executable;
        const size_t       count  = std::min(target.size(), size);
        memcpy(buffer, target.data(), count); /* as readlink: cut, and without a terminator */
        return static_cast<ssize_t>(count);
    });
    if (c.failed())
        errno = ENOENT;
    return length;
}

char *__wrap_realpath(const char *path, char *resolved)
{
    fake::call  c(OP_posix_realpath, path, static_cast<void *>(resolved));
    char *const answer = c.answer<char *>([&] {
        std::string fixed;
        {
            const fake::guard held(fake::state_mutex());
            fixed = state().realpath;
        }
        if (fixed.empty())
            return __real_realpath(path, resolved);
        return resolved != nullptr ? strcpy(resolved, fixed.c_str()) : strdup(fixed.c_str());
    });
    if (c.failed())
        errno = ENOENT;
    return answer;
}

pid_t __wrap_getpid(void)
{
    return fake::call(OP_posix_getpid).answer<pid_t>([] { return __real_getpid(); });
}

void fake_set_executable(const std::string &path)
{
    const fake::guard held(fake::state_mutex());
    state().executable = path;
}

void fake_set_realpath(const std::string &path)
{
    const fake::guard held(fake::state_mutex());
    state().realpath = path;
}

void fake_set_existing_files(const std::vector<std::string> &paths)
{
    const fake::guard held(fake::state_mutex());
    state().existing = paths;
}

void fake_set_total_mem(uint64_t bytes)
{
    const fake::guard held(fake::state_mutex());
    state().total_mem = bytes;
}

void fake_set_numa(int status, uint64_t mask, uint32_t num)
{
    const fake::guard held(fake::state_mutex());
    state().numa_status = status;
    state().numa_mask   = mask;
    state().numa_num    = num;
}

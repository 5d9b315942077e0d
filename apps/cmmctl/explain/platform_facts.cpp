/*
 * Facts of the node: its memory, its ini files, its NUMA nodes, and the process's name.
 *
 * Each is this machine's unless the request brings its own. A request with a memory size is one
 * without ini files: they would be asked first, and their answer would hide it.
 */
#include "recording.h"

#include <algorithm>
#include <cstring>
#include <sys/types.h>

#include "zyax.h"

/* Where the process would find the file, in the copy of the node's files. */
static std::string below_root(const recording *current, const char *path)
{
    return current->facts->root + path;
}

static bool uses_own_nodes(const recording *current)
{
    return current != nullptr && current->facts->numa_nodes.has_value();
}

/* All of the given nodes; the mask has a bit for the first 64. */
static uint64_t mask_of_all(uint32_t nodes)
{
    return nodes >= 64 ? ~uint64_t{0} : (uint64_t{1} << nodes) - 1;
}

extern "C" {

int __real_zyax_cfg_init(const char *path, zyax_cfg **cfg);
int __real_zyax_cfg_getItemValue(zyax_cfg *cfg, const char *section, const char *key, char *value,
                                 uint32_t size);
int __real_zyax_get_total_mem(uint64_t *bytes);
int __real_zyax_numam_status_get(void);
int __real_zyax_numam_proc_numamask_get(uint64_t *mask);
uint32_t __real_zyax_numam_num_get(void);
ssize_t __real_readlink(const char *path, char *target, size_t size);

int __wrap_zyax_cfg_init(const char *path, zyax_cfg **cfg);
int __wrap_zyax_cfg_getItemValue(zyax_cfg *cfg, const char *section, const char *key, char *value,
                                 uint32_t size);
int __wrap_zyax_get_total_mem(uint64_t *bytes);
int __wrap_zyax_numam_status_get(void);
int __wrap_zyax_numam_proc_numamask_get(uint64_t *mask);
uint32_t __wrap_zyax_numam_num_get(void);
ssize_t __wrap_readlink(const char *path, char *target, size_t size);

int __wrap_zyax_cfg_init(const char *path, zyax_cfg **cfg)
{
    recording *current = current_recording();
    if (current == nullptr)
        return __real_zyax_cfg_init(path, cfg);
    if (current->facts->memory)
        return -1;

    const std::string place = below_root(current, path);
    const int opened = __real_zyax_cfg_init(place.c_str(), cfg);
    current->ini_files.push_back({place, opened == 0, "", "", {}});
    return opened;
}

int __wrap_zyax_cfg_getItemValue(zyax_cfg *cfg, const char *section, const char *key, char *value,
                                 uint32_t size)
{
    const int result = __real_zyax_cfg_getItemValue(cfg, section, key, value, size);
    recording *current = current_recording();
    if (current != nullptr && !current->ini_files.empty()) {
        ini_reading &file = current->ini_files.back();
        file.section = section;
        file.key = key;
        if (result == 0)
            file.value = value;
    }
    return result;
}

int __wrap_zyax_get_total_mem(uint64_t *bytes)
{
    recording *current = current_recording();
    if (current == nullptr)
        return __real_zyax_get_total_mem(bytes);

    current->asked_machine = true;
    if (!current->facts->memory)
        return __real_zyax_get_total_mem(bytes);
    *bytes = *current->facts->memory;
    return 0;
}

int __wrap_zyax_numam_status_get(void)
{
    const recording *current = current_recording();
    return uses_own_nodes(current) ? *current->facts->numa_nodes >= 2
                                   : __real_zyax_numam_status_get();
}

int __wrap_zyax_numam_proc_numamask_get(uint64_t *mask)
{
    const recording *current = current_recording();
    if (current != nullptr && current->facts->numa_mask)
        *mask = *current->facts->numa_mask;
    else if (uses_own_nodes(current))
        *mask = mask_of_all(*current->facts->numa_nodes);
    else
        return __real_zyax_numam_proc_numamask_get(mask);
    return 0;
}

uint32_t __wrap_zyax_numam_num_get(void)
{
    const recording *current = current_recording();
    return uses_own_nodes(current) ? *current->facts->numa_nodes : __real_zyax_numam_num_get();
}

/* The library's one question of this kind is for the running executable, whose name is the
 * process's; not terminated, as the system's call. */
ssize_t __wrap_readlink(const char *path, char *target, size_t size)
{
    const recording *current = current_recording();
    if (current == nullptr)
        return __real_readlink(path, target, size);

    const std::string executable = "/" + current->facts->process;
    const size_t length = std::min(size, executable.size());
    memcpy(target, executable.data(), length);
    return ssize_t(length);
}
}

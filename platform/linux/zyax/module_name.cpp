/*
 * Names of modules.
 *
 * A table that only grows: a name is appended, counted with a release store, and never changed or
 * moved again, so that readers need no lock and a name that was once answered stays valid for ever.
 * The newest entry of an id holds. Lookups are for log lines and dumps; a walk over some dozen
 * entries is quick enough for them.
 */
#include "zyax_local.h"

#include <algorithm>
#include <string.h>

using zyax::MAX_MODULE_NAMES;

static constexpr size_t NAME_SIZE = ZYAX_MODULE_NAME_SIZE;

struct module_name {
    uint32_t module_id;
    char name[NAME_SIZE];
};

static module_name s_names[MAX_MODULE_NAMES] = {{ZYAX_MODULE_ID, "zyax"}};
static uint32_t s_count = 1;                                   /* published with release */
static pthread_mutex_t s_append = PTHREAD_MUTEX_INITIALIZER; /* one writer at a time */

/* The name, or null. */
static const char *find(uint32_t module_id)
{
    for (uint32_t i = __atomic_load_n(&s_count, __ATOMIC_ACQUIRE); i-- > 0;) {
        if (s_names[i].module_id == module_id)
            return s_names[i].name;
    }
    return nullptr;
}

static bool append(uint32_t module_id, const char *name)
{
    const char *former = find(module_id);
    if (former != nullptr && strcmp(former, name) == 0)
        return true;
    if (s_count == MAX_MODULE_NAMES)
        return false;

    s_names[s_count].module_id = module_id;
    strncpy_s(s_names[s_count].name, NAME_SIZE, name, NAME_SIZE - 1);
    __atomic_store_n(&s_count, s_count + 1, __ATOMIC_RELEASE);
    return true;
}

uint32_t zyax::named_modules(uint32_t (&module_ids)[MAX_MODULE_NAMES])
{
    const uint32_t count = __atomic_load_n(&s_count, __ATOMIC_ACQUIRE);
    for (uint32_t i = 0; i < count; ++i)
        module_ids[i] = s_names[i].module_id;
    std::sort(module_ids, module_ids + count);
    return uint32_t(std::unique(module_ids, module_ids + count) - module_ids);
}

const char *zyax_pid_get_name(uint32_t module_id)
{
    const char *name = find(module_id);
    return name != nullptr ? name : "unknown";
}

int zyax_module_name_set(uint32_t module_id, const char *name)
{
    if (name == nullptr || name[0] == '\0' || strnlen(name, NAME_SIZE) == NAME_SIZE) {
        ZYAX_LOG(ZYLOG_ERROR, "Module %u cannot get this name: 1 to 31 characters are needed.",
                 module_id);
        return -1;
    }

    pthread_mutex_lock(&s_append);
    const bool appended = append(module_id, name);
    pthread_mutex_unlock(&s_append);
    if (!appended) {
        ZYAX_LOG(ZYLOG_ERROR, "Module %u cannot get a name: all %u are in use.", module_id,
                 MAX_MODULE_NAMES);
        return -1;
    }
    return 0;
}

int zyax_module_id_get(const char *name, uint32_t *module_id)
{
    if (name == nullptr || module_id == nullptr)
        return -1;

    for (uint32_t i = __atomic_load_n(&s_count, __ATOMIC_ACQUIRE); i-- > 0;) {
        const uint32_t found = s_names[i].module_id;
        /* A module that has got another name since has lost this one. */
        if (strcmp(s_names[i].name, name) == 0 && strcmp(find(found), name) == 0) {
            *module_id = found;
            return 0;
        }
    }
    return -1;
}

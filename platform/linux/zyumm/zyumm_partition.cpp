/*
 * Partitions: names with ids, in which memory pools are made.
 *
 * A partition owns nothing. A pool looks at it once, when it is made, and lives on when the
 * partition is deleted; so deleting is refused only for an id that does not exist. Ids count up
 * from 1 and are not used again before 32 bits have been gone through, so that a stale id is
 * noticed.
 *
 * One lock over the table. The three numbers of the creation are kept and not interpreted.
 */
#include <pthread.h>
#include <string.h>

#include "bounded.h"
#include "zyumm_seam.h"

using namespace zyumm;

enum : uint32_t { MOST_PARTITIONS = 1024 };

struct partition {
    uint32_t id; /* 0 = free entry */
    uint32_t words[3];
    char     name[32];
};

static partition       s_partitions[MOST_PARTITIONS];
static uint32_t        s_last_id;
static pthread_mutex_t s_partitions_lock = PTHREAD_MUTEX_INITIALIZER;

/* The entry with this id; id 0 finds a free one. Under the lock. */
static partition *find(uint32_t id)
{
    for (partition &entry : s_partitions) {
        if (entry.id == id)
            return &entry;
    }
    return nullptr;
}

static uint32_t next_id()
{
    do {
        s_last_id++;
    } while (s_last_id == 0 || find(s_last_id) != nullptr);
    return s_last_id;
}

bool zyumm::partition_exists(uint64_t id)
{
    if (id == 0 || id > UINT32_MAX)
        return false;
    pthread_mutex_lock(&s_partitions_lock);
    const bool exists = find(uint32_t(id)) != nullptr;
    pthread_mutex_unlock(&s_partitions_lock);
    return exists;
}

uint32_t zyumm_partition_create(uint32_t a, uint32_t b, uint32_t c, const char *name)
{
    uint32_t id = 0;
    pthread_mutex_lock(&s_partitions_lock);
    partition *entry = find(0);
    if (entry != nullptr) {
        id = next_id();
        *entry = {id, {a, b, c}, ""};
        strncpy_s(entry->name, sizeof entry->name, name != nullptr ? name : "",
                  sizeof entry->name - 1);
    }
    pthread_mutex_unlock(&s_partitions_lock);
    if (id == 0)
        ZYUMM_ERROR(__func__, "partition %s: all %u are taken.", text_of(name),
                    uint32_t(MOST_PARTITIONS));
    return id;
}

int zyumm_partition_delete(uint32_t id)
{
    if (id == 0)
        return 0;
    pthread_mutex_lock(&s_partitions_lock);
    partition *entry = find(id);
    if (entry != nullptr)
        entry->id = 0;
    pthread_mutex_unlock(&s_partitions_lock);
    if (entry != nullptr)
        return 0;
    ZYUMM_ERROR(__func__, "there is no partition %u.", id);
    return -1;
}

/*
 * Settings of the layer that other sources read.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

/* Nanoseconds; saturates. */
uint64_t leak_age_ns();

/* Objects of this size that a thread may cache. */
uint64_t cache_objects_for(uint64_t obj_size);

/* Threads that may cache pages; 0 = all. */
uint32_t page_cache_threads();

/* Slabs made from now on take huge pages. */
bool huge_pages_are_on();

/* Memory of objects of this size is left out of core dumps, whatever the slab's attributes say. */
bool is_kept_from_dumps(uint64_t obj_size);

/* No slab made from now on caches objects by thread: every object is watched. */
bool caches_are_off();

} // namespace zymm

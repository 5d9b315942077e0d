/*
 * What several commands write about a pool.
 */
#pragma once

#include <stdint.h>

#include "json_line.h"
#include "text_form.h"
#include "zymm_host.h"

namespace console
{

/* Name, handle, owner and object size. */
void write_pool_name(json_line *line, const zymm_slab_record &record);

/* All fields of a pool. */
void write_pool(json_line *line, const zymm_slab_record &record);

/* The array of its nodes. */
void write_nodes(json_line *line, uint64_t handle);

/* "node 0". */
small_text node_text(uint32_t number);

} // namespace console

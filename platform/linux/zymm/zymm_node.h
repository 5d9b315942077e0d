/*
 * NUMA nodes as the slabs see them: how many, which one the calling thread runs on, and memory
 * bound to one.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

enum : uint32_t { MOST_NODES = 64 };

/* Number of nodes, 1 to 64; fixed from its first call on. */
uint32_t node_count();

/* Node of the calling thread, below node_count(). */
uint32_t node_here();

/* The nodes are made up (zymm_topology_set). */
bool nodes_are_made_up();

/* Prefers the node's memory for the range, which is not yet backed. Nothing on one node. */
void node_bind(void *memory, uint64_t bytes, uint32_t node);

} // namespace zymm

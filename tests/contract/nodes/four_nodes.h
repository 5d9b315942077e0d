/*
 * A process on a machine with four NUMA nodes, made up before its first slab.
 *
 * Each thread lives on a node for good: threads are spread over the nodes in the order in which
 * they first ask, so that the tests of the core contract use several nodes without knowing it. A
 * test that cares starts its threads on a node of its choice.
 */
#pragma once

#include <cstdint>
#include <functional>

enum : uint32_t { NODES = 4 };

/* Runs `body` in a new thread on the node and waits for its end. */
void on_node(uint32_t node, const std::function<void()> &body);

/* For the first lines of a thread's body. */
void settle_on_node(uint32_t node);

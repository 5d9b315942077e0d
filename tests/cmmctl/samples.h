/*
 * Reports with names and figures that tests choose, and a process that tells them in JSON.
 */
#pragma once

#include "fake_console.h"
#include "sample_round.h"

pool_report    a_pool(const std::string &name, uint64_t used, uint64_t max);
request_report a_request(uint64_t place, uint64_t age_ms, const std::string &function);
holder_report  a_holder(const std::string &pool, uint64_t bytes, const std::string &function);

/* A node with two pools, two requests that wait, two holders, one NUMA node and two partitions. */
node_sample busy_node();

/* Answers of a process that has just this, one for each command of a full round. */
std::string     json_of_pools(const pools_report &report);
std::string     json_of_requests(const requests_report &report);
std::string     json_of_holders(const std::string &handle, const node_sample &sample);
scripted_answer told(const node_sample &sample, const std::string &line);

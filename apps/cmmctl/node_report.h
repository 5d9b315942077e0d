/*
 * What a process tells about its memory: the console's JSON answers as records.
 *
 * The fields are those of console/README.md, under the same names and in the same units; "none"
 * there is an empty optional here. An answer without one of them, or with another type, throws
 * bad_answer: a reader that fills in zeros would show an operator a healthy node.
 *
 * Owner: plain values; whoever has one.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct bad_answer : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct pool_report {
    std::string             name, handle, module;
    uint64_t                module_id = 0;
    bool                    is_class = false;
    uint64_t                object_bytes = 0, whole_bytes = 0;
    uint64_t                used = 0, total = 0;
    std::optional<uint64_t> max;
    uint64_t                min = 0, made = 0, high_water = 0, allocs = 0, frees = 0, leaked = 0;
    uint64_t                out_bytes = 0, leaked_bytes = 0, memory_bytes = 0;

    /* A size class of an allocator that never had an object; there are hundreds of them, and nobody
     * wants to see them. */
    bool is_idle_class() const { return is_class && made == 0; }
};

struct pools_report {
    uint64_t                 now_ms = 0, leak_age_s = 0, mapped_bytes = 0, control_bytes = 0;
    std::vector<pool_report> pools;
};

struct request_report {
    uint64_t                place = 0, age_ms = 0;
    std::optional<uint64_t> timeout_ms;
    uint64_t                pages_wanted = 0;
    bool                    is_served = false;
    std::string             kind, module, function;
    uint64_t                module_id = 0, line = 0;
};

struct requests_report {
    bool                        busy = false; /* only the count was read */
    uint64_t                    count = 0;
    std::vector<request_report> requests;
};

/* A call site that holds objects, and of which pool. */
struct holder_report {
    std::string pool, handle, module, function;
    uint64_t    module_id = 0, line = 0, objects = 0, bytes = 0, oldest_age_s = 0, leaked = 0;
};

struct node_report {
    uint64_t node = 0, used_bytes = 0, free_bytes = 0, cached_bytes = 0, memory_bytes = 0;
};

/* What of a pool lies on a node. */
struct pool_node_report {
    std::string pool, handle;
    uint64_t    node = 0, made = 0, used = 0, free = 0, cached = 0, memory_bytes = 0;
};

struct numa_report {
    std::vector<node_report>      nodes;
    std::vector<pool_node_report> pools;
};

/* A partition without a pool has nothing but its id. */
struct partition_report {
    uint64_t                   id = 0;
    std::optional<std::string> name, handle, module;
    std::optional<uint64_t>    object_bytes, used, total;
};

/* Each reads one answer to the command named in its error; they throw bad_answer. */
pools_report                  read_pools(const std::string &json);
requests_report               read_requests(const std::string &json);
std::vector<holder_report>    read_holders(const std::string &json);
numa_report                   read_numa(const std::string &json);
std::vector<partition_report> read_partitions(const std::string &json);
std::string                   read_process_name(const std::string &json); /* of the configuration */
uint64_t                      read_dropped_lines(const std::string &json); /* of the log's sinks */

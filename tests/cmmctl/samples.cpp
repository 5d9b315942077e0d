/*
 * The JSON is put together by the library that the client reads it with, but from the field names
 * that the commands' description gives, which stand here in words of their own.
 */
#include "samples.h"

#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

template <typename Value>
json or_null(const std::optional<Value> &value)
{
    return value ? json(*value) : json(nullptr);
}

json json_of(const pool_report &pool)
{
    return {{"name", pool.name},
            {"handle", pool.handle},
            {"module_id", pool.module_id},
            {"module", pool.module},
            {"is_class", pool.is_class},
            {"object_bytes", pool.object_bytes},
            {"whole_bytes", pool.whole_bytes},
            {"used", pool.used},
            {"total", pool.total},
            {"max", or_null(pool.max)},
            {"min", pool.min},
            {"made", pool.made},
            {"high_water", pool.high_water},
            {"allocs", pool.allocs},
            {"frees", pool.frees},
            {"leaked", pool.leaked},
            {"out_bytes", pool.out_bytes},
            {"leaked_bytes", pool.leaked_bytes},
            {"memory_bytes", pool.memory_bytes}};
}

json json_of(const request_report &request)
{
    return {{"place", request.place},       {"age_ms", request.age_ms},
            {"timeout_ms", or_null(request.timeout_ms)},
            {"pages_wanted", request.pages_wanted},
            {"is_served", request.is_served}, {"kind", request.kind},
            {"module_id", request.module_id}, {"module", request.module},
            {"function", request.function},   {"line", request.line}};
}

json json_of(const holder_report &holder)
{
    return {{"module_id", holder.module_id}, {"module", holder.module},
            {"function", holder.function},   {"line", holder.line},
            {"objects", holder.objects},     {"bytes", holder.bytes},
            {"oldest_age_s", holder.oldest_age_s}, {"leaked", holder.leaked}};
}

json json_of(const pool_node_report &node)
{
    return {{"node", node.node}, {"made", node.made},     {"used", node.used},
            {"free", node.free}, {"cached", node.cached}, {"pieces", 1},
            {"memory_bytes", node.memory_bytes}};
}

json json_of(const partition_report &partition)
{
    return {{"id", partition.id},
            {"name", or_null(partition.name)},
            {"handle", or_null(partition.handle)},
            {"module_id", nullptr},
            {"module", or_null(partition.module)},
            {"object_bytes", or_null(partition.object_bytes)},
            {"used", or_null(partition.used)},
            {"total", or_null(partition.total)}};
}

std::string json_of_numa(const numa_report &report)
{
    json object = {{"command", "umm show numa"}, {"now_ms", 1}, {"nodes", json::array()},
                   {"pools", json::array()}};

    for (const node_report &node : report.nodes)
        object["nodes"].push_back({{"node", node.node},
                                   {"used_bytes", node.used_bytes},
                                   {"free_bytes", node.free_bytes},
                                   {"cached_bytes", node.cached_bytes},
                                   {"memory_bytes", node.memory_bytes}});
    for (const pool_node_report &node : report.pools)
        object["pools"].push_back({{"name", node.pool},
                                   {"handle", node.handle},
                                   {"object_bytes", 1},
                                   {"nodes", json::array({json_of(node)})}});
    return object.dump();
}

std::string json_of_partitions(const std::vector<partition_report> &partitions)
{
    json object = {{"command", "umm show partitions"}, {"now_ms", 1},
                   {"count", partitions.size()}, {"partitions", json::array()}};

    for (const partition_report &partition : partitions)
        object["partitions"].push_back(json_of(partition));
    return object.dump();
}

} // namespace

pool_report a_pool(const std::string &name, uint64_t used, uint64_t max)
{
    pool_report pool;

    pool.name = name;
    pool.handle = "0x" + name;
    pool.module = "cmm";
    pool.module_id = 386;
    pool.object_bytes = 1024;
    pool.whole_bytes = 1024;
    pool.used = used;
    pool.total = max;
    pool.max = max;
    pool.made = max;
    pool.high_water = used;
    pool.allocs = used + 1000;
    pool.frees = 1000;
    pool.out_bytes = used * 1024;
    pool.memory_bytes = max * 1024;
    return pool;
}

request_report a_request(uint64_t place, uint64_t age_ms, const std::string &function)
{
    request_report request;

    request.place = place;
    request.age_ms = age_ms;
    request.timeout_ms = 30000;
    request.pages_wanted = 16;
    request.kind = "sgl";
    request.module = "writer";
    request.module_id = 77;
    request.function = function;
    request.line = 120;
    return request;
}

holder_report a_holder(const std::string &pool, uint64_t bytes, const std::string &function)
{
    holder_report holder;

    holder.pool = pool;
    holder.handle = "0x" + pool;
    holder.module = "writer";
    holder.module_id = 77;
    holder.function = function;
    holder.line = 42;
    holder.objects = bytes / 1024;
    holder.bytes = bytes;
    holder.oldest_age_s = 7;
    return holder;
}

node_sample busy_node()
{
    node_sample sample;

    sample.process = "cmm_node";
    sample.pools.now_ms = 5000;
    sample.pools.leak_age_s = 600;
    sample.pools.mapped_bytes = 8388608;
    sample.pools.control_bytes = 65536;
    sample.pools.pools = {a_pool("PAGE PARTITION", 510, 512), a_pool("SGL_PARTITION", 24, 1024)};
    sample.requests.count = 2;
    sample.requests.requests = {a_request(1, 12345, "read_ahead"), a_request(2, 900, "protect")};
    sample.holders = {a_holder("PAGE PARTITION", 524288, "page_cache"),
                      a_holder("PAGE PARTITION", 2048, "protect")};
    sample.numa.nodes = {{0, 1000, 2000, 300, 4096}};
    sample.numa.pools = {{"PAGE PARTITION", "0xPAGE PARTITION", 0, 512, 510, 2, 1, 4096}};
    sample.partitions = {{1, "structs", "0x9", "cmm", 64, 3, 10}, {2, {}, {}, {}, {}, {}, {}}};
    sample.dropped_lines = 4;
    return sample;
}

std::string json_of_pools(const pools_report &report)
{
    json object = {{"command", "umm show pools"},
                   {"now_ms", report.now_ms},
                   {"leak_age_s", report.leak_age_s},
                   {"mapped_bytes", report.mapped_bytes},
                   {"control_bytes", report.control_bytes},
                   {"pools", json::array()}};

    for (const pool_report &pool : report.pools)
        object["pools"].push_back(json_of(pool));
    return object.dump();
}

std::string json_of_requests(const requests_report &report)
{
    json object = {{"command", "umm show requests all"},
                   {"now_ms", 1},
                   {"busy", report.busy},
                   {"count", report.count},
                   {"requests", json::array()}};

    for (const request_report &request : report.requests)
        object["requests"].push_back(json_of(request));
    return object.dump();
}

std::string json_of_holders(const std::string &handle, const node_sample &sample)
{
    json sites = json::array();
    std::string name;

    for (const holder_report &holder : sample.holders) {
        if (holder.handle != handle)
            continue;
        name = holder.pool;
        sites.push_back(json_of(holder));
    }
    return json{{"command", "umm show holders"},
                {"now_ms", 1},
                {"leak_age_s", 600},
                {"pools", json::array({{{"name", name}, {"handle", handle}, {"sites", sites}}})}}
        .dump();
}

scripted_answer told(const node_sample &sample, const std::string &line)
{
    const std::string holders = "--json umm show holders ";

    if (line == "--json umm show config")
        return says(json{{"command", "umm show config"}, {"process", sample.process}}.dump());
    if (line == "--json umm show pools")
        return says(json_of_pools(sample.pools));
    if (line == "--json umm show requests all")
        return says(json_of_requests(sample.requests));
    if (line.compare(0, holders.size(), holders) == 0)
        return says(json_of_holders(line.substr(holders.size()), sample));
    if (line == "--json umm show numa")
        return says(json_of_numa(sample.numa));
    if (line == "--json umm show partitions")
        return says(json_of_partitions(sample.partitions));
    if (line == "--json log sinks")
        return says(json{{"command", "log sinks"}, {"dropped", sample.dropped_lines}}.dump());
    return says_error("unknown: " + line);
}

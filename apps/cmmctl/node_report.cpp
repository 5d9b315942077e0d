/*
 * One function a record; `fields` takes a value out of an object by its C++ type and says which one
 * was missing or wrong.
 */
#include "node_report.h"

#include <nlohmann/json.hpp>

#include "printable.h"

using nlohmann::json;

namespace {

/* An object of an answer; the command it answers is for messages. */
class fields
{
public:
    fields(const json &object, const char *command) : object_(object), command_(command)
    {
        if (!object.is_object())
            throw bad_answer(std::string(command) + ": no JSON object came");
    }

    void get(const char *name, uint64_t &value) const
    {
        const json &found = find(name);
        if (!found.is_number_unsigned())
            wrong(name, "is no number");
        value = found.get<uint64_t>();
    }

    void get(const char *name, bool &value) const
    {
        const json &found = find(name);
        if (!found.is_boolean())
            wrong(name, "is neither true nor false");
        value = found.get<bool>();
    }

    void get(const char *name, std::string &value) const
    {
        const json &found = find(name);
        if (!found.is_string())
            wrong(name, "is no text");
        value = found.get<std::string>();
    }

    template <typename Value>
    void get(const char *name, std::optional<Value> &value) const
    {
        value.reset();
        if (!find(name).is_null())
            get(name, value.emplace());
    }

    /* Calls `read(fields)` for each object of a list. */
    template <typename Read>
    void each(const char *name, Read read) const
    {
        const json &list = find(name);
        if (!list.is_array())
            wrong(name, "is no list");
        for (const json &one : list)
            read(fields(one, command_));
    }

private:
    const json &find(const char *name) const
    {
        const auto found = object_.find(name);
        if (found == object_.end())
            wrong(name, "is missing");
        return *found;
    }

    [[noreturn]] void wrong(const char *name, const char *what) const
    {
        throw bad_answer(std::string(command_) + ": \"" + name + "\" " + what);
    }

    const json &object_;
    const char *command_;
};

json parse(const std::string &text, const char *command)
{
    json object = json::parse(text, nullptr, false);

    if (object.is_discarded())
        throw bad_answer(std::string(command) + ": no JSON came: " +
                         printable(text.substr(0, 60)));
    return object;
}

pool_report read_pool(const fields &from)
{
    pool_report pool;

    from.get("name", pool.name);
    from.get("handle", pool.handle);
    from.get("module", pool.module);
    from.get("module_id", pool.module_id);
    from.get("is_class", pool.is_class);
    from.get("object_bytes", pool.object_bytes);
    from.get("whole_bytes", pool.whole_bytes);
    from.get("used", pool.used);
    from.get("total", pool.total);
    from.get("max", pool.max);
    from.get("min", pool.min);
    from.get("made", pool.made);
    from.get("high_water", pool.high_water);
    from.get("allocs", pool.allocs);
    from.get("frees", pool.frees);
    from.get("leaked", pool.leaked);
    from.get("out_bytes", pool.out_bytes);
    from.get("leaked_bytes", pool.leaked_bytes);
    from.get("memory_bytes", pool.memory_bytes);
    return pool;
}

request_report read_request(const fields &from)
{
    request_report request;

    from.get("place", request.place);
    from.get("age_ms", request.age_ms);
    from.get("timeout_ms", request.timeout_ms);
    from.get("pages_wanted", request.pages_wanted);
    from.get("is_served", request.is_served);
    from.get("kind", request.kind);
    from.get("module", request.module);
    from.get("module_id", request.module_id);
    from.get("function", request.function);
    from.get("line", request.line);
    return request;
}

holder_report read_site(const fields &from, const fields &pool)
{
    holder_report holder;

    pool.get("name", holder.pool);
    pool.get("handle", holder.handle);
    from.get("module", holder.module);
    from.get("module_id", holder.module_id);
    from.get("function", holder.function);
    from.get("line", holder.line);
    from.get("objects", holder.objects);
    from.get("bytes", holder.bytes);
    from.get("oldest_age_s", holder.oldest_age_s);
    from.get("leaked", holder.leaked);
    return holder;
}

node_report read_node(const fields &from)
{
    node_report node;

    from.get("node", node.node);
    from.get("used_bytes", node.used_bytes);
    from.get("free_bytes", node.free_bytes);
    from.get("cached_bytes", node.cached_bytes);
    from.get("memory_bytes", node.memory_bytes);
    return node;
}

pool_node_report read_pool_node(const fields &from, const fields &pool)
{
    pool_node_report node;

    pool.get("name", node.pool);
    pool.get("handle", node.handle);
    from.get("node", node.node);
    from.get("made", node.made);
    from.get("used", node.used);
    from.get("free", node.free);
    from.get("cached", node.cached);
    from.get("memory_bytes", node.memory_bytes);
    return node;
}

partition_report read_partition(const fields &from)
{
    partition_report partition;

    from.get("id", partition.id);
    from.get("name", partition.name);
    from.get("handle", partition.handle);
    from.get("module", partition.module);
    from.get("object_bytes", partition.object_bytes);
    from.get("used", partition.used);
    from.get("total", partition.total);
    return partition;
}

} // namespace

pools_report read_pools(const std::string &text)
{
    const json object = parse(text, "umm show pools");
    const fields from(object, "umm show pools");
    pools_report report;

    from.get("now_ms", report.now_ms);
    from.get("leak_age_s", report.leak_age_s);
    from.get("mapped_bytes", report.mapped_bytes);
    from.get("control_bytes", report.control_bytes);
    from.each("pools", [&](const fields &pool) { report.pools.push_back(read_pool(pool)); });
    return report;
}

requests_report read_requests(const std::string &text)
{
    const json object = parse(text, "umm show requests");
    const fields from(object, "umm show requests");
    requests_report report;

    from.get("busy", report.busy);
    from.get("count", report.count);
    from.each("requests",
              [&](const fields &request) { report.requests.push_back(read_request(request)); });
    return report;
}

std::vector<holder_report> read_holders(const std::string &text)
{
    const json object = parse(text, "umm show holders");
    std::vector<holder_report> holders;

    fields(object, "umm show holders").each("pools", [&](const fields &pool) {
        pool.each("sites", [&](const fields &site) { holders.push_back(read_site(site, pool)); });
    });
    return holders;
}

numa_report read_numa(const std::string &text)
{
    const json object = parse(text, "umm show numa");
    const fields from(object, "umm show numa");
    numa_report report;

    from.each("nodes", [&](const fields &node) { report.nodes.push_back(read_node(node)); });
    from.each("pools", [&](const fields &pool) {
        pool.each("nodes",
                  [&](const fields &node) { report.pools.push_back(read_pool_node(node, pool)); });
    });
    return report;
}

std::vector<partition_report> read_partitions(const std::string &text)
{
    const json object = parse(text, "umm show partitions");
    std::vector<partition_report> partitions;

    fields(object, "umm show partitions").each("partitions", [&](const fields &partition) {
        partitions.push_back(read_partition(partition));
    });
    return partitions;
}

std::string read_process_name(const std::string &text)
{
    const json object = parse(text, "umm show config");
    std::string name;

    fields(object, "umm show config").get("process", name);
    return name;
}

uint64_t read_dropped_lines(const std::string &text)
{
    const json object = parse(text, "log sinks");
    uint64_t dropped = 0;

    fields(object, "log sinks").get("dropped", dropped);
    return dropped;
}

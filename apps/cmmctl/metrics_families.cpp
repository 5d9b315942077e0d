/*
 * Which figure is which family: tables of name, unit, help and the field that it shows.
 *
 * Labels: a pool is told by name and handle, as names are not unique; a call site by module id,
 * module, function and line. Call sites that look alike in all of these are one series: sums, and
 * the oldest. Size classes that never had an object are left out.
 */
#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "metrics.h"

namespace {

template <typename Record>
struct figure {
    const char *name, *unit, *help;
    uint64_t Record::*field;
    metric_type type = metric_type::GAUGE;
};

const figure<pool_report> POOL_FIGURES[] = {
    {"cmm_pool_object_bytes", "bytes", "Size of one object of the pool.",
     &pool_report::object_bytes},
    {"cmm_pool_used_objects", "", "Objects held by callers.", &pool_report::used},
    {"cmm_pool_capacity_objects", "",
     "Objects that the pool can have; without a limit those made so far.", &pool_report::total},
    {"cmm_pool_reserved_objects", "", "Objects backed by memory at creation.", &pool_report::min},
    {"cmm_pool_made_objects", "",
     "Objects that exist, out or free: an upper bound of the most ever out at once.",
     &pool_report::made},
    {"cmm_pool_high_water_objects", "",
     "Objects that were certainly out at once: a lower bound of the most ever out.",
     &pool_report::high_water},
    {"cmm_pool_allocations", "", "Objects allocated.", &pool_report::allocs, metric_type::COUNTER},
    {"cmm_pool_frees", "", "Objects freed.", &pool_report::frees, metric_type::COUNTER},
    {"cmm_pool_leaked_objects", "", "Objects out for at least the leak age.",
     &pool_report::leaked},
    {"cmm_pool_out_bytes", "bytes", "Bytes of objects held by callers.", &pool_report::out_bytes},
    {"cmm_pool_leaked_bytes", "bytes", "Bytes of objects out for at least the leak age.",
     &pool_report::leaked_bytes},
    {"cmm_pool_memory_bytes", "bytes", "Memory that the pool has taken for objects.",
     &pool_report::memory_bytes},
};

const figure<node_report> NODE_FIGURES[] = {
    {"cmm_numa_used_bytes", "bytes", "Objects on the NUMA node held by callers.",
     &node_report::used_bytes},
    {"cmm_numa_free_bytes", "bytes", "Objects on the NUMA node that are free.",
     &node_report::free_bytes},
    {"cmm_numa_cached_bytes", "bytes", "Free objects on the NUMA node in threads' caches.",
     &node_report::cached_bytes},
    {"cmm_numa_memory_bytes", "bytes", "Memory on the NUMA node taken for objects.",
     &node_report::memory_bytes},
};

const figure<pool_node_report> POOL_NODE_FIGURES[] = {
    {"cmm_pool_numa_made_objects", "", "Objects of the pool that exist on the NUMA node.",
     &pool_node_report::made},
    {"cmm_pool_numa_used_objects", "", "Objects of the pool on the NUMA node held by callers.",
     &pool_node_report::used},
    {"cmm_pool_numa_free_objects", "", "Objects of the pool on the NUMA node that are free.",
     &pool_node_report::free},
    {"cmm_pool_numa_cached_objects", "",
     "Free objects of the pool on the NUMA node in threads' caches.", &pool_node_report::cached},
    {"cmm_pool_numa_memory_bytes", "bytes", "Memory of the pool on the NUMA node.",
     &pool_node_report::memory_bytes},
};

const figure<holder_report> HOLDER_FIGURES[] = {
    {"cmm_holder_objects", "", "Objects that a call site holds.", &holder_report::objects},
    {"cmm_holder_bytes", "bytes", "Bytes that a call site holds.", &holder_report::bytes},
    {"cmm_holder_leaked_objects", "",
     "Objects that a call site has held for at least the leak age.", &holder_report::leaked},
    {"cmm_holder_oldest_age_seconds", "seconds", "Age of the oldest object that a call site holds.",
     &holder_report::oldest_age_s},
};

/* The requests of one call site. */
struct waiting_site {
    uint64_t module_id = 0, line = 0, requests = 0, pages = 0, oldest_ms = 0;
    std::string module, function;
};

metric_labels pool_labels(const std::string &pool, const std::string &handle)
{
    return {{"pool", pool}, {"handle", handle}};
}

metric_labels site_labels(uint64_t module_id, const std::string &module,
                          const std::string &function, uint64_t line)
{
    return {{"module_id", std::to_string(module_id)},
            {"module", module},
            {"function", function},
            {"line", std::to_string(line)}};
}

metric_labels labels_of(const pool_report &pool)
{
    metric_labels labels = pool_labels(pool.name, pool.handle);
    labels.emplace_back("module", pool.module);
    return labels;
}

metric_labels labels_of(const node_report &node)
{
    return {{"node", std::to_string(node.node)}};
}

metric_labels labels_of(const pool_node_report &node)
{
    metric_labels labels = pool_labels(node.pool, node.handle);
    labels.emplace_back("node", std::to_string(node.node));
    return labels;
}

metric_labels labels_of(const holder_report &holder)
{
    metric_labels labels = pool_labels(holder.pool, holder.handle);
    const metric_labels site =
        site_labels(holder.module_id, holder.module, holder.function, holder.line);
    labels.insert(labels.end(), site.begin(), site.end());
    return labels;
}

template <typename Record, size_t Count>
void add_figures(const figure<Record> (&figures)[Count], const std::vector<Record> &records,
                 std::vector<metric_family> &families)
{
    for (const figure<Record> &one : figures) {
        metric_family family = {one.name, one.type, one.unit, one.help, {}};
        for (const Record &record : records)
            family.samples.push_back({labels_of(record), std::to_string(record.*one.field)});
        families.push_back(std::move(family));
    }
}

metric_family single(const char *name, const char *unit, const char *help, std::string value,
                     metric_type type = metric_type::GAUGE)
{
    return {name, type, unit, help, {{{}, std::move(value)}}};
}

std::vector<holder_report> merged(const std::vector<holder_report> &holders)
{
    std::map<metric_labels, holder_report> sites;
    std::vector<holder_report> all;

    for (const holder_report &holder : holders) {
        const auto [site, is_new] = sites.try_emplace(labels_of(holder), holder);
        if (is_new)
            continue;
        site->second.objects += holder.objects;
        site->second.bytes += holder.bytes;
        site->second.leaked += holder.leaked;
        site->second.oldest_age_s = std::max(site->second.oldest_age_s, holder.oldest_age_s);
    }
    for (auto &[labels, holder] : sites)
        all.push_back(std::move(holder));
    return all;
}

std::vector<waiting_site> waiting_sites(const std::vector<request_report> &requests)
{
    std::map<metric_labels, waiting_site> sites;
    std::vector<waiting_site> all;

    for (const request_report &one : requests) {
        waiting_site &site =
            sites[site_labels(one.module_id, one.module, one.function, one.line)];
        site.module_id = one.module_id;
        site.line = one.line;
        site.module = one.module;
        site.function = one.function;
        site.requests += 1;
        site.pages += one.pages_wanted;
        site.oldest_ms = std::max(site.oldest_ms, one.age_ms);
    }
    for (auto &[labels, site] : sites)
        all.push_back(std::move(site));
    return all;
}

void add_requests(const requests_report &report, std::vector<metric_family> &families)
{
    metric_family requests = {"cmm_waiting_requests", metric_type::GAUGE, "",
                              "Requests for pages of a call site that wait.", {}};
    metric_family pages = {"cmm_waiting_pages", metric_type::GAUGE, "",
                           "Pages that the waiting requests of a call site ask for.", {}};
    metric_family oldest = {"cmm_waiting_oldest_age_seconds", metric_type::GAUGE, "seconds",
                            "For how long the oldest waiting request of a call site has waited.",
                            {}};

    for (const waiting_site &site : waiting_sites(report.requests)) {
        const metric_labels labels =
            site_labels(site.module_id, site.module, site.function, site.line);
        requests.samples.push_back({labels, std::to_string(site.requests)});
        pages.samples.push_back({labels, std::to_string(site.pages)});
        oldest.samples.push_back({labels, thousandths(site.oldest_ms)});
    }
    families.push_back(single("cmm_queue_requests", "", "Requests for pages that wait.",
                              std::to_string(report.count)));
    families.push_back(single("cmm_queue_busy", "",
                              "1 when the queue was locked and its requests could not be told.",
                              report.busy ? "1" : "0"));
    families.insert(families.end(), {requests, pages, oldest});
}

metric_labels labels_of(const partition_report &partition)
{
    return {{"partition", std::to_string(partition.id)},
            {"pool", partition.name.value_or("")},
            {"handle", partition.handle.value_or("")},
            {"module", partition.module.value_or("")}};
}

void add_partitions(const std::vector<partition_report> &partitions,
                    std::vector<metric_family> &families)
{
    static constexpr struct {
        const char *name, *unit, *help;
        std::optional<uint64_t> partition_report::*field;
    } FIGURES[] = {
        {"cmm_partition_object_bytes", "bytes", "Size of one object of the partition's pool.",
         &partition_report::object_bytes},
        {"cmm_partition_used_objects", "", "Objects of the partition's pool held by callers.",
         &partition_report::used},
        {"cmm_partition_capacity_objects", "", "Objects that the partition's pool can have.",
         &partition_report::total},
    };

    families.push_back(single("cmm_partitions", "", "Structure partitions in use.",
                              std::to_string(partitions.size())));
    for (const auto &one : FIGURES) {
        metric_family family = {one.name, metric_type::GAUGE, one.unit, one.help, {}};
        for (const partition_report &partition : partitions)
            if (partition.*one.field)
                family.samples.push_back(
                    {labels_of(partition), std::to_string(*(partition.*one.field))});
        families.push_back(std::move(family));
    }
}

metric_family limits(const std::vector<pool_report> &pools)
{
    metric_family family = {"cmm_pool_max_objects", metric_type::GAUGE, "",
                            "Objects at most; a pool without a limit is not listed.", {}};

    for (const pool_report &pool : pools)
        if (pool.max)
            family.samples.push_back({labels_of(pool), std::to_string(*pool.max)});
    return family;
}

std::vector<pool_report> without_idle(const std::vector<pool_report> &pools)
{
    std::vector<pool_report> kept;

    std::copy_if(pools.begin(), pools.end(), std::back_inserter(kept),
                 [](const pool_report &pool) { return !pool.is_idle_class(); });
    return kept;
}

std::vector<pool_node_report> without_idle(const std::vector<pool_node_report> &nodes,
                                           const std::vector<pool_report> &pools)
{
    std::vector<pool_node_report> kept;
    std::set<std::string> idle;

    for (const pool_report &pool : pools)
        if (pool.is_idle_class())
            idle.insert(pool.handle);
    std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(kept),
                 [&](const pool_node_report &node) { return idle.count(node.handle) == 0; });
    return kept;
}

metric_family process(const node_sample &sample, pid_t pid)
{
    metric_labels labels = {{"process", sample.process}};

    if (pid != 0)
        labels.emplace_back("pid", std::to_string(pid));
    return {"cmm_process", metric_type::INFO, "", "The process told about.", {{labels, "1"}}};
}

} // namespace

std::vector<metric_family> families_of(const node_sample &sample, pid_t pid)
{
    const std::vector<pool_report> pools = without_idle(sample.pools.pools);
    std::vector<metric_family> families = {process(sample, pid)};

    families.push_back(single("cmm_mapped_bytes", "bytes",
                              "Address space for objects and their records, of all pools.",
                              std::to_string(sample.pools.mapped_bytes)));
    families.push_back(single("cmm_control_bytes", "bytes", "Memory for pools' own records.",
                              std::to_string(sample.pools.control_bytes)));
    families.push_back(single("cmm_leak_age_seconds", "seconds",
                              "Objects out for at least so long count as leaked.",
                              std::to_string(sample.pools.leak_age_s)));
    add_figures(POOL_FIGURES, pools, families);
    families.push_back(limits(pools));
    add_figures(HOLDER_FIGURES, merged(sample.holders), families);
    add_requests(sample.requests, families);
    add_figures(NODE_FIGURES, sample.numa.nodes, families);
    add_figures(POOL_NODE_FIGURES, without_idle(sample.numa.pools, sample.pools.pools), families);
    add_partitions(sample.partitions, families);
    families.push_back(single("cmm_log_dropped_lines", "", "Log lines that were not written.",
                              std::to_string(sample.dropped_lines), metric_type::COUNTER));
    return families;
}

/*
 * Figures as OpenMetrics text, which any collector of metrics reads:
 *
 *     # TYPE cmm_pool_memory_bytes gauge
 *     # UNIT cmm_pool_memory_bytes bytes
 *     # HELP cmm_pool_memory_bytes Memory that the pool has taken.
 *     cmm_pool_memory_bytes{pool="PAGE PARTITION"} 4194304
 *     # EOF
 *
 * All samples of a family stand together. What the format asks of names and labels is the caller's
 * to keep: a family's name ends in its unit, no two samples of a family have the same labels.
 *
 * Threads: values; any.
 */
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

enum class metric_type { GAUGE, COUNTER, INFO };

using metric_labels = std::vector<std::pair<std::string, std::string>>;

struct metric_sample {
    metric_labels labels; /* values of any content */
    std::string   value;  /* a number as text */
};

struct metric_family {
    std::string                name; /* without the endings "_total" and "_info" of its samples */
    metric_type                type = metric_type::GAUGE;
    std::string                unit; /* empty = none */
    std::string                help;
    std::vector<metric_sample> samples;
};

std::string openmetrics_text(const std::vector<metric_family> &families);

/* Whole thousandths as a number with a point: 1500 is "1.500". */
std::string thousandths(uint64_t value);

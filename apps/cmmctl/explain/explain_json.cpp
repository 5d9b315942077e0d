/*
 * The explanation as JSON: one object on one line, ASCII; README.md has the schema.
 *
 * What is no UTF-8 in the texts of a file becomes the replacement character.
 */
#include "description.h"

#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json;

static const char *origin_name(value_origin origin)
{
    switch (origin) {
    case ORIGIN_ATTRIBUTE:
        return "attribute";
    case ORIGIN_ADJUSTED:
        return "adjusted";
    case ORIGIN_NUMA:
        return "numa";
    case ORIGIN_DEFAULT:
        return "default";
    case ORIGIN_ELEMENT_DEFAULT:
        return "element_default";
    case ORIGIN_UNCHANGED:
        return "unchanged";
    default:
        return "not_read";
    }
}

template <typename T>
static json value_or_null(const std::optional<T> &value)
{
    return value ? json(*value) : json(nullptr);
}

static json memory_object(const memory_facts &memory)
{
    return {{"source", memory.source},
            {"bytes", memory.bytes},
            {"used_bytes", memory.used_bytes},
            {"measured_mib", memory.measured_mib},
            {"listed_mib", memory.listed_mib},
            {"chosen_mib", memory.chosen_mib},
            {"said", memory.said}};
}

static json section_object(const section_facts &section)
{
    return {{"found", section.is_found},
            {"index", section.index},
            {"count", section.count},
            {"said", section.said}};
}

static json entry_object(const entry_facts &entry)
{
    return {{"found", entry.is_found},
            {"default", entry.is_default},
            {"name", entry.name},
            {"said", entry.said}};
}

static json value_object(const value_line &line)
{
    return {{"name", line.name},
            {"value", line.value},
            {"unit", line.unit},
            {"origin", origin_name(line.origin)},
            {"element", line.element},
            {"attribute", line.attribute},
            {"text", value_or_null(line.text)},
            {"number", value_or_null(line.number)},
            {"said", line.said}};
}

static json pool_object(const pool_line &pool)
{
    return {{"name", pool.name},
            {"maker", pool.maker},
            {"object_bytes", pool.object_bytes},
            {"whole_bytes", pool.whole_bytes},
            {"min", pool.min},
            {"max", pool.max},
            {"reserve_bytes", pool.reserve_bytes},
            {"cost_bytes", pool.cost_bytes},
            {"note", pool.note}};
}

static json line_object(const logged_line &line)
{
    return {{"module_id", line.module_id}, {"level", line.level}, {"text", line.text}};
}

static json finding_object(const finding &found)
{
    return {{"severity", found.severity == FINDING_UNUSABLE ? "unusable" : "warning"},
            {"code", found.code},
            {"text", found.text}};
}

template <typename T>
static json array_of(const std::vector<T> &records, json (*object)(const T &))
{
    json array = json::array();
    for (const T &record : records)
        array.push_back(object(record));
    return array;
}

void print_json(const description &told, std::ostream &out)
{
    const json all = {{"command", "explain"},
                      {"file", told.file},
                      {"process", told.process},
                      {"result", result_name(told.result)},
                      {"start_fails", told.start_status != 0},
                      {"memory", memory_object(told.memory)},
                      {"section", section_object(told.section)},
                      {"entry", entry_object(told.entry)},
                      {"numa_nodes", told.numa_nodes},
                      {"values", array_of(told.values, value_object)},
                      {"cfg_path", told.cfg_path},
                      {"cfg_path_said", told.cfg_path_said},
                      {"pools", array_of(told.pools, pool_object)},
                      {"log", array_of(told.log, line_object)},
                      {"findings", array_of(told.findings, finding_object)}};
    out << all.dump(-1, ' ', true, json::error_handler_t::replace) << '\n';
}

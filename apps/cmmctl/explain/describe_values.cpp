/*
 * Every value of the configuration record with its origin.
 *
 * The value is always the one in the record, or the one that the slab layer was handed. The origin
 * is what the trace of the start tells about it: whether its element was looked for, whether it was
 * found, which of its attributes were asked for, and what the answers were.
 *
 *     element not looked for                 not read
 *     looked for, not found                  the default of an element that is absent
 *     found, refused for another attribute   unchanged
 *     found, attribute a number              the attribute; adjusted if the record differs
 *     found, attribute no number             the default of the attribute
 */
#include "description.h"
#include "reading.h"

/* One value before its origin is known. */
struct wanted_value {
    const char *name;
    uint64_t value;
    const char *unit;
    const char *element;
    const char *attribute;
};

static std::string tag(const std::string &element)
{
    return "<" + element + ">";
}

/* The entry's element of that name; empty when the reader did not look for it, null when there is
 * none. The reader looks behind the entry's first child. */
static std::optional<mxml_node_t *> looked_up(const reading &read, const char *element)
{
    if (read.process == nullptr)
        return {};

    mxml_node_t *first = zyax_xml_getfirstchild(read.process);
    for (const element_search &search : read.trace.searches) {
        if (first != nullptr && search.start == first && search.name == element)
            return search.found;
    }
    return {};
}

static const attribute_reading *asked(const reading &read, mxml_node_t *element,
                                      const std::string &name)
{
    for (const attribute_reading &answer : read.trace.attributes) {
        if (answer.element == element && answer.name == name)
            return &answer;
    }
    return nullptr;
}

static bool is_number(const reading &read, mxml_node_t *element, const char *name)
{
    const attribute_reading *found = asked(read, element, name);
    return found != nullptr && found->number.has_value();
}

static std::string why_no_number(const attribute_reading *found, const std::string &element,
                                 const std::string &attribute)
{
    if (found == nullptr || !found->text)
        return tag(element) + " has no " + attribute;
    return attribute + " of " + tag(element) + " is no number: \"" + *found->text + "\"";
}

static value_line start_line(const wanted_value &wanted)
{
    value_line line = {};
    line.name = wanted.name;
    line.value = wanted.value;
    line.unit = wanted.unit;
    line.element = wanted.element;
    line.attribute = wanted.attribute;
    return line;
}

static void say(value_line *line, value_origin origin, const std::string &said)
{
    line->origin = origin;
    line->said = said;
}

/* False when the element is not there to be asked, which the line then says. */
static bool has_element(const reading &read, value_line *line, mxml_node_t **element)
{
    const std::optional<mxml_node_t *> found = looked_up(read, line->element.c_str());
    if (!found) {
        say(line, ORIGIN_NOT_READ, tag(line->element) + " is not read, so it is as at load");
        return false;
    }
    if (*found == nullptr) {
        say(line, ORIGIN_ELEMENT_DEFAULT, "default, there is no " + tag(line->element));
        return false;
    }
    *element = *found;
    return true;
}

static void say_attribute(value_line *line, const attribute_reading &found)
{
    const std::string place = found.name + " of " + tag(line->element);

    line->attribute = found.name;
    line->text = found.text;
    line->number = found.number;
    if (*found.number == line->value)
        say(line, ORIGIN_ATTRIBUTE, place);
    else if (uint32_t(*found.number) == line->value)
        say(line, ORIGIN_ATTRIBUTE, place + ", the low 32 bits of " + grouped(*found.number));
    else
        say(line, ORIGIN_ADJUSTED,
            place + " says " + grouped(*found.number) + ", adjusted to the bound");
}

/* A value whose attribute may be absent. */
static value_line optional_value(const reading &read, const wanted_value &wanted)
{
    value_line line = start_line(wanted);
    mxml_node_t *element = nullptr;
    if (!has_element(read, &line, &element))
        return line;

    const attribute_reading *found = asked(read, element, line.attribute);
    if (found != nullptr && found->number) {
        say_attribute(&line, *found);
        return line;
    }
    if (found != nullptr)
        line.text = found->text;
    say(&line, ORIGIN_DEFAULT, "default, " + why_no_number(found, line.element, line.attribute));
    return line;
}

/* The transport: the one value whose bound refuses, and the one that is set without an entry. */
static value_line transport_value(const reading &read)
{
    value_line line =
        start_line({"rdma_flag", read.config.rdma_flag, read.config.rdma_flag == 1 ? "RDMA" : "TCP",
                    "rdma_flag", "flag"});
    mxml_node_t *element = nullptr;
    if (read.umm != nullptr && read.process == nullptr) {
        say(&line, ORIGIN_ELEMENT_DEFAULT, "default, no entry serves the process");
        return line;
    }
    if (!has_element(read, &line, &element))
        return line;

    const attribute_reading *found = asked(read, element, "flag");
    if (found != nullptr && found->number && uint32_t(*found->number) <= 1) {
        say_attribute(&line, *found);
        return line;
    }
    if (found != nullptr)
        line.text = found->text;
    say(&line, ORIGIN_UNCHANGED,
        found != nullptr && found->number
            ? "as at load, flag of <rdma_flag> is neither 0 nor 1: \"" + *found->text + "\""
            : "as at load, " + why_no_number(found, "rdma_flag", "flag"));
    return line;
}

/* Empty when the pool's element has its three sizes, else why the reader refuses it. */
static std::string refused_pool(const reading &read, const char *pool)
{
    const std::optional<mxml_node_t *> element = looked_up(read, pool);
    if (!element || *element == nullptr)
        return "";

    for (const char *size : {"reserve_size", "max_size", "extand_size"}) {
        if (!is_number(read, *element, size))
            return why_no_number(asked(read, *element, size), pool, size);
    }
    return "";
}

static void pool_values(const reading &read, const char *pool, const cmm_pool_quota &quota,
                        std::vector<value_line> *lines)
{
    const wanted_value values[] = {
        {"reserve_size", quota.reserve_size, "KiB", pool, "reserve_size"},
        {"max_size", quota.max_size, "KiB", pool, "max_size"},
        {"extand_size", quota.extand_size, "KiB", pool, "extand_size"},
        {"max_limit", quota.max_limit, "flag", pool, "max_limit"},
        {"leak_rate", quota.leak_rate, "percent", pool, "leak_rate"},
        {"dontfork_flag", quota.dontfork_flag, "flag", pool, "dontfork_flag"},
    };
    const std::string refused = refused_pool(read, pool);

    for (const wanted_value &wanted : values) {
        value_line line = optional_value(read, wanted);
        if (!refused.empty())
            say(&line, ORIGIN_UNCHANGED, "as at load, " + refused);
        line.name = std::string(pool) + "." + wanted.name;
        lines->push_back(line);
    }
}

/* The attributes that a pair of counts came from; null when the element was refused. */
struct count_sources {
    const attribute_reading *min, *max;
};

static count_sources sources_of(const reading &read, mxml_node_t *element)
{
    if (is_number(read, element, "min_num") && is_number(read, element, "max_num"))
        return {asked(read, element, "min_num"), asked(read, element, "max_num")};
    if (is_number(read, element, "num"))
        return {asked(read, element, "num"), asked(read, element, "num")};
    return {nullptr, nullptr};
}

static uint32_t factor_of(const reading &read, mxml_node_t *element, const char *name)
{
    const attribute_reading *found = asked(read, element, name);
    return found != nullptr ? uint32_t(found->number.value_or(0)) : 0;
}

static void say_correction(const reading &read, mxml_node_t *element, value_line *line)
{
    const uint32_t count = uint32_t(line->number.value_or(0));
    const uint32_t factor = factor_of(read, element, "num_factor");

    say(line, ORIGIN_NUMA,
        line->attribute + " of " + tag(line->element) + ", " + grouped(count) + " x " +
            grouped(factor) + " % x " + grouped(read.numa_nodes) + " NUMA nodes" +
            (*line->number > UINT32_MAX ? ", from the low 32 bits of " + grouped(*line->number)
                                        : ""));
    const unsigned __int128 product =
        static_cast<unsigned __int128>(count) * factor * read.numa_nodes;
    line->has_wrapped = product > UINT32_MAX;
    if (line->has_wrapped)
        line->said += ", which wraps around at 32 bits";
}

static void count_value(const reading &read, const wanted_value &wanted, bool is_maximum,
                        std::vector<value_line> *lines)
{
    value_line line = start_line(wanted);
    mxml_node_t *element = nullptr;
    if (!has_element(read, &line, &element)) {
        lines->push_back(line);
        return;
    }

    const count_sources sources = sources_of(read, element);
    const attribute_reading *source = is_maximum ? sources.max : sources.min;
    if (source == nullptr) {
        say(&line, ORIGIN_UNCHANGED,
            "as at load, " + tag(line.element) +
                " has neither a number in num nor in both min_num and max_num");
    } else {
        line.attribute = source->name;
        line.text = source->text;
        line.number = source->number;
        if (read.numa_nodes != 0 && factor_of(read, element, "numa_factor") != 0)
            say_correction(read, element, &line);
        else
            say_attribute(&line, *source);
    }
    lines->push_back(line);
}

static void cache_values(const reading &read, std::vector<value_line> *lines)
{
    const cache_numbers numbers = read.trace.caches.value_or(cache_numbers{0, 0, 0, 0});
    const wanted_value values[] = {
        {"cache page", numbers.page, "objects", "pool_cachenum", "page"},
        {"cache page threads", numbers.page_threads, "threads", "pool_cachenum",
         "page_maxcachethreadnum"},
        {"cache 64K_inner", numbers.inner_64k, "objects", "pool_cachenum", "64K_inner"},
        {"cache 64K_outer", numbers.outer_64k, "objects", "pool_cachenum", "64K_outer"},
    };

    lines->push_back(optional_value(
        read, {"cache_size", read.config.cache_size, "KiB", "pool_threadcache", "cache_size"}));
    for (const wanted_value &wanted : values)
        lines->push_back(optional_value(read, wanted));
}

static void describe_cfg_path(const reading &read, description *out)
{
    const std::optional<mxml_node_t *> element = looked_up(read, "cfg_path");

    out->cfg_path = read.cfg_path;
    if (!element)
        out->cfg_path_said = "<cfg_path> is not read";
    else if (*element == nullptr)
        out->cfg_path_said = "none, there is no <cfg_path>";
    else if (!read.cfg_path.empty())
        out->cfg_path_said = "path of <cfg_path>, behind the folder of the file";
    else if (asked(read, *element, "path")->text)
        out->cfg_path_said = "none, the joined path is too long";
    else
        out->cfg_path_said = "none, <cfg_path> has no path";
}

void describe_values(const reading &read, description *out)
{
    const cmm_config &config = read.config;

    out->numa_nodes = read.numa_nodes;
    out->values.push_back(transport_value(read));
    pool_values(read, "normal_pool", config.normal_pool, &out->values);
    pool_values(read, "io_pool", config.io_pool, &out->values);
    cache_values(read, &out->values);
    const wanted_value counts[] = {
        {"req_min", config.req_min, "objects", "req_num", "min_num"},
        {"req_max", config.req_max, "objects", "req_num", "max_num"},
        {"sgl_min", config.sgl_min, "objects", "sgl_num", "min_num"},
        {"sgl_max", config.sgl_max, "objects", "sgl_num", "max_num"},
        {"page_min", config.page_min, "pages", "page_num", "min_num"},
        {"page_max", config.page_max, "pages", "page_num", "max_num"},
    };
    for (size_t i = 0; i < std::size(counts); ++i)
        count_value(read, counts[i], i % 2 == 1, &out->values);
    describe_cfg_path(read, out);
    out->values.push_back(optional_value(
        read, {"coredump_level", config.coredump_level, "level", "mem_coredump", "dump_level"}));
}

/*
 * The three characters that would end or break a quoted text are escaped, everything else stands as
 * it is; the last line says that nothing is missing.
 */
#include "openmetrics.h"

#include <cstdio>

namespace {

const char *name_of(metric_type type)
{
    return type == metric_type::COUNTER ? "counter" : type == metric_type::INFO ? "info" : "gauge";
}

const char *ending_of(metric_type type)
{
    return type == metric_type::COUNTER ? "_total" : type == metric_type::INFO ? "_info" : "";
}

std::string escaped(const std::string &text)
{
    std::string made;

    for (const char c : text) {
        if (c == '\n')
            made += "\\n";
        else if (c == '"' || c == '\\')
            made += {'\\', c};
        else
            made += c;
    }
    return made;
}

std::string label_text(const metric_labels &labels)
{
    std::string text;

    for (const auto &[name, value] : labels)
        text += (text.empty() ? "" : ",") + name + "=\"" + escaped(value) + "\"";
    return text.empty() ? "" : "{" + text + "}";
}

void write_family(const metric_family &family, std::string &text)
{
    text += "# TYPE " + family.name + " " + name_of(family.type) + "\n";
    if (!family.unit.empty())
        text += "# UNIT " + family.name + " " + family.unit + "\n";
    text += "# HELP " + family.name + " " + escaped(family.help) + "\n";
    for (const metric_sample &sample : family.samples)
        text += family.name + ending_of(family.type) + label_text(sample.labels) + " " +
                sample.value + "\n";
}

} // namespace

std::string openmetrics_text(const std::vector<metric_family> &families)
{
    std::string text;

    for (const metric_family &family : families)
        write_family(family, text);
    return text + "# EOF\n";
}

std::string thousandths(uint64_t value)
{
    char text[32];

    snprintf(text, sizeof text, "%lu.%03lu", (unsigned long)(value / 1000),
             (unsigned long)(value % 1000));
    return text;
}

/*
 * The explanation as text, for a person at a terminal: 100 columns where the texts allow it.
 */
#include "description.h"

#include <iomanip>

#include "printable.h"

static constexpr int NAME_WIDTH = 26;
static constexpr int VALUE_WIDTH = 13; /* 32 bits, grouped */
static constexpr int UNIT_WIDTH = 7;
static constexpr int NUMBER_WIDTH = 16;

static void print_choices(const description &told, std::ostream &out)
{
    out << "memory\n";
    for (const std::string &line : told.memory.said)
        out << "    " << printable(line) << '\n';
    out << "section\n    " << printable(told.section.said) << '\n';
    out << "entry\n    " << printable(told.entry.said) << '\n';
}

/* How many lines from there on say the same of one element. */
static size_t alike(const std::vector<value_line> &lines, size_t first)
{
    size_t end = first + 1;
    while (end < lines.size() && lines[end].element == lines[first].element &&
           lines[end].said == lines[first].said && lines[end].value == lines[first].value &&
           lines[first].origin != ORIGIN_ATTRIBUTE && lines[first].origin != ORIGIN_NUMA)
        ++end;
    return end - first;
}

static void print_value(const std::string &name, const std::string &unit, const value_line &line,
                        std::ostream &out)
{
    out << "    " << std::left << std::setw(NAME_WIDTH) << name << std::right
        << std::setw(VALUE_WIDTH) << grouped(line.value) << " " << std::left
        << std::setw(UNIT_WIDTH) << unit << " " << std::right << printable(line.said) << '\n';
}

static void print_values(const description &told, std::ostream &out)
{
    const std::vector<value_line> &values = told.values;

    out << "values\n";
    for (size_t i = 0; i < values.size();) {
        const size_t same = alike(values, i);
        if (same > 2)
            print_value(values[i].element + ", all " + std::to_string(same), "", values[i], out);
        else
            for (size_t j = i; j < i + same; ++j)
                print_value(values[j].name, values[j].unit, values[j], out);
        i += same;
    }
    out << "    " << std::left << std::setw(NAME_WIDTH) << "cfg_path" << std::right
        << printable(told.cfg_path.empty() ? "" : told.cfg_path + ", ")
        << printable(told.cfg_path_said) << '\n';
}

static void print_pool(const pool_line &pool, std::ostream &out)
{
    out << "    " << std::left << std::setw(NAME_WIDTH) << pool.name << std::right;
    if (pool.maker == "nobody") {
        out << "not made: " << pool.note << '\n';
        return;
    }
    out << std::setw(NUMBER_WIDTH) << grouped(pool.reserve_bytes) << std::setw(NUMBER_WIDTH + 4)
        << grouped(pool.cost_bytes) << "  by " << pool.maker << '\n';
    if (pool.whole_bytes != 0)
        out << std::setw(NAME_WIDTH + 6) << "" << grouped(pool.min) << " to " << grouped(pool.max)
            << " objects of " << grouped(pool.object_bytes) << ", " << grouped(pool.whole_bytes)
            << " with all that belongs to one\n";
    if (!pool.note.empty())
        out << std::setw(NAME_WIDTH + 6) << "" << pool.note << '\n';
}

static void print_pools(const description &told, std::ostream &out)
{
    uint64_t reserve = 0;
    uint64_t cost = 0;

    out << std::left << std::setw(NAME_WIDTH + 4) << "pools, bytes" << std::right
        << std::setw(NUMBER_WIDTH) << "reserved" << std::setw(NUMBER_WIDTH + 4) << "at most"
        << '\n';
    for (const pool_line &pool : told.pools) {
        print_pool(pool, out);
        reserve += pool.reserve_bytes;
        cost += pool.cost_bytes;
    }
    out << "    " << std::left << std::setw(NAME_WIDTH) << "together" << std::right
        << std::setw(NUMBER_WIDTH) << grouped(reserve) << std::setw(NUMBER_WIDTH + 4)
        << grouped(cost) << '\n';
}

static void print_log(const description &told, std::ostream &out)
{
    out << "the start logs\n";
    for (const logged_line &line : told.log)
        out << "    " << std::left << std::setw(8) << line.level << std::right
            << printable(line.text) << '\n';
}

static void print_findings(const description &told, std::ostream &out)
{
    if (!told.findings.empty())
        out << "findings\n";
    for (const finding &found : told.findings)
        out << "    " << (found.severity == FINDING_UNUSABLE ? "unusable" : "warning") << " ["
            << found.code << "] " << printable(found.text) << '\n';
}

void print_text(const description &told, std::ostream &out)
{
    out << printable(told.file) << ", for process \"" << printable(told.process) << "\"\n";
    print_choices(told, out);
    print_values(told, out);
    print_pools(told, out);
    print_log(told, out);
    print_findings(told, out);
    out << "result: " << result_name(told.result) << '\n';
}

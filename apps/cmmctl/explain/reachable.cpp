/*
 * Which sections some node can be given.
 *
 * The measured size is a number of 12 bits, and the library's answer for it changes at the listed
 * sizes only; without a list it is the measured size itself. So it is enough to ask with the ends
 * of the range, with each listed size and its neighbours, and with the sections' own sizes.
 */
#include "reading.h"

#include <algorithm>
#include <set>

static constexpr uint64_t SMALLEST_MEMORY = 1; /* byte; 0 would be no memory */

static std::set<int64_t> sizes_to_ask(const reading &read)
{
    std::set<int64_t> asked = {0, LARGEST_MEASURED};

    for (const int64_t listed : read.sizes.sizes) {
        if (listed < 0 || listed > LARGEST_MEASURED)
            continue;
        asked.insert({listed - 1, listed, listed + 1});
    }
    for (mxml_node_t *section : all_sections(read))
        asked.insert(int64_t(section_size(section).value_or(0)));
    return asked;
}

static uint32_t ask_size(const reading &read, int64_t measured)
{
    node_facts facts = read.facts;
    facts.memory = measured == 0 ? SMALLEST_MEMORY : uint64_t(measured) << 20;

    recording asked = {.facts = &facts};
    const recording_scope scope(&asked);
    return umm_get_node_mem_size(read.trace.tree);
}

reachable find_reachable(const reading &read)
{
    reachable result;
    std::set<uint32_t> sizes;

    for (const int64_t measured : sizes_to_ask(read)) {
        if (measured >= 0 && measured <= LARGEST_MEASURED)
            sizes.insert(ask_size(read, measured));
    }
    sizes.erase(0); /* no size */
    for (const uint32_t size : sizes) {
        mxml_node_t *section = ask_section(read, size).section;
        result.sizes.push_back(size);
        if (section != nullptr)
            result.sections.push_back(section);
    }
    return result;
}

/*
 * How the library came to its size, its section and its entry, in words.
 */
#include "description.h"
#include "reading.h"

#include <algorithm>

static constexpr uint32_t MIB_SHIFT = 20;

std::string grouped(uint64_t number)
{
    std::string text = std::to_string(number);
    for (size_t place = text.size(); place > 3; place -= 3)
        text.insert(place - 3, ",");
    return text;
}

std::string grouped_signed(int64_t number)
{
    return number < 0 ? "-" + grouped(0 - uint64_t(number)) : grouped(uint64_t(number));
}

/* The first ini file belongs to the control group, the second to the storage resources. */
static void describe_ini_files(const reading &read, memory_facts *memory)
{
    const std::vector<ini_reading> &files = read.found.ini_files;
    for (size_t i = 0; i < files.size(); ++i) {
        const ini_reading &file = files[i];
        if (!file.is_open) {
            memory->said.push_back(file.path + " cannot be opened or is no ini file.");
            continue;
        }
        const std::string item = "[" + file.section + "] " + file.key;
        if (file.value) {
            memory->source = i == 0 ? "cgroup" : "storage";
            memory->said.push_back(file.path + " says " + item + " = " + *file.value + ".");
        } else {
            memory->said.push_back(file.path + " has no " + item +
                                   (i == 0 ? ", and nobody else is asked." : "."));
        }
    }
}

static void describe_source(const reading &read, memory_facts *memory)
{
    memory->source = "none";
    if (read.facts.memory) {
        memory->source = "option";
        memory->said.push_back("--memory says " + grouped(*read.facts.memory) +
                               " bytes; no ini file is asked.");
        return;
    }
    describe_ini_files(read, memory);
    if (!read.found.asked_machine)
        return;
    if (read.memory != 0)
        memory->source = "machine";
    memory->said.push_back(read.memory != 0 ? "This machine has " + grouped(read.memory) + " bytes."
                                            : "This machine does not tell how much it has.");
}

static std::string listed_sizes(const memory_facts &memory)
{
    std::string text;
    for (const int64_t size : memory.listed_mib)
        text += (text.empty() ? "" : ", ") + std::to_string(size);
    return text;
}

static std::string chosen_size(const memory_facts &memory)
{
    const std::string chosen = grouped(memory.chosen_mib) + " MiB";
    if (memory.listed_mib.empty())
        return "The file lists no sizes, so the measured one is taken: " + chosen + ".";

    const std::string list = "The file lists " + listed_sizes(memory) + " MiB; ";
    if (memory.listed_mib[0] > int64_t(memory.measured_mib))
        return list + "the first is above the measured size, so 1 MiB is taken.";
    return list + "the last before the first one above the measured size is " + chosen + ".";
}

static void describe_memory(const reading &read, memory_facts *memory)
{
    memory->bytes = read.memory;
    memory->used_bytes = uint32_t(read.memory);
    memory->measured_mib = memory->used_bytes >> MIB_SHIFT;
    memory->listed_mib = read.sizes.sizes;
    memory->chosen_mib = read.size;
    describe_source(read, memory);
    if (memory->bytes == 0)
        return;

    const std::string measured = grouped(memory->measured_mib) + " MiB";
    memory->said.push_back(memory->used_bytes != memory->bytes
                               ? "Only the low 32 bits count: " + grouped(memory->used_bytes) +
                                     " bytes, which measure " + measured + "."
                               : "That measures " + measured + ".");
    memory->said.push_back(memory->chosen_mib != 0 ? chosen_size(*memory)
                                                   : "No size comes out of that.");
}

static void describe_section(const reading &read, section_facts *section)
{
    const std::string size = "memory=\"" + std::to_string(read.size) + "\"";

    *section = {};
    if (read.trace.tree == nullptr || read.size == 0) {
        section->said = "No section is looked for.";
        return;
    }
    const std::vector<mxml_node_t *> all = all_sections(read);
    const auto place = std::find(all.begin(), all.end(), read.section);
    section->count = uint32_t(all.size());
    if (read.section == nullptr) {
        section->said = "There is no <node " + size + ">, or a broken <node> stands before it.";
        return;
    }
    section->is_found = read.umm != nullptr;
    section->index = uint32_t(place - all.begin()) + 1;
    section->said = "<node " + size + ">, number " + grouped(section->index) + " of " +
                    grouped(section->count) +
                    (read.umm != nullptr ? ", is the first one for the chosen size."
                                         : ", has no <umm>, and none follows it.");
}

static void describe_entry(const reading &read, entry_facts *entry)
{
    *entry = {};
    if (read.process == nullptr) {
        entry->said = read.umm == nullptr ? "No entry is looked for."
                                          : "There is neither an entry \"" + read.facts.process +
                                                "\" nor one named \"default\".";
        return;
    }
    entry->is_found = true;
    entry->name = zyax_xml_element_getattr(read.process, "name");
    entry->is_default = entry->name != read.facts.process;
    entry->said =
        "<uprocess name=\"" + entry->name + "\"> " +
        (entry->is_default ? "serves the processes without an entry; there is none for \"" +
                                 read.facts.process + "\"."
                           : "is the process's own.");
}

void describe_choices(const reading &read, description *out)
{
    describe_memory(read, &out->memory);
    describe_section(read, &out->section);
    describe_entry(read, &out->entry);
}

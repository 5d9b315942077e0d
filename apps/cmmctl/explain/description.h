/*
 * The explanation as plain data, in the order in which it is told; text and JSON are two renderings
 * of it and add nothing.
 */
#pragma once

#include "explain.h"

#include <vector>

struct reading;

/* Where a value comes from. */
enum value_origin {
    ORIGIN_ATTRIBUTE,       /* as the attribute says */
    ORIGIN_ADJUSTED,        /* the attribute's, brought within bounds */
    ORIGIN_NUMA,            /* the attribute's, corrected for the NUMA nodes */
    ORIGIN_DEFAULT,         /* the element is there, the attribute is not or is no number */
    ORIGIN_ELEMENT_DEFAULT, /* the element is not there */
    ORIGIN_UNCHANGED,       /* the element was refused: as at load */
    ORIGIN_NOT_READ,        /* the reader did not get there: as at load */
};

struct value_line {
    std::string name; /* of the field in the configuration record */
    uint64_t value;
    std::string unit; /* or, of a flag, what the value means */

    value_origin origin;
    std::string element, attribute;
    std::optional<std::string> text; /* of the attribute */
    std::optional<uint64_t> number;  /* of the attribute, before truncation */
    bool has_wrapped;                /* in the NUMA correction */
    std::string said;                /* the origin in words */
};

struct pool_line {
    std::string name;
    std::string maker;                  /* "library", "storage service", "its users", "nobody" */
    uint64_t object_bytes, whole_bytes; /* asked for, and spent on one; 0 for pools in bytes */
    uint64_t min, max;                  /* objects; 0 for pools in bytes */
    uint64_t reserve_bytes, cost_bytes; /* at the start, and at most */
    std::string note;                   /* why it is not made; or empty */
};

enum finding_severity { FINDING_WARNING, FINDING_UNUSABLE };

struct finding {
    finding_severity severity;
    std::string code; /* one word, for programs */
    std::string text; /* one sentence or two */
};

struct logged_line {
    uint32_t module_id;
    std::string level; /* fatal, error, warning, info */
    std::string text;
};

struct memory_facts {
    std::string source;            /* option, cgroup, storage, machine, none */
    std::vector<std::string> said; /* how it was found, in words, a line each */
    uint64_t bytes;
    uint32_t used_bytes; /* their low 32 bits */
    uint32_t measured_mib;
    std::vector<int64_t> listed_mib;
    uint32_t chosen_mib; /* 0 = none */
};

struct section_facts {
    bool is_found;
    uint32_t index, count; /* from 1; of all sections */
    std::string said;
};

struct entry_facts {
    bool is_found, is_default;
    std::string name;
    std::string said;
};

struct description {
    std::string file, process;

    memory_facts memory;
    section_facts section;
    entry_facts entry;

    uint32_t start_status;
    uint32_t numa_nodes; /* that counts are multiplied with; 0 = not corrected */
    std::vector<value_line> values;
    std::string cfg_path, cfg_path_said;
    std::vector<pool_line> pools;
    std::vector<logged_line> log;
    std::vector<finding> findings;
    explain_result result;
};

/* Its parts, each in the source of its name. */
void describe_choices(const reading &read, description *out);
void describe_values(const reading &read, description *out);
void describe_pools(const reading &read, description *out);
void describe_findings(const reading &read, description *out); /* reads all the others */

/* Everything. */
description describe(const explain_request &request);

void print_text(const description &told, std::ostream &out);
void print_json(const description &told, std::ostream &out);

/* The findings, by what they are about. */
void find_unusable(const reading &read, description *out);
void find_in_choices(const reading &read, description *out);
void find_in_entry(const reading &read, description *out);
void find_in_pools(const reading &read, description *out);

/* Adds a warning. */
void warn(description *out, const char *code, const std::string &text);

/* clean, warnings, unusable. */
const char *result_name(explain_result result);

/* 1234567 as 1,234,567. */
std::string grouped(uint64_t number);
std::string grouped_signed(int64_t number);

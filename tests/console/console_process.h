/*
 * A process with the memory manager started and its commands registered, and what one command said.
 */
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "stack/node_process.h"
#include "own_clock.h"
#include "zyumm_console.h"
#include "zymm_host.h"

using nlohmann::json;

inline constexpr uint32_t TEST_MODULE = 77; /* named "tester" */

struct answer {
    int status; /* 0 = the console would say "ok" */
    std::string text;
};

/* Runs one line as a client's. */
answer run_line(const std::string &line);

/* The same until the list of requests was not locked by the time-out walk's timer. */
answer run_when_not_busy(const std::string &line);

/* Runs the line with "--json" before it, checks that the answer is one line of ASCII with "command"
 * first and the clock's time, and parses it; those two are then left out. */
json run_json(const std::string &line);
json parse_answer(const std::string &command, const answer &said);

/* The text with each "{name}" replaced. */
std::string fill_in(std::string text,
                    const std::vector<std::pair<std::string, std::string>> &values);

std::string hex(uint64_t value);

/* The only pool of this name. */
zymm_slab_record pool_named(const std::string &name);

/* 128 pages, 64 SGLs, 32 requests; 16 requests may wait. */
class console_process : public testing::Test
{
protected:
    console_process();
    ~console_process() override;

    config_directory config_;
};

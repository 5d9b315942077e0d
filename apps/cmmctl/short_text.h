/*
 * Numbers in few characters, as columns have room for them: never more than 5 for counts and bytes,
 * 6 for ages.
 */
#pragma once

#include <cstdint>
#include <string>

/* 0, 9999, 12.3k, 4.5M; steps of 1,000. */
std::string short_count(double count);

/* 0, 512, 8.0K, 12.3M; steps of 1,024. */
std::string short_bytes(uint64_t bytes);

/* 0.3s, 59.9s, 3m05s, 2h10m, 3d04h. */
std::string short_age(uint64_t milliseconds);

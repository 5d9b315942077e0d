/*
 * The owner under which the pools trace everything that this program takes.
 */
#pragma once

#include <cstdint>

inline constexpr uint32_t NODE_MODULE_ID = 900;

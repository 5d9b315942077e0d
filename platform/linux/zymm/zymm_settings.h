/*
 * Settings of the layer that other sources read.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

/* Nanoseconds; saturates. */
uint64_t leak_age_ns();

} // namespace zymm

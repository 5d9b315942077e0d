/*
 * What cmmctl exits with; scripts branch on it.
 */
#pragma once

inline constexpr int CTL_OK            = 0;
inline constexpr int CTL_ERROR         = 1; /* the process answered with an error */
inline constexpr int CTL_USAGE         = 2; /* the command line is wrong */
inline constexpr int CTL_NO_CONNECTION = 3; /* no process, or it went away or is silent */

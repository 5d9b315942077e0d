/* A benchmark that cannot be set up ends the process: half a table is worse than none. */
#pragma once

#include <cstdio>
#include <cstdlib>

namespace bench
{

[[noreturn]] inline void fail(const char *what)
{
    fprintf(stderr, "cmm_bench: %s\n", what);
    exit(1);
}

} // namespace bench

/*
 * A machine of exactly 24 GiB: a program that defines an operation of the seam replaces it, so this
 * file makes cmm_node believe it.
 */
#include "zyax.h"

extern "C" __attribute__((visibility("default"))) int zyax_get_total_mem(uint64_t *bytes)
{
    *bytes = uint64_t(24) << 30;
    return 0;
}

/*
 * A plain C program that is linked with the library and names none of the platform's: what the
 * library needs itself must come along.
 */
#include "zyumm_cmm.h"

#include <stdio.h>

int main(void)
{
    const uint32_t result = cmm_module_init_ext(NULL);

    if (result != 0xFFFFFFFFu || g_cmm_init_count != 0) {
        fprintf(stderr, "start without parameters: %#x, %d users\n", result, g_cmm_init_count);
        return 1;
    }
    return 0;
}

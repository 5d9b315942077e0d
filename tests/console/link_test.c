/*
 * A C program with the console from the static libraries alone.
 */
#include "zyumm_cmm.h"
#include "zyumm_console.h"

int main(void)
{
    if (zyumm_console_register() != 0)
        return 1;
    if (zyumm_console_register() == 0)
        return 2;
    return zyumm_console_unregister() == 0 ? 0 : 3;
}

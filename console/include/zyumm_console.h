/*
 * The memory manager's commands for the process's debug console: what is in the pools, who holds it,
 * who waits, what leaked, and the log's levels. console/README.md describes them and their JSON.
 *
 *     cmm_module_init();
 *     zyumm_console_register();
 *     zyax_console_start("/run/node/console");        the platform's, see zyax_console.h
 *     ...
 *     zyax_console_stop();
 *     zyumm_console_unregister();
 *     cmm_module_exit();
 *
 * The commands read the memory manager's state, so they belong between its start and its last
 * stop. They do not need a configuration: a process without pools shows none.
 */
#ifndef ZYUMM_CONSOLE_H
#define ZYUMM_CONSOLE_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * Enters all commands into the console's table.
 *
 * 0; -1, with none of them entered, when one of them is there already or memory is out.
 *
 * Threads: any, one at a time, when the memory manager is started.
 * Logs:    error, by the console, for the command that it refuses.
 */
int zyumm_console_register(void);

/*
 * Takes all commands out of the table. On return none of them runs.
 *
 * 0; -1 when one of them was not there; the others are out all the same.
 *
 * Threads: any, one at a time, before the memory manager's last stop; not a command's handler.
 * Logs:    error, by the console, for a command that was not there.
 */
int zyumm_console_unregister(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif

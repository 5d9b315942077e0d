/*
 * Base layer of the platform: spin locks, timers, clocks, page protection, numbers from text,
 * NUMA facts and ini files. XML has a header of its own, zyax_xml.h.
 *
 * Units: timer expiries are microseconds from the call, jiffies milliseconds. Both clocks are
 * monotonic.
 * Threads: every operation may be called by any thread unless it says otherwise.
 */
#ifndef ZYAX_H
#define ZYAX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Spin lock, 24 bytes. Initialised in place to {0, 0xdead4ead, 0xFFFFFFFF, ~0}; an all-zero record
 * is a valid unlocked one too and is completed on first use.
 *
 * Fatal: a lock taken again by its owner, an unlock by a thread that does not hold it, and a record
 * whose magic is wrong are logged and abort the process.
 */
typedef struct zyax_spinlock {
    uint64_t word;
    uint32_t magic;
    uint32_t owner_cpu;
    uint64_t owner;
} zyax_spinlock;

/* Takes the lock; `func` and `line` name the caller in the lock's diagnostics. */
void do_zyax_spinlock_lock(zyax_spinlock *lock, const char *func, uint32_t line);

/* 1 = taken, 0 = busy, also when the caller itself holds it. */
int do_zyax_spinlock_trylock(zyax_spinlock *lock, const char *func, uint32_t line);

void do_zyax_spinlock_unlock(zyax_spinlock *lock);

/*
 * One-shot timer, 128 bytes, all zero before its first init; the content is the platform's. Expiry
 * functions run in one platform thread with no platform lock held, so they may re-arm any timer.
 * Usable before zyax_Init.
 */
typedef struct zyax_timer {
    uint64_t opaque[16];
} zyax_timer;

/* 0; may be called many times. */
int zyax_Init(void);

/* 0; 17 = already initialised. */
int zyax_timer_init(zyax_timer *timer);

/* Sets expiry (microseconds, never early, rounded up to 1 ms) and function; flags 0. 22 = not initialised. */
int zyax_timer_set_raw(zyax_timer *timer, uint64_t expires, uint32_t flags, void (*fn)(void),
                       const char *fn_name, const char *file, uint32_t line);

/* Arms the timer; 0, 22 = not initialised. */
int zyax_timer_add(zyax_timer *timer);

/* Re-arms the timer, armed or not; 0, 22 = not initialised, non-zero once deleted. */
int zyax_timer_modify(zyax_timer *timer, uint64_t expires);

/* 0; afterwards the function does not run. Waits for a running one unless called from it. */
int zyax_timer_delete(zyax_timer *timer);

/* Milliseconds, monotonic. */
uint64_t zyax_get_jiffies(void);

/* Nanoseconds, monotonic. */
uint64_t zyax_time_getnanosec(void);

/* As access(2): 0 when the test passes. */
int zyax_access(const char *path, int mode);

/* 0 and the machine's physical memory in bytes, not a control group's limit. */
int zyax_get_total_mem(uint64_t *bytes);

/* Protect `count` pages of 4,096 bytes; negative on failure, as for an unaligned address. */
int zyax_setmemory_ro(void *addr, uint32_t count);
int zyax_setmemory_rw(void *addr, uint32_t count);

/* Name of a module id; never null. */
const char *zyax_pid_get_name(uint32_t module_id);

/* 0 = an unsigned decimal number that fits 64 bits; white space around it is allowed, signs and 0x are not. */
int zyax_str_isuint(const char *text);

/* Decimal, or hexadecimal after 0x, white space around it; null, no digits or overflow give 0. */
uint64_t zyax_str_tou64(const char *text);

/* Decimal with sign, white space around it; null, no digits or overflow give 0. */
int64_t zyax_str_tos64(const char *text);

/* 0 = off: fewer than two NUMA nodes. */
int zyax_numam_status_get(void);

/* 0 and one bit a node that the process may run on. */
int zyax_numam_proc_numamask_get(uint64_t *mask);

uint32_t zyax_numam_num_get(void);

/* A parsed ini file; belongs to the thread that opened it until zyax_cfg_destroy_ex. */
typedef struct zyax_cfg zyax_cfg;

/* 0 = opened and parsed. */
int zyax_cfg_init(const char *path, zyax_cfg **cfg);

/* 0 = found and it fits `size` bytes with its terminator. */
int zyax_cfg_getItemValue(zyax_cfg *cfg, const char *section, const char *key, char *value,
                          uint32_t size);

void zyax_cfg_destroy_ex(zyax_cfg *cfg);

#ifdef __cplusplus
}
#endif

#endif

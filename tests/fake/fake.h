/*
 * Programmable platform for unit tests.
 *
 * It takes the place of all three platform libraries: it counts and records every seam call in
 * order with its arguments, can make any call fail at its n-th use, and backs objects with plain
 * memory. Clocks, NUMA answers and ini files are set by hand; log lines and console text are kept.
 * It has no logic of its own beyond that: what a real platform promises more is tested on the real
 * one, and the core contract tests run on both.
 *
 * One process runs one test: everything starts fresh and nothing is reset in between.
 * Threads: every function may be called by any thread (one mutex inside, never held over a hook).
 */
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bounded.h"
#include "dbg_console.h"
#include "zyax.h"
#include "zyax_xml.h"
#include "zylog.h"
#include "zymm.h"
#include "zyumm.h"

/* Every operation of the seam, and the process calls that the fake wraps. */
#define FAKE_OPERATIONS(X)                                                                        \
    X(zylog_level_check) X(zylog)                                                                 \
    X(do_zyax_spinlock_lock) X(do_zyax_spinlock_trylock) X(do_zyax_spinlock_unlock)               \
    X(zyax_Init) X(zyax_timer_init) X(zyax_timer_set_raw) X(zyax_timer_add) X(zyax_timer_modify)  \
    X(zyax_timer_delete) X(zyax_get_jiffies) X(zyax_time_getnanosec) X(zyax_access)               \
    X(zyax_get_total_mem) X(zyax_setmemory_ro) X(zyax_setmemory_rw) X(zyax_pid_get_name)          \
    X(zyax_str_isuint) X(zyax_str_tou64) X(zyax_str_tos64) X(zyax_numam_status_get)               \
    X(zyax_numam_proc_numamask_get) X(zyax_numam_num_get) X(zyax_cfg_init)                        \
    X(zyax_cfg_getItemValue) X(zyax_cfg_destroy_ex) X(zyax_xml_loadfd) X(zyax_xml_findelement)    \
    X(zyax_xml_getfirstchild) X(zyax_xml_element_getattr) X(zyax_xml_del) X(DBG_Print)            \
    X(DBG_PrintBuf) X(memcpy_s) X(memset_s) X(strncpy_s) X(snprintf_s) X(zymm_init_once)          \
    X(zymm_numa_coredump_level_set) X(zymm_pool_cache_num_set) X(zymm_slab_param_init)            \
    X(zymm_create_slab) X(zymm_destory_slab) X(zymm_slab_malloc) X(zymm_slab_free)                \
    X(zymm_slab_get_usage_info) X(zymm_slab_get_usage_by_numa) X(zymm_slab_get_leak_number)       \
    X(zymm_slab_dump_usageinfo) X(zymm_slab_dump_detailinfo) X(zymm_object_get_numaid)            \
    X(zymm_object_whole_size_get) X(zymm_pool_create) X(zymm_pool_destory) X(zymm_malloc)         \
    X(zymm_free) X(zymm_allocator_init) X(zymm_allocator_create) X(zymm_allocator_alloc)          \
    X(zymm_allocator_destroy) X(zymm_allocator_free) X(zyumm_partition_create)                    \
    X(zyumm_partition_delete) X(zyumm_mpool_create) X(zyumm_mpool_delete) X(zyumm_mpool_alloc_i)  \
    X(ucmm_mpool_alloc_i) X(zyumm_mpool_free_i) X(get_mpool_alloc_info) X(mmGetObjectSum)         \
    X(mmGetBusyObjectSum) X(mmGetUesdInfo) X(pub_mpool_alloc_i) X(pub_mpool_free_i)               \
    X(getLocalCacheDefaultNum) X(getLocalCacheDefaultSize) X(zyumm_partition_info_get)            \
    X(posix_readlink) X(posix_realpath) X(posix_getpid)

enum fake_op : unsigned {
#define FAKE_OP_ENUM(name) OP_##name,
    FAKE_OPERATIONS(FAKE_OP_ENUM)
#undef FAKE_OP_ENUM
    OP_COUNT
};

/* ------------------------------------------------------------------ recorded calls */

/* One argument: its number (a pointer's address), and for a text argument the text itself. */
struct fake_arg {
    uint64_t    number = 0;
    std::string text; /* of a const char *; "(null)" for a null one */
};

struct fake_call {
    fake_op               op;
    std::vector<fake_arg> args;   /* in declaration order, variadic ones left out */
    std::string           record; /* bytes of the parameter record that was passed, if any */
    uint64_t              result; /* what the fake answered; 0 for void */

    /* The recorded bytes as the record they are: zymm_slab_param or zyumm_mpool_param. */
    template <typename T>
    T as() const
    {
        T value{};
        if (record.size() == sizeof value)
            memcpy(&value, record.data(), sizeof value);
        return value;
    }
};

/*
 * All recorded calls in order, without those that a test rarely wants in its way: log, level
 * check, clocks, bounded functions and locks. Of these the newest 10,000 each are kept, for
 * fake_calls(op).
 */
std::vector<fake_call> fake_calls();
std::vector<fake_call> fake_calls(fake_op op); /* of one operation; works for every operation */
fake_call              fake_last_call(fake_op op);
uint64_t               fake_count(fake_op op);
const char            *fake_op_name(fake_op op);
void                   fake_forget_calls(); /* counts and records start again at nothing */

/* ------------------------------------------------------------------ faults and hooks */

/*
 * Makes the n-th call from now (1 = the next) fail: with the operation's own failure value, or with
 * `value` (a pointer's address, a negative number as it is cast). A failed call has no effect.
 * Several faults of one operation may be set. An operation without a result then does
 * nothing, but for lock and unlock, which cannot fail.
 */
void fake_fail(fake_op op, uint64_t nth = 1);
void fake_fail_with(fake_op op, uint64_t nth, uint64_t value);
void fake_fail_always(fake_op op);
void fake_fail_always_with(fake_op op, uint64_t value);
void fake_no_faults();
bool fake_fault_hit(); /* a set fault has struck since fake_no_faults */

/* Runs `hook` inside the n-th call from now, before its effect, with no lock of the fake held. */
void fake_hook(fake_op op, uint64_t nth, std::function<void()> hook);

/* One step of a fault sweep. */
struct fault {
    uint64_t nth; /* which call failed */
    bool     hit; /* false in the last step: the operation got through without reaching it */
};

/*
 * Runs `body` with the 1st, 2nd, ... call of `op` failing, until a run does not reach its fault.
 * `hit` turns true at the moment the fault strikes, so `body` reads it after the call under test.
 */
void for_each_fault(fake_op op, const std::function<void(const fault &)> &body);

/* ------------------------------------------------------------------ what is out */

/*
 * Objects are plain memory of exactly their size. A freed one is handed out again first and keeps
 * its content until its slab is destroyed; a new one is filled with 0xA5.
 */
uint64_t fake_objects_out();                /* of all slabs and pools, allocators and raw blocks */
uint64_t fake_objects_out(uint64_t handle); /* of one slab or pool */
uint64_t fake_handles_alive();            /* slabs, memory pools and enclosing pools */
uint64_t fake_partitions_alive();         /* of the unified memory manager */
uint64_t fake_allocators_alive();         /* created over a table of size classes, not destroyed */
bool     fake_handle_alive(uint64_t handle);
uint64_t fake_trees_alive();              /* XML trees loaded and not deleted */
uint64_t fake_ini_files_open();

/* Makes a slab or pool answer null once `max` objects are out, whatever its parameters say. */
void fake_limit(uint64_t handle, uint64_t max);

/* What the usage queries answer for every handle but 0, instead of the fake's own counts. */
void fake_set_usage(uint64_t total, uint64_t used);

/* True while the spin lock is held; the fake's locks record and never spin. */
bool     fake_lock_held(const zyax_spinlock *lock);
uint64_t fake_locks_held();

/* ------------------------------------------------------------------ clocks and timers */

/* Both clocks stand still until they are moved; they start at 1,000,000,000 ns and 1,000 ms. */
void fake_set_nanosec(uint64_t now);
void fake_advance_nanosec(uint64_t by);
void fake_set_nanosec_step(uint64_t by); /* every reading moves the clock on by this, afterwards */
void fake_set_jiffies(uint64_t now);

struct fake_timer_state {
    bool        initialised = false;
    bool        armed       = false;
    uint64_t    expires     = 0; /* as last given */
    uint32_t    flags       = 0;
    void (*fn)(void)        = nullptr;
    std::string fn_name;
    std::string file;
};

/* Timers never run by themselves: a test calls the function it finds here. */
fake_timer_state              fake_timer(const zyax_timer *timer);
std::vector<fake_timer_state> fake_timers(); /* all that were ever initialised, in that order */

/* ------------------------------------------------------------------ answers set by hand */

/* The process's executable, as its link under /proc says; default "/opt/node/bin/cmm_test". */
void fake_set_executable(const std::string &path);

/* A public pool for pub_mpool_alloc_i, as an embedder makes one. */
uint64_t fake_make_public_pool();

/* What realpath answers for every path, instead of the real answer; "" = the real one again. */
void fake_set_realpath(const std::string &path);

/* A file that zyax_access finds. With none set the real file system is asked. */
void fake_set_existing_files(const std::vector<std::string> &paths);

/* Opens the ini file and sets a value in it; an empty section only makes the file open. */
void fake_set_ini(const std::string &path, const std::string &section = "",
                  const std::string &key = "", const std::string &value = "");

void fake_set_total_mem(uint64_t bytes); /* default 200 MiB */

/* status, node mask and number of nodes; default 0, 1, 1. Module names are "module_<id>". */
void fake_set_numa(int status, uint64_t mask, uint32_t num);

/* ------------------------------------------------------------------ log and console */

struct fake_line {
    uint32_t    module_id;
    uint32_t    level;
    uint32_t    flag;
    std::string file;
    uint32_t    line;
    std::string func;
    std::string text;

    bool operator==(const fake_line &) const = default;
};

/*
 * Every line written. Error and fatal lines also go to standard error as
 * "level|function|flag|text", so that death tests can match them exactly. The platform's own lines
 * (stale handles, double and foreign frees, Mini-XML's complaints) are among them under module 1
 * and the operation's name.
 */
std::vector<fake_line>   fake_log();
std::vector<fake_line>   fake_log_from(const std::string &func);
std::vector<std::string> fake_log_texts();
fake_line                fake_last_line(); /* of no level and empty when nothing was written */
uint64_t                 fake_log_count(const std::string &text);
void                     fake_forget_log();

/* Lines above this level are disabled; default ZYLOG_INFO. */
void fake_set_log_level(uint32_t level);

/*
 * Console text: of DBG_Print at once, then all of DBG_PrintBuf as if the command had ended. The
 * slab dumps are recorded as calls and print nothing.
 */
std::string fake_console();
void        fake_forget_console();

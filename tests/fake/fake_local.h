/*
 * What the sources of the programmable platform share: the life of one recorded call.
 *
 *     call c(OP_zymm_slab_free, slab, object, module_id, func);   counts, records, runs the hook
 *     return c.answer<int>([&] { return give_back(...); });       fault or effect; keeps the result
 *
 * One mutex guards all state of the fake. It is taken by `call` for its own bookkeeping and by the
 * effects for theirs, and never while a hook or any other code of a test runs. The state is never
 * destroyed: it stays reachable until the process ends, so that leak checkers are content and
 * late destructors of other code may still call in.
 */
#pragma once

#include <initializer_list>
#include <mutex>
#include <type_traits>

#include "fake.h"

namespace fake
{

/* Module id of the lines that the platform itself writes. */
inline constexpr uint32_t PLATFORM_MODULE_ID = 1;

std::mutex &state_mutex();

/* Called all the time: kept apart, and only the newest. */
bool is_quiet(fake_op op);

/* The operation's own failure value. */
uint64_t own_failure(fake_op op);

using guard = std::lock_guard<std::mutex>;

/* An argument that points to a parameter record, whose bytes are kept. */
struct record_arg {
    const void *data;
    size_t      size;
};

/* A text that needs no terminator within its first `max` characters. */
struct bounded_text {
    const char *text;
    size_t      max;
};

inline fake_arg to_arg(const char *text)
{
    return {reinterpret_cast<uint64_t>(text), text != nullptr ? text : "(null)"};
}

inline fake_arg to_arg(const record_arg &arg)
{
    return {reinterpret_cast<uint64_t>(arg.data), ""};
}

inline fake_arg to_arg(const bounded_text &arg)
{
    return {reinterpret_cast<uint64_t>(arg.text),
            arg.text != nullptr ? std::string(arg.text, strnlen(arg.text, arg.max)) : "(null)"};
}

template <typename T>
uint64_t to_number(T value)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<uint64_t>(value);
    else
        return static_cast<uint64_t>(value); /* negative numbers are extended by their sign */
}

template <typename T>
fake_arg to_arg(T value)
{
    return {to_number(value), ""};
}

template <typename T>
T from_number(uint64_t number)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(number);
    else
        return static_cast<T>(number);
}

class call
{
public:
    template <typename... Args>
    explicit call(fake_op op, const Args &...args) : op_(op)
    {
        std::string record;
        (keep_record(record, args), ...);
        begin({to_arg(args)...}, std::move(record));
    }

    call(const call &)            = delete;
    call &operator=(const call &) = delete;

    bool failed() const
    {
        return failed_;
    }

    template <typename T, typename Effect>
    T answer(Effect effect)
    {
        const T result = failed_ ? from_number<T>(failure_) : effect();
        finish(to_number(result));
        return result;
    }

    template <typename Effect>
    void run(Effect effect)
    {
        if (!failed_)
            effect();
    }

private:
    template <typename T>
    static void keep_record(std::string &record, const T &arg)
    {
        if constexpr (std::is_same_v<T, record_arg>) {
            if (arg.data != nullptr)
                record.assign(static_cast<const char *>(arg.data), arg.size);
        }
    }

    void begin(std::vector<fake_arg> args, std::string record);
    void finish(uint64_t result);

    fake_op  op_;
    uint64_t id_      = 0;
    bool     failed_  = false;
    uint64_t failure_ = 0;
};

/* Writes a line of the platform itself; errors also reach standard error. */
void platform_line(uint32_t level, const char *func, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/* Handles of slabs, pools and block owners come from one counter; the mutex is held. */
uint64_t new_handle();

/* A memory block of exactly `size` bytes, filled with a pattern that is no zero. Never null. */
void *new_block(uint64_t size, uint64_t align);

/* ------------------------------------------------------------------ pools of objects */

struct pool_facts {
    std::string name;
    uint32_t    module_id;
    uint64_t    align;
    uint64_t    obj_size;
    uint64_t    min_num;
    uint64_t    max_num;
    bool        unlimited;   /* a memory pool with max_num 0 */
    bool        clears;      /* objects are cleared when they are allocated */
    uint64_t    enclosing;   /* handle of the enclosing pool, 0 = none */
};

struct pool_counts {
    uint64_t total, used;
};

/*
 * The operations that slabs and memory pools share; `op` names the operation in lines. None of
 * them records a call.
 */
uint64_t    objects_create(const pool_facts &facts, const char *op);
int         objects_destroy(uint64_t handle, bool only_when_empty, const char *op);
void       *object_take(uint64_t handle, const char *op);
int         object_give_back(uint64_t handle, void *object, const char *op);
bool        objects_counts(uint64_t handle, pool_counts *counts, const char *op);
bool        objects_facts(uint64_t handle, pool_facts *facts, const char *op);
bool        object_is_of(uint64_t handle, const void *object, const char *op);

/* True once a test has set what usage queries answer. */
bool usage_is_set();

/* True for no enclosing pool at all and for one that is alive. */
bool may_enclose(uint64_t handle);

/* What lives in an enclosing pool; the mutex is held. */
uint64_t slabs_inside(uint64_t enclosing);
uint64_t allocators_inside(uint64_t enclosing);

/* ------------------------------------------------------------------ other memory */

/* Owner of blocks: an allocator, a public pool, or the raw blocks (owner 0, always there). */
uint64_t new_block_owner();
bool     block_owner_alive(uint64_t owner);
void     end_block_owner(uint64_t owner); /* its blocks go with it */
void    *take_block(uint64_t owner, uint64_t size, uint64_t align);
bool     give_block_back(uint64_t owner, void *block); /* false for a foreign one */

/* The mutex is held. */
uint64_t blocks_out();
uint64_t blocks_out(uint64_t owner);
uint64_t enclosing_pools_alive();
bool     enclosing_pool_alive(uint64_t handle);

} // namespace fake

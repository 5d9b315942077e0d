/*
 * The bounded queue between the threads that log and the one that writes.
 *
 *     slot          0    1    2    3    4    5
 *     turn          2    2    1    0    0    0        before the second round
 *                             ^    ^
 *                  popped = 2 |    | claimed = 3
 *
 * A slot's turn says whose it is. In round r (position / SLOTS) it is
 *
 *     2r      free: whoever moves `s_claimed` on owns it and fills it,
 *     2r + 1  published: the writer's,
 *     2r + 2  popped, which is "free" of the next round.
 *
 * Claiming is one compare-exchange; a queue that is full is seen at once, since the slot's turn is
 * still in the former round. No lock is taken, nothing is allocated. The slots are zeroed memory of
 * the library, and touched only as far as lines were ever waiting.
 */
#include "log_local.h"

namespace zyax
{

static constexpr uint64_t SLOTS = 2048;

struct slot {
    uint64_t turn;
    log_line line;
};
static_assert(sizeof(slot) == 1024);

static slot s_slots[SLOTS];
static uint64_t s_claimed;
static uint64_t s_popped; /* moved by the writer only */

static uint64_t free_turn(uint64_t position)
{
    return position / SLOTS * 2;
}

static slot *slot_at(uint64_t position)
{
    return &s_slots[position % SLOTS];
}

log_line *log_queue_claim(uint64_t *position)
{
    uint64_t next = __atomic_load_n(&s_claimed, __ATOMIC_RELAXED);
    for (;;) {
        /* Acquire: the writer has read the former line out of the slot. */
        const uint64_t turn = __atomic_load_n(&slot_at(next)->turn, __ATOMIC_ACQUIRE);
        if (turn < free_turn(next))
            return nullptr;
        if (turn > free_turn(next)) {
            next = __atomic_load_n(&s_claimed, __ATOMIC_RELAXED);
            continue;
        }
        if (__atomic_compare_exchange_n(&s_claimed, &next, next + 1, true, __ATOMIC_RELAXED,
                                        __ATOMIC_RELAXED)) {
            *position = next;
            return &slot_at(next)->line;
        }
    }
}

void log_queue_publish(uint64_t position)
{
    /* Sequentially consistent: the caller next looks whether the writer sleeps, and the writer,
     * before it sleeps, looks for this store. One of the two must see the other. */
    __atomic_store_n(&slot_at(position)->turn, free_turn(position) + 1, __ATOMIC_SEQ_CST);
}

uint64_t log_queue_claimed(void)
{
    return __atomic_load_n(&s_claimed, __ATOMIC_RELAXED);
}

log_line *log_queue_front(void)
{
    slot *front = slot_at(s_popped);
    const uint64_t turn = __atomic_load_n(&front->turn, __ATOMIC_SEQ_CST);
    return turn == free_turn(s_popped) + 1 ? &front->line : nullptr;
}

void log_queue_pop(void)
{
    __atomic_store_n(&slot_at(s_popped)->turn, free_turn(s_popped) + 2, __ATOMIC_RELEASE);
    ++s_popped;
}

uint64_t log_queue_popped(void)
{
    return s_popped;
}

void log_queue_reset(void)
{
    for (slot &each : s_slots) {
        if (each.turn != 0)
            each.turn = 0;
    }
    s_claimed = 0;
    s_popped = 0;
}

} // namespace zyax

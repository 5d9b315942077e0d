/*
 * The stacks of magazines, and the supply of empty ones.
 *
 * Magazines are made in blocks of 128 and numbered from 1 in the order in which they were made; the
 * table of blocks turns a number into an address. Blocks are never given back: a machine has as
 * many magazines as the most objects that were ever free need, about one word an object.
 */
#include "zymm_magazine.h"

#include "zymm_lock.h"
#include "zymm_store.h"

namespace zymm
{

enum : uint32_t { BLOCK_MAGAZINES = 128, MOST_BLOCKS = 1 << 18 };

static std::atomic<magazine *> s_blocks[MOST_BLOCKS];
static std::atomic<uint32_t>   s_block_count; /* written under the supply's lock */
static magazine_stack          s_empty;
static control_store           s_store = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};
static pthread_mutex_t         s_supply_lock = PTHREAD_MUTEX_INITIALIZER;

magazine g_no_magazine;

static magazine *magazine_at(uint32_t number)
{
    const uint32_t at = number - 1;
    return s_blocks[at / BLOCK_MAGAZINES].load(std::memory_order_acquire) + at % BLOCK_MAGAZINES;
}

static uint64_t next_head(uint64_t head, uint32_t number)
{
    return ((head >> 32) + 1) << 32 | number;
}

void stack_push(magazine_stack *stack, magazine *m)
{
    uint64_t head = stack->head.load(std::memory_order_relaxed);
    do {
        m->below.store(uint32_t(head), std::memory_order_relaxed);
    } while (!stack->head.compare_exchange_weak(head, next_head(head, m->number),
                                                std::memory_order_acq_rel,
                                                std::memory_order_relaxed));
}

magazine *stack_pop(magazine_stack *stack)
{
    uint64_t head = stack->head.load(std::memory_order_acquire);
    while (uint32_t(head) != 0) {
        magazine *m = magazine_at(uint32_t(head));
        const uint32_t below = m->below.load(std::memory_order_relaxed);
        if (stack->head.compare_exchange_weak(head, next_head(head, below),
                                              std::memory_order_acq_rel,
                                              std::memory_order_acquire))
            return m;
    }
    return nullptr;
}

/* Makes a block, keeps one magazine of it for the caller. */
static magazine *make_block()
{
    const uint32_t made = s_block_count.load(std::memory_order_relaxed);
    if (made == MOST_BLOCKS)
        return nullptr;
    magazine *block =
        static_cast<magazine *>(store_get(&s_store, BLOCK_MAGAZINES * sizeof(magazine)));
    if (block == nullptr)
        return nullptr;
    s_blocks[made].store(block, std::memory_order_release);
    for (uint32_t at = 0; at < BLOCK_MAGAZINES; at++)
        block[at].number = made * BLOCK_MAGAZINES + at + 1;
    s_block_count.store(made + 1, std::memory_order_release);
    for (uint32_t at = 1; at < BLOCK_MAGAZINES; at++)
        stack_push(&s_empty, &block[at]);
    return block;
}

uint64_t magazines_made()
{
    return uint64_t(s_block_count.load(std::memory_order_acquire)) * BLOCK_MAGAZINES;
}

magazine *magazine_numbered(uint32_t number)
{
    return number != 0 && number <= magazines_made() ? magazine_at(number) : nullptr;
}

magazine *magazine_get()
{
    magazine *m = stack_pop(&s_empty);
    if (m != nullptr)
        return m;

    signal_guard quiet;
    scoped_lock held(&s_supply_lock);
    m = stack_pop(&s_empty); /* another thread may have made a block */
    return m != nullptr ? m : make_block();
}

void magazine_put(magazine *m)
{
    if (m != &g_no_magazine)
        stack_push(&s_empty, m);
}

} // namespace zymm

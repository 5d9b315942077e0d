/*
 * The once-guard. The word itself is its whole state, so words never hold each other up:
 *
 *     0 ----------> running (by thread t) ----------> done
 *     ^  first caller                      initialiser   |
 *     |                                     returned     |
 *     +--------------- a plain store of 0 ---------------+
 *
 * Callers that find it running sleep in the kernel on the word's low half, which differs in all
 * states: 0, the running thread's id, all ones. The result is stored before "done" is (release) and
 * read after "done" was seen (acquire). Any other value that is not 0 counts as done.
 *
 * A thread that asks for the word whose initialiser it is running would wait for itself: it is
 * refused with a line. Initialisers may use the guard on other words.
 */
#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "zymm_seam.h"

using namespace zymm;

enum : uint64_t {
    WORD_RUNNING = 0x52554E4E00000000, /* | thread id */
    WORD_DONE = 0x444F4E45FFFFFFFF,
    HIGH_HALF = 0xFFFFFFFF00000000,
};
enum : uint32_t { ONCE_FAILURE = 0xFFFFFFFF };

static bool is_running(uint64_t value)
{
    return (value & HIGH_HALF) == WORD_RUNNING;
}

static void wait_while(uint64_t *word, uint64_t value)
{
    syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, uint32_t(value), nullptr, nullptr, 0);
}

static void wake_all(uint64_t *word)
{
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, INT32_MAX, nullptr, nullptr, 0);
}

enum claim_result { CLAIM_RUN, CLAIM_DONE, CLAIM_MY_OWN };

/* Waits until the word is done, or claims the run, or finds out that the caller itself runs it. */
static claim_result claim(uint64_t *word)
{
    const uint64_t mine = WORD_RUNNING | uint32_t(syscall(SYS_gettid));
    uint64_t value = __atomic_load_n(word, __ATOMIC_ACQUIRE);
    for (;;) {
        if (value == mine)
            return CLAIM_MY_OWN;
        if (value != 0 && !is_running(value))
            return CLAIM_DONE;
        if (value == 0 && __atomic_compare_exchange_n(word, &value, mine, false, __ATOMIC_ACQUIRE,
                                                      __ATOMIC_ACQUIRE))
            return CLAIM_RUN;
        if (!is_running(value))
            continue;
        wait_while(word, value);
        value = __atomic_load_n(word, __ATOMIC_ACQUIRE);
    }
}

static uint32_t run(uint64_t *word, uint32_t (*initialiser)(void), uint32_t *status)
{
    const uint32_t result = initialiser();
    *status = result;
    __atomic_store_n(word, uint64_t(WORD_DONE), __ATOMIC_RELEASE);
    wake_all(word);
    return result;
}

uint32_t zymm_init_once(uint64_t *word, uint32_t (*initialiser)(void), uint32_t *status,
                        const char *name)
{
    if (word == nullptr || initialiser == nullptr || status == nullptr) {
        ZYMM_ERROR(__func__, "%s: word, initialiser or status is null.", text_of(name));
        return ONCE_FAILURE;
    }
    switch (claim(word)) {
    case CLAIM_RUN:
        return run(word, initialiser, status);
    case CLAIM_DONE:
        return *status;
    case CLAIM_MY_OWN:
        break;
    }
    ZYMM_ERROR(__func__, "%s: called again by its own initialiser.", text_of(name));
    return ONCE_FAILURE;
}

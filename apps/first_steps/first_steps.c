/*
 * The shortest process that lives on the common memory manager: start, pages with a time-out, data
 * in and out, pages back, stop. In C, because that is all the interface asks for.
 *
 *     first_steps DIR      DIR holds config/node_config.xml or node_config.xml
 */
#define _POSIX_C_SOURCE 200809L /* nanosleep */

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

#define MY_MODULE 901 /* owner of what this process takes */

struct answer {
    int  arrived;
    SGL *pages; /* null when the time-out passed */
};

/* Runs in this thread at once, in drive_queue, or, for a time-out, in the platform's timer thread
 * with the queue locked: it only notes what came. */
static void on_pages(void *pages, uint64_t arg, uint32_t result)
{
    struct answer *answer = (struct answer *)(uintptr_t)arg;

    (void)result; /* 0, or why there are no pages */
    answer->pages = pages;
    __atomic_store_n(&answer->arrived, 1, __ATOMIC_RELEASE);
}

static void on_failure(uint64_t arg)
{
    (void)arg; /* on_pages follows and brings null */
}

/* Serves requests that wait for pages: one thread of the process, at least every 10 ms. */
static void drive_queue(void)
{
    if (__atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED) != 0)
        page_start_retry();
    if (__atomic_load_n(&s_enter_retry_cnt, __ATOMIC_RELAXED) != 0)
        page_do_retry();
}

static SGL *wait_for_pages(uint32_t count, uint32_t seconds)
{
    const struct timespec pause = {0, 1000000};
    struct answer answer = {0, NULL};
    const uint64_t arg = (uint64_t)(uintptr_t)&answer;

    allocMultiPagesForPagePoolTimeOut(count, NULL, seconds, on_pages, arg, on_failure, arg,
                                      MY_MODULE, __func__, __LINE__);
    while (__atomic_load_n(&answer.arrived, __ATOMIC_ACQUIRE) == 0) {
        drive_queue();
        nanosleep(&pause, NULL);
    }
    return answer.pages;
}

/* Through 20 pages and back: 100,000 bytes of data, the integrity bytes between them untouched. */
static int move_data(void)
{
    static char sent[100000], received[sizeof sent];
    SGL *pages = wait_for_pages(20, 5);
    int same;

    if (pages == NULL)
        return 0;
    memset(sent, 'x', sizeof sent);
    copyDataFromBufferToSglIgnoreDif(pages, 0, sent, sizeof sent);
    copyDataFromSglToBufferIgnoreDif(pages, 0, received, sizeof received);
    same = memcmp(sent, received, sizeof sent) == 0;
    freeMultiPages(pages, MY_MODULE, __func__, __LINE__);
    return same;
}

int main(int argc, char **argv)
{
    int moved;

    if (argc != 2) {
        fprintf(stderr, "usage: first_steps DIR\n");
        return 2;
    }
    if (zyumm_set_config_path(argv[1], __func__, __LINE__) != CMM_OK || cmm_module_init() != CMM_OK)
        return 1;
    moved = s_page_partition_id != 0 && move_data();
    if (cmm_module_exit() != CMM_OK || !moved)
        return 1;
    printf("moved, and stopped clean\n");
    return 0;
}

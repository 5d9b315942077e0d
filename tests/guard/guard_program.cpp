/*
 * A process with one planted mistake, for a memory checker to find.
 *
 *     guard_program MISTAKE
 *
 * It starts the library, makes the mistake, and stops the library. Before the mistake it prints the
 * line that makes it, "planted at guard_program.cpp:<line>", which is where the checker must point.
 * Without a checker it may do anything.
 */
#include <cstdio>
#include <cstring>

#include "stack/node_process.h"

#define PLANT(statement)                                                                           \
    do {                                                                                           \
        printf("planted at guard_program.cpp:%d\n", __LINE__);                                     \
        fflush(stdout);                                                                            \
        statement;                                                                                 \
    } while (0)

namespace
{

enum : uint32_t { MODULE = 91 };

page_ctrl *take_page()
{
    return allocOnePageSync(MODULE, __func__, __LINE__);
}

volatile uint8_t *data_of(page_ctrl *ctrl)
{
    return getPageAddrByPageCtrl(ctrl);
}

void free_page(page_ctrl *ctrl)
{
    freeOnePage(ctrl, MODULE, __func__, __LINE__);
}

SGL *run_of_pages(uint32_t count)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(count, &chain, MODULE, __func__, __LINE__);
    return chain;
}

void free_run(SGL *chain)
{
    freeMultiPages(chain, MODULE, __func__, __LINE__);
}

void none()
{
    page_ctrl *const ctrl = take_page();
    SGL *const       run  = run_of_pages(70);
    char             bytes[8192] = {};
    data_of(ctrl)[100] = 1;
    copyDataFromBufferToSglIgnoreDif(run, 0, bytes, sizeof bytes);
    copyDataFromSglToBufferIgnoreDif(run, 0, bytes, sizeof bytes);
    free_run(run);
    free_page(ctrl);
    free_page(take_page());
}

void page_data_written()
{
    page_ctrl *const        ctrl = take_page();
    volatile uint8_t *const data = data_of(ctrl);
    free_page(ctrl);
    PLANT(data[4000] = 1);
}

void page_data_read()
{
    page_ctrl *const        ctrl = take_page();
    volatile uint8_t *const data = data_of(ctrl);
    data[8000]                   = 1;
    free_page(ctrl);
    uint8_t seen = 0;
    PLANT(seen = data[8000]);
    printf("%d\n", seen);
}

/* The page lies in the cache of a thread that is no more. */
void page_data_written_after_another_thread_freed_it()
{
    page_ctrl *const        ctrl = take_page();
    volatile uint8_t *const data = data_of(ctrl);
    std::thread(free_page, ctrl).join();
    PLANT(data[0] = 1);
}

/* 8376 bytes are a page's data, integrity bytes and record. */
void page_written_past_its_end()
{
    page_ctrl *const        ctrl = take_page();
    volatile uint8_t *const data = data_of(ctrl);
    PLANT(data[8376] = 1);
    free_page(ctrl);
}

void sgl_written()
{
    SGL *chain = nullptr;
    allocOneSgl(&chain, MODULE, __func__, __LINE__);
    freeSglChain(chain, MODULE, __func__, __LINE__);
    PLANT(chain->userTag = 42);
}

void sgl_read()
{
    SGL *const run = run_of_pages(3);
    free_run(run);
    uint32_t seen = 0;
    PLANT(seen = run->entrySumInChain);
    printf("%u\n", seen);
}

/* The library is led into the freed chain. */
void sgl_given_to_an_operation()
{
    char       bytes[512] = {};
    SGL *const run        = run_of_pages(3);
    free_run(run);
    PLANT(copyDataFromBufferToSgl(run, 0, bytes, sizeof bytes));
}

/* The chain lives, one of its pages does not: the library copies out of a freed page. */
void page_of_a_chain_given_to_an_operation()
{
    char       bytes[512] = {};
    SGL *const run        = run_of_pages(3);
    copyDataFromBufferToSgl(run, 0, bytes, sizeof bytes);
    free_page(static_cast<page_ctrl *>(run->entries[0].pageCtrl));
    PLANT(copyDataFromSglToBuffer(run, 0, bytes, sizeof bytes));
}

struct mistake {
    const char *name;
    void (*make)();
};

const mistake MISTAKES[] = {
    {"none", none},
    {"page_data_written", page_data_written},
    {"page_data_read", page_data_read},
    {"page_data_written_after_another_thread_freed_it",
     page_data_written_after_another_thread_freed_it},
    {"page_written_past_its_end", page_written_past_its_end},
    {"sgl_written", sgl_written},
    {"sgl_read", sgl_read},
    {"sgl_given_to_an_operation", sgl_given_to_an_operation},
    {"page_of_a_chain_given_to_an_operation", page_of_a_chain_given_to_an_operation},
};

} // namespace

int main(int argc, char **argv)
{
    const config_directory config({100, 64, 8});
    for (const mistake &each : MISTAKES) {
        if (argc != 2 || strcmp(argv[1], each.name) != 0)
            continue;
        if (cmm_module_init() != 0)
            return 3;
        each.make();
        return cmm_module_exit() == 0 ? 0 : 4;
    }
    fprintf(stderr, "guard_program: no such mistake\n");
    return 2;
}

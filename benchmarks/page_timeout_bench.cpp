/*
 * One page through the time-out operation when the pool has it at once, and back: what asking with
 * a call-back costs beyond page_pair_hot, to which the report compares it.
 */
#include "harness.h"

namespace bench
{

static void on_page(void *page, uint64_t place, uint32_t)
{
    *reinterpret_cast<page_ctrl **>(place) = static_cast<page_ctrl *>(page);
}

static void on_failure(uint64_t)
{
    fail("a page that the pool has was refused");
}

template <class L>
static void timeout_served(state &run)
{
    page_ctrl *page = nullptr;
    for (auto _ : run) {
        L::allocOnePageForPagePoolTimeOut(nullptr, 1, on_page, reinterpret_cast<uint64_t>(&page),
                                          on_failure, 0, MODULE, __func__, __LINE__);
        benchmark::DoNotOptimize(page);
        L::freeOnePage(page, MODULE, __func__, __LINE__);
    }
}

void add_page_timeout(void)
{
    our_forms::each([]<class L>(std::type_identity<L>) {
        add("timeout_served", L::NAME, 1, timeout_served<L>);
    });
}

} // namespace bench

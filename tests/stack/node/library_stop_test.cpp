/*
 * A program's stop of the library, while the library's own timer is at work.
 */
#include <gmock/gmock.h>

#include <unistd.h>

#include <atomic>
#include <vector>

#include "config_directory.h"
#include "library_use.h"
#include "zyumm_cmm_page.h"

namespace {

constexpr uint32_t MODULE = 80;
constexpr uint32_t PAGES = 64;

std::vector<page_ctrl *> s_pages;
std::atomic<bool>        s_tick_began;
std::atomic<bool>        s_tick_ended;

/* Far longer than a stop takes that does not wait for the tick. */
void give_all_back_slowly(uint64_t)
{
    if (s_tick_began.exchange(true))
        return;
    usleep(100000);
    for (page_ctrl *page : s_pages)
        freeOnePage(page, MODULE, __func__, __LINE__);
    s_tick_ended = true;
}

} // namespace

TEST(LibraryStop, waits_for_a_tick_that_runs_and_leaves_it_nothing_to_complain_about)
{
    const config_directory config({PAGES, 16, 8});
    library_use library(config.path());
    for (uint32_t i = 0; i < PAGES; ++i)
        s_pages.push_back(allocOnePageSync(MODULE, __func__, __LINE__));
    ASSERT_EQ(zyumm_page_evict_handler_reg(0, give_all_back_slowly, 0, MODULE, __func__), 0u);
    ::testing::internal::CaptureStderr();

    while (!s_tick_began)
        usleep(100);
    EXPECT_TRUE(library.stop());

    EXPECT_TRUE(s_tick_ended);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

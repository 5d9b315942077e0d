/*
 * Set-up shared by the page tests: a partition of the memory manager, the SGL pool, the page pool
 * and, where a test wants it, the retry queue, all on the programmable platform.
 *
 * The page pool is configured far larger than most tests need, since the queue gets one record for
 * each 8 pages; a test that wants a dry pool limits it with dry_pool or leave_pages.
 */
#pragma once

#include <string>
#include <vector>

#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

#include "zyumm_cmm_page/page_local.h"

#include "fake/expect_log.h"

/* The identity with which the tests ask for pages. */
inline constexpr uint32_t MODULE = 77;
inline constexpr char OWNER[] = "the owner";

inline std::string hex(uint64_t number)
{
    char text[32];
    snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

inline std::string hex(const volatile void *pointer)
{
    return hex(reinterpret_cast<uint64_t>(pointer));
}

/* What a page with integrity texts reads when all its data bytes are `fill`. */
inline std::string page_content(char fill)
{
    std::string content;
    for (int sector = 0; sector < 16; ++sector) {
        content.append(512, fill);
        content.append("CMMREDIF");
    }
    return content;
}

inline void configure(uint32_t page_min, uint32_t page_max)
{
    if (g_cmm_umm_partition == 0)
        g_cmm_umm_partition = zyumm_partition_create(1, 0, 0, "cmm_moduleInit");
    g_ucmm_config.page_min = page_min;
    g_ucmm_config.page_max = page_max;
    g_ucmm_config.sgl_max = 2000;
}

/* What happened in the set-up is no business of the test's. */
inline void forget_everything()
{
    fake_forget_calls();
    fake_forget_log();
}

/* Lets every limiter begin a new window, so that a burst fits into it again. */
inline void reopen_limiters()
{
    fake_set_jiffies(5000000);
}

inline void start_pages(uint32_t page_max = 800)
{
    configure(0, page_max);
    ASSERT_EQ(cmm_create_sgl_mempool(), 0);
    ASSERT_EQ(create_page_mempool(), 0u);
    forget_everything();
}

inline void start_queue()
{
    ASSERT_EQ(page_init_retry(), 0u);
    forget_everything();
}

/* Lets `count` more pages out of the pool. */
inline void leave_pages(uint64_t count)
{
    fake_limit(s_page_partition_id, fake_objects_out(s_page_partition_id) + count);
}

inline void dry_pool()
{
    leave_pages(0);
}

inline page_ctrl *take_page()
{
    return allocOnePageSync(MODULE, OWNER, 11);
}

inline uint64_t pages_out()
{
    return fake_objects_out(s_page_partition_id);
}

inline uint64_t requests_out()
{
    return fake_objects_out(s_page_request_id);
}

/* ---- call-backs that keep what they were told */

/* "fail 7" and "end 7 0x0": the call-back and its argument, and the return code of the second. */
inline std::vector<std::string> events;
inline std::vector<void *> results; /* of the second call-back, in the same order */

inline void on_fail(uint64_t arg)
{
    events.push_back("fail " + std::to_string(arg));
}

inline void on_end(void *result, uint64_t arg, uint32_t ret)
{
    events.push_back("end " + std::to_string(arg) + " " + hex(uint64_t(ret)));
    results.push_back(result);
}

inline void ask_page(uint64_t id, uint32_t timeout = 5)
{
    allocOnePageForPagePoolTimeOut(nullptr, timeout, on_end, id, on_fail, id, MODULE, OWNER, 21);
}

inline void ask_run(uint64_t id, uint32_t page_cnt, uint32_t timeout = 5)
{
    allocMultiPagesForPagePoolTimeOut(page_cnt, nullptr, timeout, on_end, id, on_fail, id, MODULE,
                                      OWNER, 22);
}

/* A run of the queue as a kick and the embedder make it. */
inline void run_once()
{
    page_start_retry();
    page_do_retry();
}

/* The n-th record on the list, from 0 at the front. */
inline page_retry_req *queued(unsigned n)
{
    list_link *link = s_retry_req_list.head.next;
    for (; n > 0; --n)
        link = link->next;
    return retry_record(link);
}

/* Arguments of the queued requests, front first. */
inline std::vector<uint64_t> queue()
{
    std::vector<uint64_t> ids;
    list_link *const head = &s_retry_req_list.head;
    for (list_link *link = head->next; link != nullptr && link != head; link = link->next)
        ids.push_back(retry_record(link)->cbArg);
    return ids;
}

using texts = std::vector<std::string>;
using ids = std::vector<uint64_t>;

/* ---- fixtures */

class with_pages : public ::testing::Test
{
protected:
    void SetUp() override { start_pages(); }
};

/* Pages and a queue, and no page to be had. */
class with_dry_pool : public ::testing::Test
{
protected:
    void SetUp() override
    {
        start_pages();
        start_queue();
        dry_pool();
    }
};

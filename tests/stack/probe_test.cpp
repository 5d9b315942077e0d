/*
 * The static probes, as a tracer meets them: each fires where docs/operating.md says, and its
 * arguments are what that table names.
 */
#include "node_process.h"
#include "probe_trap.h"

#include "zyax.h"
#include "zymm.h"

#include <chrono>
#include <future>

static constexpr uint32_t MODULE = 77;

namespace
{

/* The library with so many pages, all of them out. */
class dry_process
{
public:
    explicit dry_process(uint32_t pages) : m_config({pages, 2, 2})
    {
        EXPECT_EQ(cmm_module_init(), 0u);
        for (uint32_t i = 0; i < pages; ++i)
            m_pages.push_back(allocOnePageSync(MODULE, __func__, __LINE__));
    }

    ~dry_process()
    {
        free_all();
        EXPECT_EQ(cmm_module_exit(), 0u);
    }

    dry_process(const dry_process &) = delete;
    dry_process &operator=(const dry_process &) = delete;

    void free_all()
    {
        for (page_ctrl *page : m_pages)
            freeOnePage(page, MODULE, __func__, __LINE__);
        m_pages.clear();
    }

private:
    config_directory m_config;
    std::vector<page_ctrl *> m_pages;
};

struct ending {
    std::atomic<uint32_t> calls{0};
    uint32_t code = 0;
};

void on_failure(uint64_t)
{
}

void on_end(void *chain, uint64_t arg, uint32_t code)
{
    ending *end = reinterpret_cast<ending *>(arg);
    if (chain != nullptr)
        freeMultiPages(static_cast<SGL *>(chain), MODULE, __func__, __LINE__);
    end->code = code;
    end->calls++;
}

void ask_for_pages(uint32_t count, uint32_t seconds, ending *end)
{
    const uint64_t arg = reinterpret_cast<uint64_t>(end);
    allocMultiPagesForPagePoolTimeOut(count, nullptr, seconds, on_end, arg, on_failure, arg, MODULE,
                                      "the asker", 123);
}

/* Waits, within a bound, for what another thread does. */
template <typename Claim>
bool comes_true(Claim claim)
{
    for (int i = 0; i < 60000; ++i) {
        if (claim())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

void expect_refusal(const probe_trap::hit &hit, const char *what, uint32_t count, uint32_t line)
{
    ASSERT_EQ(hit.count, 5u);
    EXPECT_STREQ(text_at(hit.arguments[0]), what);
    EXPECT_EQ(hit.arguments[1], count);
    EXPECT_EQ(hit.arguments[2], MODULE);
    EXPECT_STREQ(text_at(hit.arguments[3]), "the asker");
    EXPECT_EQ(hit.arguments[4], line);
}

} // namespace

TEST(Probe, a_refused_page_and_a_refused_run_name_their_asker)
{
    const dry_process process(8);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:alloc_refused"});
    SGL *chain = nullptr;

    EXPECT_EQ(allocOnePageSync(MODULE, "the asker", 5), nullptr);
    allocMultiPagesSync(70, &chain, MODULE, "the asker", 6);

    ASSERT_EQ(trap.hits(), 3u);
    expect_refusal(trap.at(0), "page", 1, 5);
    expect_refusal(trap.at(1), "page", 1, 6);
    expect_refusal(trap.at(2), "page run", 70, 6);
}

TEST(Probe, a_run_without_a_chain_is_refused_twice)
{
    const dry_process process(8);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:alloc_refused"});
    SGL *chain = nullptr;

    allocMultiPagesSync(1000, &chain, MODULE, "the asker", 6);

    ASSERT_EQ(trap.hits(), 2u);
    expect_refusal(trap.at(0), "sgl", 1, 6);
    expect_refusal(trap.at(1), "page run", 1000, 6);
}

TEST(Probe, refused_records_and_structures_name_their_asker)
{
    const dry_process process(8);
    cmm_req *reqs[3] = {};
    void *structure = nullptr;
    allocReq(&reqs[0], MODULE, __func__, __LINE__);
    allocReq(&reqs[1], MODULE, __func__, __LINE__);
    {
        const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:alloc_refused"});

        allocReq(&reqs[2], MODULE, "the asker", 7);
        allocStructure(MODULE, 5, &structure, "the asker");

        ASSERT_EQ(trap.hits(), 2u);
        expect_refusal(trap.at(0), "req", 1, 7);
        expect_refusal(trap.at(1), "structure", 1, 0);
    }
    freeReq(reqs[0], MODULE, __func__, __LINE__);
    freeReq(reqs[1], MODULE, __func__, __LINE__);
}

TEST(Probe, a_request_that_cannot_even_wait_is_a_refusal)
{
    const dry_process process(8); /* the queue holds one */
    ending first, second;
    ask_for_pages(2, 1000, &first);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:alloc_refused"});

    ask_for_pages(3, 1000, &second);

    EXPECT_EQ(second.calls, 1u);
    ASSERT_EQ(trap.hits(), 5u); /* both attempts before it, a page and a run each */
    expect_refusal(trap.at(4), "retry request", 1, 123);
}

TEST(Probe, a_request_is_followed_from_the_queue_to_its_pages)
{
    dry_process process(8);
    ending end;
    const probe_trap trap("libzyumm_cmm.so",
                          {"zyumm_cmm:request_queued", "zyumm_cmm:request_served"});

    const uint64_t before = zyax_time_getnanosec();
    ask_for_pages(2, 1000, &end);
    const uint64_t queued = zyax_time_getnanosec();
    process.free_all();
    page_start_retry();
    page_do_retry();

    ASSERT_EQ(end.calls, 1u);
    ASSERT_EQ(trap.hits(), 2u);
    const probe_trap::hit in = trap.at(0);
    const probe_trap::hit out = trap.at(1);
    ASSERT_EQ(in.count, 6u);
    EXPECT_EQ(in.probe, 0u);
    EXPECT_EQ(in.arguments[1], 2u);
    EXPECT_EQ(in.arguments[2], 1000u);
    EXPECT_EQ(in.arguments[3], MODULE);
    EXPECT_STREQ(text_at(in.arguments[4]), "the asker");
    EXPECT_EQ(in.arguments[5], 123u);

    ASSERT_EQ(out.count, 6u);
    EXPECT_EQ(out.probe, 1u);
    EXPECT_EQ(out.arguments[0], in.arguments[0]);
    EXPECT_EQ(out.arguments[1], 2u);
    EXPECT_GE(out.arguments[2], before);
    EXPECT_LE(out.arguments[2], queued);
    EXPECT_EQ(out.arguments[3], MODULE);
    EXPECT_STREQ(text_at(out.arguments[4]), "the asker");
    EXPECT_EQ(out.arguments[5], 123u);
}

TEST(Probe, a_request_that_times_out_says_since_when_it_waited)
{
    const dry_process process(8);
    ending end;
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:request_timed_out"});

    const uint64_t before = zyax_time_getnanosec();
    ask_for_pages(2, 0, &end);
    const uint64_t queued = zyax_time_getnanosec();
    ASSERT_TRUE(comes_true([&end] { return end.calls == 1; }));

    EXPECT_EQ(end.code, 0x80009301u);
    ASSERT_EQ(trap.hits(), 1u);
    const probe_trap::hit hit = trap.at(0);
    ASSERT_EQ(hit.count, 6u);
    EXPECT_EQ(hit.arguments[1], 2u);
    EXPECT_GE(hit.arguments[2], before);
    EXPECT_LE(hit.arguments[2], queued);
    EXPECT_EQ(hit.arguments[3], MODULE);
    EXPECT_STREQ(text_at(hit.arguments[4]), "the asker");
    EXPECT_EQ(hit.arguments[5], 123u);
}

TEST(Probe, a_retry_run_says_when_it_began)
{
    const dry_process process(8);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:retry_run"});

    const uint64_t before = zyax_time_getnanosec();
    page_do_retry();
    const uint64_t after = zyax_time_getnanosec();

    ASSERT_EQ(trap.hits(), 1u);
    ASSERT_EQ(trap.at(0).count, 1u);
    EXPECT_GE(trap.at(0).arguments[0], before);
    EXPECT_LE(trap.at(0).arguments[0], after);
}

TEST(Probe, a_time_out_walk_says_when_it_began)
{
    const dry_process process(8);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:timeout_walk"});

    const uint64_t before = zyax_time_getnanosec();
    ASSERT_TRUE(comes_true([&trap] { return trap.hits() >= 2; }));
    const uint64_t after = zyax_time_getnanosec();

    ASSERT_EQ(trap.at(1).count, 1u);
    EXPECT_GE(trap.at(1).arguments[0], before);
    EXPECT_LE(trap.at(1).arguments[0], after);
}

static void give_nothing_back(uint64_t)
{
}

TEST(Probe, an_eviction_call_back_is_seen_on_both_sides)
{
    const dry_process process(8);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:evict_call", "zyumm_cmm:evict_return"});

    ASSERT_EQ(zyumm_page_evict_handler_reg(0, give_nothing_back, 1234, MODULE, __func__), 0u);
    ASSERT_TRUE(comes_true([&trap] { return trap.hits() >= 2; }));

    for (size_t side : {0u, 1u}) {
        const probe_trap::hit hit = trap.at(side);
        ASSERT_EQ(hit.count, 3u);
        EXPECT_EQ(hit.probe, side);
        EXPECT_EQ(hit.arguments[0], reinterpret_cast<uint64_t>(give_nothing_back));
        EXPECT_EQ(hit.arguments[1], 1234u);
        EXPECT_EQ(hit.arguments[2], MODULE);
    }
}

static uint64_t make_slab(const char *name, uint64_t attr, uint32_t objects)
{
    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    strncpy(param.name, name, sizeof param.name - 1);
    param.module_id = MODULE;
    param.attr = attr;
    param.obj_size = 64;
    param.max_num = objects;
    return zymm_create_slab(&param, MODULE, __func__);
}

TEST(Probe, a_growing_slab_says_by_how_much)
{
    const uint64_t slab = make_slab("growing", 0, 100);
    ASSERT_NE(slab, 0u);
    {
        const probe_trap trap("libzymm.so", {"zymm:slab_grown"});

        void *object = zymm_slab_malloc(slab, MODULE, __func__, __LINE__);

        ASSERT_NE(object, nullptr);
        ASSERT_EQ(trap.hits(), 1u);
        ASSERT_EQ(trap.at(0).count, 4u);
        EXPECT_STREQ(text_at(trap.at(0).arguments[0]), "growing");
        EXPECT_EQ(trap.at(0).arguments[2], 100u);
        EXPECT_GE(trap.at(0).arguments[3], 6400u);
        zymm_slab_free(slab, object, MODULE, __func__);
    }
    EXPECT_EQ(zymm_destory_slab(slab, MODULE, __func__), 0);
}

/* One object is free in another thread's cache. */
TEST(Probe, drained_caches_tell_the_pool_and_what_was_found)
{
    const uint64_t slab = make_slab("scarce", ZYMM_SLAB_CACHED, 8);
    std::promise<void> is_cached, may_end;
    std::vector<void *> taken;
    std::thread hoarder([&] {
        zymm_slab_free(slab, zymm_slab_malloc(slab, MODULE, __func__, __LINE__), MODULE, __func__);
        is_cached.set_value();
        may_end.get_future().wait();
    });
    is_cached.get_future().wait();
    {
        const probe_trap trap("libzymm.so", {"zymm:caches_drained"});
        for (int i = 0; i < 8; ++i)
            taken.push_back(zymm_slab_malloc(slab, MODULE, __func__, __LINE__));

        ASSERT_GE(trap.hits(), 1u);
        ASSERT_EQ(trap.at(0).count, 2u);
        EXPECT_STREQ(text_at(trap.at(0).arguments[0]), "scarce");
        EXPECT_EQ(std::count(taken.begin(), taken.end(),
                             reinterpret_cast<void *>(trap.at(0).arguments[1])),
                  1);
    }
    may_end.set_value();
    hoarder.join();
    for (void *object : taken)
        zymm_slab_free(slab, object, MODULE, __func__);
    EXPECT_EQ(zymm_destory_slab(slab, MODULE, __func__), 0);
}

TEST(Probe, a_refusal_has_its_probe_at_every_place)
{
    const dry_process process(8);
    const probe_trap trap("libzyumm_cmm.so", {"zyumm_cmm:alloc_refused"});

    EXPECT_GE(trap.places(), 7u);
}

/*
 * Page, SGL and request pools that an outside component makes inside enclosing pools of its own,
 * on real memory: what they serve and count, who owns them, what becomes of them at the stop, and
 * how creation fails.
 */
#include <array>
#include <cstring>
#include <vector>

#include "node_process.h"
#include "zyumm_cmm_buffer.h"
#include "zyumm_pub.h"

static constexpr uint32_t MODULE = 83;
static constexpr uint32_t OUTSIDER = 500;
static constexpr uint64_t ATTRIBUTES = 0x10; /* per-thread caches, as outside creators say it */
static constexpr uint64_t MEBIBYTE = 1 << 20;

namespace
{

uint64_t enclosing_pool(uint64_t bytes)
{
    return zymm_pool_create("an outsider's", bytes, 0, OUTSIDER, "the outsider");
}

uint32_t create_pages(uint64_t pool)
{
    return zyumm_page_slab_create(pool, ATTRIBUTES, OUTSIDER, "the outsider");
}

int32_t create_sgls(uint64_t pool)
{
    return zyumm_sgl_slab_create(pool, ATTRIBUTES, OUTSIDER, "the outsider");
}

uint32_t create_reqs(uint64_t pool)
{
    return zyumm_req_slab_create(pool, ATTRIBUTES, OUTSIDER, "the outsider");
}

uint64_t reqs_out()
{
    zyumm_partition_info info = {};
    zyumm_req_info_get(&info);
    return info.used;
}

/* A process that leaves its standing pools to an outsider: 256 pages, 64 SGLs, 32 requests. */
class OutsideCreator : public ::testing::Test
{
protected:
    OutsideCreator() : config_({256, 64, 32})
    {
        zyumm_partition_creator_set(CMM_CREATOR_PAGE | CMM_CREATOR_SGL | CMM_CREATOR_REQ);
    }

    void SetUp() override
    {
        ASSERT_EQ(cmm_module_init(), 0u);
    }

    void create_all(uint64_t pool)
    {
        ASSERT_EQ(create_pages(pool), 0u);
        ASSERT_EQ(create_sgls(pool), 0);
        ASSERT_EQ(create_reqs(pool), 0u);
    }

private:
    const config_directory config_;
};

/* What one request of a component takes and gives back; 0 when all went well. */
uint32_t take_and_return(uint32_t pages, uint8_t fill)
{
    const std::vector<uint8_t> source(pages * 8192, fill);
    std::vector<uint8_t> back(source.size());
    cmm_req *req = nullptr;
    SGL *chain = nullptr;
    allocReq(&req, MODULE, __func__, __LINE__);
    allocMultiPagesSync(pages, &chain, MODULE, __func__, __LINE__);
    if (req == nullptr || chain == nullptr)
        return 1;

    const uint32_t bytes = uint32_t(source.size());
    const bool is_same = copyDataFromBufferToSglIgnoreDif(chain, 0, source.data(), bytes) == 0 &&
                         copyDataFromSglToBufferIgnoreDif(chain, 0, back.data(), bytes) == 0 &&
                         back == source;
    freeMultiPages(chain, MODULE, __func__, __LINE__);
    freeReq(req, MODULE, __func__, __LINE__);
    return is_same ? 0 : 1;
}

} // namespace

TEST_F(OutsideCreator, a_start_leaves_the_pools_to_the_outsider)
{
    cmm_req *req = nullptr;
    SGL *sgl = nullptr;

    allocReq(&req, MODULE, __func__, __LINE__);
    allocSglChain(&sgl, 1, MODULE, __func__, __LINE__);
    EXPECT_EQ(req, nullptr);
    EXPECT_EQ(sgl, nullptr);
    EXPECT_EQ(allocOnePageSync(MODULE, __func__, __LINE__), nullptr);
    EXPECT_EQ(g_cmm_part_sum, 0u) << "the zero pages come with the pages";
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST_F(OutsideCreator, pools_belong_to_the_outsider_and_count_what_is_out)
{
    const uint64_t pool = enclosing_pool(8 * MEBIBYTE);
    create_all(pool);
    SGL *chain = nullptr;
    cmm_req *req = nullptr;
    allocMultiPagesSync(70, &chain, MODULE, __func__, __LINE__);
    allocReq(&req, MODULE, __func__, __LINE__);

    zyumm_partition_info pages = {}, sgls = {}, reqs = {};
    ASSERT_EQ(zyumm_page_info_get(&pages), 0);
    ASSERT_EQ(zyumm_sgl_info_get(&sgls), 0);
    ASSERT_EQ(zyumm_req_info_get(&reqs), 0);
    EXPECT_EQ((std::array{pages.module_id, sgls.module_id, reqs.module_id}),
              (std::array{500u, 500u, 500u}));
    EXPECT_EQ((std::array{pages.total, sgls.total, reqs.total}),
              (std::array<uint64_t, 3>{256, 64, 32}));
    EXPECT_EQ((std::array{pages.used, sgls.used, reqs.used}), (std::array<uint64_t, 3>{70, 2, 1}));
    EXPECT_STREQ(pages.name, "PAGE PARTITION");
    uint64_t total = 0, used = 0, unused = 0;
    get_page_count(&total, &used, &unused);
    EXPECT_EQ((std::array{total, used, unused}), (std::array<uint64_t, 3>{256, 70, 186}));

    freeMultiPages(chain, MODULE, __func__, __LINE__);
    freeReq(req, MODULE, __func__, __LINE__);
    EXPECT_EQ(pages_out() + sgls_out() + reqs_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST_F(OutsideCreator, the_stop_takes_the_pools_down_and_leaves_the_enclosing_pool_to_its_maker)
{
    const uint64_t pool = enclosing_pool(8 * MEBIBYTE);
    create_all(pool);
    EXPECT_NE(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0) << "three slabs live in it";

    EXPECT_EQ(cmm_module_exit(), 0u) << "with a clean audit";
    EXPECT_EQ(s_page_partition_id + g_sgl_partition_id + g_req_partition_id, 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_EQ(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0);
}

TEST_F(OutsideCreator, a_process_may_stop_and_start_with_pools_of_another_outsider)
{
    for (int round = 0; round < 10; ++round) {
        const uint64_t pool = enclosing_pool(8 * MEBIBYTE);
        create_all(pool);
        EXPECT_EQ(take_and_return(64, 0x3C), 0u);
        ASSERT_EQ(cmm_module_exit(), 0u);
        ASSERT_EQ(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0);
        ASSERT_EQ(cmm_module_init(), 0u);
    }
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST_F(OutsideCreator, eight_threads_share_the_outsiders_pools)
{
    const uint64_t pool = enclosing_pool(8 * MEBIBYTE);
    create_all(pool);
    std::atomic<uint32_t> wrong{0};
    std::vector<std::thread> threads;
    for (uint32_t id = 0; id < 8; ++id)
        threads.emplace_back([id, &wrong] {
            for (uint32_t round = 0; round < 60; ++round)
                wrong += take_and_return(1 + (id + round) % 32, uint8_t(id));
        });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(pages_out() + sgls_out() + reqs_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
    EXPECT_EQ(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0);
}

TEST_F(OutsideCreator, a_request_that_waits_for_the_outsiders_pages_is_served)
{
    create_all(enclosing_pool(8 * MEBIBYTE));
    SGL *all = nullptr;
    allocMultiPagesSync(256, &all, MODULE, __func__, __LINE__);
    ASSERT_NE(all, nullptr);

    static std::atomic<page_ctrl *> answer{nullptr};
    allocOnePageForPagePoolTimeOut(
        nullptr, PAGE_TIMEOUT_NEVER,
        [](void *page, uint64_t, uint32_t) { answer = static_cast<page_ctrl *>(page); }, 0,
        [](uint64_t) {}, 0, MODULE, __func__, __LINE__);
    EXPECT_EQ(s_retry_req_list.sum, 1u);
    {
        retry_poller poller;
        freeMultiPages(all, MODULE, __func__, __LINE__);
        poller.signal();
        while (answer.load() == nullptr)
            std::this_thread::yield();
    }
    freeOnePage(answer, MODULE, __func__, __LINE__);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/* ------------------------------------------------------------------ the buffer pool */

TEST_F(OutsideCreator, pages_in_a_registered_pool_belong_to_the_library_and_reserve_nothing)
{
    cmm_config_info info = {};
    info.pool_id = enclosing_pool(MEBIBYTE); /* 256 pages need 2 MiB and more */
    ASSERT_EQ(zyumm_cmm_pool_info_set(&info, nullptr), 0u);
    ASSERT_EQ(create_pages(info.pool_id), 0u);

    zyumm_partition_info pages = {};
    ASSERT_EQ(zyumm_page_info_get(&pages), 0);
    EXPECT_EQ(pages.module_id, 386u);
    EXPECT_EQ(pages.min_num, 0u);
    EXPECT_EQ(pages.max_num, 256u);
    EXPECT_EQ(cmm_module_exit(), 0u);
    cmm_destory_buffer_mempool();
    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
    EXPECT_NE(zymm_pool_destory(info.pool_id, OUTSIDER, "the outsider"), 0) << "it is gone";
}

TEST_F(OutsideCreator, a_registered_pool_gives_the_pages_that_fit_and_takes_them_back)
{
    cmm_config_info info = {};
    info.pool_id = enclosing_pool(MEBIBYTE);
    ASSERT_EQ(zyumm_cmm_pool_info_set(&info, nullptr), 0u);
    ASSERT_EQ(create_pages(info.pool_id), 0u);

    std::vector<page_ctrl *> pages;
    for (page_ctrl *page = allocOnePageSync(MODULE, __func__, __LINE__); page != nullptr;
         page = allocOnePageSync(MODULE, __func__, __LINE__))
        pages.push_back(page);
    EXPECT_GE(pages.size(), 100u);
    EXPECT_LE(pages.size(), 125u) << "1 MiB has room for 125 objects of 8,376 bytes";
    EXPECT_EQ(pages_out(), pages.size());
    for (page_ctrl *page : pages)
        freeOnePage(page, MODULE, __func__, __LINE__);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
    cmm_destory_buffer_mempool();
}

TEST_F(OutsideCreator, buffers_and_pages_live_side_by_side_in_a_registered_pool)
{
    cmm_config_info info = {};
    info.pool_id = enclosing_pool(16 * MEBIBYTE);
    ASSERT_EQ(zyumm_cmm_pool_info_set(&info, nullptr), 0u);
    ASSERT_EQ(cmm_create_allocator(), 0u);
    create_all(info.pool_id);
    zymm_allocator *allocator = &g_ucmm_config.buffer_allocator;

    void *buffer = allocator->alloc(allocator, 100000, MODULE, __func__, __LINE__);
    ASSERT_NE(buffer, nullptr);
    memset(buffer, 0x5A, 100000);
    EXPECT_EQ(take_and_return(64, 0x3C), 0u);
    EXPECT_EQ(static_cast<uint8_t *>(buffer)[99999], 0x5A);
    EXPECT_EQ(allocator->free(allocator, buffer, MODULE, __func__), 0);
    EXPECT_EQ(cmm_module_exit(), 0u);
    cmm_destory_buffer_mempool();
    EXPECT_NE(zymm_pool_destory(info.pool_id, OUTSIDER, "the outsider"), 0) << "it is gone";
}

/* ------------------------------------------------------------------ failures */

TEST_F(OutsideCreator, a_pool_too_small_for_what_must_be_reserved_is_refused)
{
    const uint64_t pool = enclosing_pool(64 * 1024);

    EXPECT_EQ(create_sgls(pool), -1);
    EXPECT_EQ(g_sgl_partition_id, 0u);
    EXPECT_EQ(create_reqs(enclosing_pool(4096)), 0u) << "32 of 768 bytes fit one unit";
    EXPECT_EQ(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0) << "nothing stayed in it";
    EXPECT_EQ(create_sgls(enclosing_pool(MEBIBYTE)), 0) << "a larger one serves";
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/* The zero pages are made first and stay, so the stop's audit finds their partition. */
TEST_F(OutsideCreator, a_pool_too_small_for_the_pages_leaves_the_zero_pages_behind)
{
    const uint64_t pool = enclosing_pool(MEBIBYTE);

    EXPECT_EQ(create_pages(pool), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(allocOnePageSync(MODULE, __func__, __LINE__), nullptr);
    EXPECT_NE(getZeroPageCtrl(), nullptr);
    EXPECT_EQ(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0) << "nothing stayed in it";
    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);
    EXPECT_EQ(g_cmm_part_sum, 1u);
}

TEST_F(OutsideCreator, only_a_living_enclosing_pool_will_do)
{
    const uint64_t gone = enclosing_pool(MEBIBYTE);
    ASSERT_EQ(zymm_pool_destory(gone, OUTSIDER, "the outsider"), 0);
    const uint64_t public_pool = zyumm_pub_mpool_create("public", MEBIBYTE, 0, OUTSIDER);
    zyumm_mpool_param param = {};
    param.partition = g_cmm_umm_partition;
    param.obj_size = 4096;
    param.max_num = 16;
    const uint64_t memory_pool = zyumm_mpool_create(&param);
    ASSERT_NE(memory_pool, 0u);

    for (const uint64_t pool : {uint64_t{0}, gone, public_pool, memory_pool}) {
        EXPECT_EQ(create_sgls(pool), -1);
        EXPECT_EQ(create_reqs(pool), 0xFFFFFFFFu);
    }
    EXPECT_EQ(create_pages(0), 0xFFFFFFFFu);
    EXPECT_EQ(g_sgl_partition_id + g_req_partition_id + s_page_partition_id, 0u);
    EXPECT_EQ(zyumm_mpool_delete(memory_pool), 0);
    EXPECT_EQ(zyumm_pub_mpool_delete(public_pool), 0);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST_F(OutsideCreator, a_second_creation_is_refused_or_by_the_other_entry_accepted)
{
    const uint64_t pool = enclosing_pool(8 * MEBIBYTE);
    ASSERT_EQ(zyumm_page_slab_create_ex(pool, ATTRIBUTES, OUTSIDER, "the outsider"), 0u);
    ASSERT_EQ(create_sgls(pool), 0);
    ASSERT_EQ(create_reqs(pool), 0u);
    const std::array before = {s_page_partition_id, g_sgl_partition_id, g_req_partition_id};

    EXPECT_EQ(create_pages(pool), 0xFFFFFFFFu);
    EXPECT_EQ(create_sgls(pool), -1);
    EXPECT_EQ(create_reqs(pool), 0xFFFFFFFFu);
    EXPECT_EQ(zyumm_page_slab_create_ex(pool, ATTRIBUTES, OUTSIDER, "the outsider"), 0u);
    EXPECT_EQ((std::array{s_page_partition_id, g_sgl_partition_id, g_req_partition_id}), before);
    EXPECT_EQ(take_and_return(64, 0x3C), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(OutsideCreatorWithoutTheBit, cannot_make_a_pool_beside_the_librarys_own)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    const uint64_t pool = enclosing_pool(8 * MEBIBYTE);

    EXPECT_EQ(create_pages(pool), 0xFFFFFFFFu);
    EXPECT_EQ(create_sgls(pool), -1);
    EXPECT_EQ(create_reqs(pool), 0xFFFFFFFFu);
    EXPECT_EQ(zymm_pool_destory(pool, OUTSIDER, "the outsider"), 0) << "nothing is in it";
    EXPECT_EQ(take_and_return(8, 0x3C), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/*
 * Requests with all levels off: the answers are the same, and not a line is written.
 */
#include <csignal>

#include "unit/silence.h"

#include "zyumm_cmm.h"
#include "zyumm_cmm_req.h"

#include "zyumm_cmm_req/req_local.h"

static constexpr uint32_t FAILURE = 0xFFFFFFFF;

static void start_requests()
{
    g_ucmm_config.req_max = 4;
    ASSERT_EQ(cmm_create_req_mempool(), 0u);
}

TEST_F(Silence, a_pool_that_cannot_be_made_is_a_failure)
{
    g_ucmm_config.req_max = 4;
    fake_fail(OP_memcpy_s);
    EXPECT_EQ(cmm_create_req_mempool(), FAILURE);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(cmm_create_req_mempool(), FAILURE);
}

TEST_F(Silence, a_pool_from_outside_is_refused)
{
    g_ucmm_config.req_max = 4;
    EXPECT_EQ(zyumm_req_slab_create(9, 0, 77, nullptr), FAILURE);
    EXPECT_EQ(zyumm_req_slab_create(0, 0, 77, "me"), FAILURE);
    EXPECT_EQ(zyumm_req_slab_create(9, 0, 77, "me"), FAILURE);
    zyumm_partition_creator_set(CMM_CREATOR_REQ);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(zyumm_req_slab_create(9, 0, 77, "me"), FAILURE);
    EXPECT_EQ(g_req_partition_id, 0u);
}

TEST_F(Silence, nothing_is_allocated_into_nothing)
{
    start_requests();
    allocReq(nullptr, 77, "me", 1);
    freeReq(nullptr, 77, "me", 1);
    EXPECT_EQ(fake_objects_out(), 0u);
}

TEST_F(Silence, a_queued_request_ends_the_process)
{
    start_requests();
    cmm_req *req = nullptr;
    allocReq(&req, 77, "me", 1);
    view_of(req)->queue_mark = 2;
    EXPECT_EXIT(freeReq(req, 77, "me", 1), testing::KilledBySignal(SIGABRT), "^$");
    freeReq(nullptr, 77, "me", 1);
}

TEST_F(Silence, nothing_is_copied_from_nothing)
{
    cmm_genio genio = {};
    copyReq2Genio(&genio, nullptr);
    copyGenio2Req(nullptr, &genio);
    EXPECT_EQ(genio.req, 0u);
}

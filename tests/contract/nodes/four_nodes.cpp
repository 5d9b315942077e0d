#include "four_nodes.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "zymm_host.h"

namespace
{

enum : uint32_t { UNSETTLED = UINT32_MAX };

std::atomic<uint32_t> s_next{0};
thread_local uint32_t t_node = UNSETTLED;

uint32_t node_of_caller()
{
    if (t_node == UNSETTLED)
        t_node = s_next.fetch_add(1, std::memory_order_relaxed) % NODES;
    return t_node;
}

class four_nodes : public testing::Environment
{
    void SetUp() override
    {
        ASSERT_EQ(zymm_topology_set(NODES, node_of_caller), 0);
    }
};

const testing::Environment *const s_four_nodes =
    testing::AddGlobalTestEnvironment(new four_nodes);

} // namespace

void settle_on_node(uint32_t node)
{
    t_node = node;
}

void on_node(uint32_t node, const std::function<void()> &body)
{
    std::thread([&] {
        settle_on_node(node);
        body();
    }).join();
}

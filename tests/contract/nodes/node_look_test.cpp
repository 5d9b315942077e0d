/*
 * What a look at a slab says of each of four nodes.
 */
#include "contract/core/slab_helpers.h"
#include "contract/slab_stress/stamped_slab.h"
#include "four_nodes.h"
#include "zymm_host.h"

TEST(NodeLook, each_node_has_what_its_own_threads_took)
{
    const uint64_t slab = make_slab(8376, 4000);
    std::vector<void *> taken;
    for (uint32_t node = 0; node < NODES; node++) {
        on_node(node, [&] {
            for (uint32_t count = 0; count < 10 * (node + 1); count++)
                taken.push_back(take(slab));
        });
    }
    zymm_slab_record record = {};
    ASSERT_EQ(zymm_slab_record_get(slab, 0, &record), 0);
    uint64_t made = 0;
    uint64_t bytes = 0;
    for (uint32_t node = 0; node < NODES; node++) {
        zymm_node_record on_this = {};
        ASSERT_EQ(zymm_slab_node_get(slab, node, &on_this), 0);
        EXPECT_EQ(on_this.used, 10 * (node + 1));
        EXPECT_EQ(on_this.free, on_this.made - on_this.used);
        EXPECT_GE(on_this.pieces, 1u);
        made += on_this.made;
        bytes += on_this.bytes;
    }
    EXPECT_EQ(made, record.made);
    EXPECT_EQ(bytes, record.bytes);
    EXPECT_EQ(record.used, 100u);
    EXPECT_EQ(record.high_water, 100u);

    zymm_node_record beyond = {};
    EXPECT_EQ(zymm_slab_node_get(slab, NODES, &beyond), -1);
    for (void *object : taken)
        give(slab, object);
    destroy(slab);
}

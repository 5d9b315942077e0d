/*
 * Looks at slabs from outside: the list, one slab's record, its holders, one object.
 */
#include <algorithm>
#include <cstring>

#include "zymm_real_helpers.h"

namespace
{

zymm_slab_record record_of(uint64_t slab, int with_leaks = 0)
{
    zymm_slab_record record = {};
    EXPECT_EQ(zymm_slab_record_get(slab, with_leaks, &record), 0);
    return record;
}

std::vector<uint64_t> listed()
{
    std::vector<uint64_t> handles(zymm_slab_list(nullptr, 0) + 10);
    handles.resize(zymm_slab_list(handles.data(), handles.size()));
    return handles;
}

/* Of each holder: function, objects, leaked. */
std::string holders_of(uint64_t slab, uint32_t which, uint64_t room, zymm_holder_sum *sum)
{
    std::vector<zymm_holder> holders(room);
    EXPECT_EQ(zymm_slab_holders_get(slab, which, holders.data(), room, sum), 0);
    std::string text;
    for (uint64_t at = 0; at < std::min(room, sum->sites); at++)
        text += std::string(holders[at].func) + " " + std::to_string(holders[at].objects) + " " +
                std::to_string(holders[at].leaked) + ";";
    return text;
}

std::vector<void *> take_as(uint64_t slab, const char *func, unsigned count)
{
    std::vector<void *> taken;
    while (taken.size() < count)
        taken.push_back(zymm_slab_malloc(slab, 11, func, 20));
    return taken;
}

void give_all(uint64_t slab, const std::vector<void *> &objects)
{
    for (void *object : objects)
        EXPECT_EQ(zymm_slab_free(slab, object, 11, "giver"), 0);
}

void count_look(void *ctx, const zymm_object_record *)
{
    ++*static_cast<int *>(ctx);
}

void keep_record(void *ctx, const zymm_object_record *record)
{
    *static_cast<zymm_object_record *>(ctx) = *record;
}

int looks_at(uint64_t slab, const void *address)
{
    int looks = 0;
    const int result = zymm_object_look(slab, address, count_look, &looks);
    EXPECT_EQ(looks, result == 0 ? 1 : 0);
    return looks;
}

} // namespace

TEST(ZymmLook, lists_all_slabs_in_the_order_of_their_making)
{
    const size_t before = listed().size();
    const uint64_t first = make_slab(100, 10);
    const uint64_t second = make_slab(200, 10);
    const uint64_t third = make_slab(300, 10);
    destroy(second);
    const uint64_t in_its_place = make_slab(400, 10);
    const std::vector<uint64_t> all = listed();
    ASSERT_EQ(all.size(), before + 3);
    EXPECT_EQ(all[before], first);
    EXPECT_EQ(all[before + 1], third);
    EXPECT_EQ(all[before + 2], in_its_place);
    destroy(first);
    destroy(third);
    destroy(in_its_place);
    EXPECT_EQ(listed().size(), before);
}

TEST(ZymmLook, a_list_without_room_still_counts)
{
    const uint64_t first = make_slab(100, 10);
    const uint64_t second = make_slab(200, 10);
    uint64_t one = 0;
    EXPECT_EQ(zymm_slab_list(nullptr, 0), zymm_slab_list(&one, 1));
    EXPECT_NE(one, 0u);
    destroy(first);
    destroy(second);
}

TEST(ZymmLook, a_record_tells_what_the_slab_was_made_with)
{
    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    strcpy(param.name, "of the test");
    param.module_id = 386;
    param.align = 64;
    param.attr = ZYMM_SLAB_CACHED | ZYMM_SLAB_NODUMP | ZYMM_SLAB_NOFORK;
    param.obj_size = 1000;
    param.min_num = 3;
    param.max_num = 50;
    const uint64_t slab = zymm_create_slab(&param, 386, "test");
    const zymm_slab_record record = record_of(slab);
    EXPECT_EQ(record.handle, slab);
    EXPECT_STREQ(record.name, "of the test");
    EXPECT_EQ(record.obj_size, 1000u);
    EXPECT_EQ(record.whole_size, zymm_object_whole_size_get(1000, 0, 64));
    EXPECT_EQ(record.min_num, 3u);
    EXPECT_EQ(record.max_num, 50u);
    EXPECT_EQ(record.total, 50u);
    EXPECT_EQ(record.module_id, 386u);
    EXPECT_EQ(record.align, 64u);
    EXPECT_EQ(record.unlimited, 0u);
    EXPECT_EQ(record.is_class, 0u);
    EXPECT_EQ(record.attr & 0x882, 0x882u);
    EXPECT_GE(record.bytes, 50000u);
    destroy(slab);
}

TEST(ZymmLook, allocations_and_frees_are_counted_over_all_threads)
{
    const uint64_t slab = make_slab(100, 1000);
    in_threads(4, [&](unsigned) {
        for (unsigned turn = 0; turn < 250; turn++)
            give_all(slab, take_as(slab, "taker", 3));
    });
    const std::vector<void *> kept = take_as(slab, "taker", 5);
    const zymm_slab_record record = record_of(slab);
    EXPECT_EQ(record.allocs, 3005u);
    EXPECT_EQ(record.frees, 3000u);
    EXPECT_EQ(record.used, 5u);
    give_all(slab, kept);
    destroy(slab);
}

TEST(ZymmLook, the_high_water_mark_stays_when_objects_come_back)
{
    const uint64_t slab = make_slab(100, 1000);
    const std::vector<void *> many = take_as(slab, "taker", 300);
    EXPECT_EQ(record_of(slab).high_water, 300u);
    give_all(slab, many);
    const zymm_slab_record record = record_of(slab);
    EXPECT_EQ(record.used, 0u);
    EXPECT_EQ(record.high_water, 300u);
    EXPECT_GE(record.made, 300u);
    destroy(slab);
}

TEST(ZymmLook, the_high_water_mark_is_moved_by_any_question_for_the_usage)
{
    const uint64_t slab = make_slab(100, 1000);
    const std::vector<void *> many = take_as(slab, "taker", 40);
    uint64_t total = 0;
    uint64_t used = 0;
    EXPECT_EQ(zymm_slab_get_usage_info(slab, &total, &used), 0);
    give_all(slab, many);
    EXPECT_EQ(record_of(slab).high_water, 40u);
    destroy(slab);
}

/* A count that reads frees before allocations would count here what never was out at once. */
TEST(ZymmLook, the_high_water_mark_never_claims_more_than_was_out)
{
    const uint64_t slab = make_slab(100, 100000);
    std::atomic<unsigned> working{4};
    in_threads(5, [&](unsigned number) {
        while (number == 4 && working.load() != 0)
            record_of(slab);
        for (unsigned turn = 0; number != 4 && turn < 20000; turn++)
            give_all(slab, take_as(slab, "taker", 2));
        if (number != 4)
            working--;
    });
    const zymm_slab_record record = record_of(slab);
    EXPECT_LE(record.high_water, 8u);
    EXPECT_LE(record.high_water, record.made);
    EXPECT_EQ(record.allocs, 160000u);
    destroy(slab);
}

TEST(ZymmLook, a_new_slab_in_an_old_one_s_place_begins_with_no_counts)
{
    const uint64_t old = make_slab(100, 100);
    give_all(old, take_as(old, "taker", 100));
    record_of(old);
    destroy(old);
    const uint64_t slab = make_slab(100, 100);
    const zymm_slab_record record = record_of(slab);
    EXPECT_EQ(record.high_water, 0u);
    EXPECT_EQ(record.allocs, 0u);
    EXPECT_EQ(record.frees, 0u);
    EXPECT_EQ(record.made, 0u);
    destroy(slab);
}

TEST(ZymmLook, leaked_objects_are_counted_when_they_are_asked_for)
{
    const uint64_t slab = make_slab(100, 10);
    const std::vector<void *> taken = take_as(slab, "taker", 4);
    EXPECT_EQ(record_of(slab, 1).leaked, 0u);
    zymm_leak_age_set(0);
    EXPECT_EQ(record_of(slab, 1).leaked, 4u);
    EXPECT_EQ(record_of(slab, 0).leaked, 0u);
    give_all(slab, taken);
    destroy(slab);
}

TEST(ZymmLook, a_class_of_an_allocator_says_so)
{
    zymm_allocator allocator;
    zymm_allocator_init(&allocator);
    const zymm_slab_item item = {128, 0, UINT64_MAX, 3, 16, 0};
    ASSERT_EQ(allocator.create(&allocator, "table", &item, 1, 0, 386, "test"), 0);
    const zymm_slab_record record = record_of(listed().back());
    EXPECT_STREQ(record.name, "table");
    EXPECT_EQ(record.is_class, 1u);
    EXPECT_EQ(allocator.destroy(&allocator, 386, "test"), 0);
}

TEST(ZymmLook, a_node_s_record_adds_up_to_the_slab_s)
{
    const uint64_t slab = make_slab(100, 1000);
    const std::vector<void *> taken = take_as(slab, "taker", 7);
    zymm_node_record node = {};
    ASSERT_EQ(zymm_slab_node_get(slab, 0, &node), 0);
    const zymm_slab_record record = record_of(slab);
    EXPECT_EQ(node.used, 7u);
    EXPECT_EQ(node.made, record.made);
    EXPECT_EQ(node.free, record.made - 7);
    EXPECT_LE(node.cached, node.free);
    EXPECT_EQ(node.bytes, record.bytes);
    EXPECT_EQ(node.pieces, 1u);
    give_all(slab, taken);
    destroy(slab);
}

TEST(ZymmLook, holders_come_with_the_most_objects_first)
{
    const uint64_t slab = make_slab(100, 10);
    const std::vector<void *> few = take_as(slab, "few", 2);
    const std::vector<void *> more = take_as(slab, "more", 5);
    zymm_holder_sum sum = {};
    EXPECT_EQ(holders_of(slab, ZYMM_HOLDERS_ALL, 8, &sum), "more 5 0;few 2 0;");
    EXPECT_EQ(sum.objects, 7u);
    EXPECT_EQ(sum.leaked, 0u);
    EXPECT_EQ(sum.sites, 2u);
    EXPECT_EQ(sum.ungrouped, 0u);
    EXPECT_EQ(holders_of(slab, ZYMM_HOLDERS_LEAKED, 8, &sum), "");
    EXPECT_EQ(sum.sites, 0u);
    EXPECT_EQ(sum.objects, 7u);
    give_all(slab, few);
    give_all(slab, more);
    destroy(slab);
}

TEST(ZymmLook, holders_beyond_the_room_are_counted)
{
    const uint64_t slab = make_slab(100, 10);
    const std::vector<void *> few = take_as(slab, "few", 2);
    const std::vector<void *> more = take_as(slab, "more", 5);
    zymm_leak_age_set(0);
    zymm_holder_sum sum = {};
    EXPECT_EQ(holders_of(slab, ZYMM_HOLDERS_LEAKED, 1, &sum), "more 5 5;");
    EXPECT_EQ(sum.sites, 2u);
    EXPECT_EQ(sum.leaked, 7u);
    give_all(slab, few);
    give_all(slab, more);
    destroy(slab);
}

TEST(ZymmLook, an_object_is_found_at_its_first_byte_only)
{
    const uint64_t slab = make_slab(100, 10);
    const std::vector<void *> taken = take_as(slab, "taker", 1);
    char *const object = static_cast<char *>(taken[0]);
    EXPECT_EQ(looks_at(slab, object), 1);
    EXPECT_EQ(looks_at(slab, object + 1), 0);
    EXPECT_EQ(looks_at(slab, object - 1), 0);
    EXPECT_EQ(looks_at(slab, object + 8), 0);
    EXPECT_EQ(looks_at(slab, nullptr), 0);
    EXPECT_EQ(looks_at(slab, &slab), 0);
    EXPECT_EQ(looks_at(slab, reinterpret_cast<void *>(~uint64_t(0))), 0);
    give_all(slab, taken);
    EXPECT_EQ(looks_at(slab, object), 1);
    destroy(slab);
}

TEST(ZymmLook, an_object_that_never_existed_is_none)
{
    const uint64_t slab = make_slab(100, 10);
    const std::vector<void *> taken = take_all(slab);
    char *const last = static_cast<char *>(*std::max_element(taken.begin(), taken.end()));
    char *const one_before =
        static_cast<char *>(*std::max_element(taken.begin(), taken.end(), [&](void *a, void *b) {
            return (a == last ? nullptr : a) < (b == last ? nullptr : b);
        }));
    EXPECT_EQ(looks_at(slab, last), 1);
    EXPECT_EQ(looks_at(slab, last + (last - one_before)), 0);
    for (void *object : taken)
        give(slab, object);
    destroy(slab);
}

TEST(ZymmLook, an_object_s_record_names_its_taker_until_it_comes_back)
{
    const uint64_t slab = make_slab(100, 10);
    void *const object = zymm_slab_malloc(slab, 77, "taker", 42);
    zymm_object_record record = {};
    ASSERT_EQ(zymm_object_look(slab, object, keep_record, &record), 0);
    EXPECT_EQ(record.is_out, 1u);
    EXPECT_EQ(record.node, 0u);
    EXPECT_EQ(record.module_id, 77u);
    EXPECT_EQ(record.line, 42u);
    EXPECT_STREQ(record.func, "taker");
    EXPECT_EQ(zymm_slab_free(slab, object, 78, "giver"), 0);
    ASSERT_EQ(zymm_object_look(slab, object, keep_record, &record), 0);
    EXPECT_EQ(record.is_out, 0u);
    EXPECT_EQ(record.module_id, 0u);
    EXPECT_STREQ(record.func, "");
    destroy(slab);
}

TEST(ZymmLook, a_stale_handle_is_quietly_nothing)
{
    const uint64_t slab = make_slab(100, 10);
    void *const object = take(slab);
    give(slab, object);
    destroy(slab);
    const std::string log = log_of([&] {
        zymm_slab_record record = {};
        zymm_node_record node = {};
        zymm_holder_sum sum = {};
        record.used = 4711;
        EXPECT_EQ(zymm_slab_record_get(slab, 1, &record), -1);
        EXPECT_EQ(zymm_slab_record_get(0, 1, &record), -1);
        EXPECT_EQ(record.used, 4711u);
        EXPECT_EQ(zymm_slab_node_get(slab, 0, &node), -1);
        EXPECT_EQ(zymm_slab_holders_get(slab, ZYMM_HOLDERS_ALL, nullptr, 0, &sum), -1);
        EXPECT_EQ(looks_at(slab, object), 0);
    });
    EXPECT_EQ(log, "");
}

TEST(ZymmLook, a_node_beyond_the_last_is_quietly_nothing)
{
    const uint64_t slab = make_slab(100, 10);
    zymm_node_record node = {};
    EXPECT_EQ(log_of([&] { EXPECT_EQ(zymm_slab_node_get(slab, 64, &node), -1); }), "");
    destroy(slab);
}

/* Whoever looks finds a slab or nothing, never what is left of one. */
TEST(ZymmLook, slabs_may_come_and_go_under_every_look)
{
    std::atomic<bool> is_over{false};
    std::thread watcher([&] {
        while (!is_over.load()) {
            for (const uint64_t slab : listed()) {
                zymm_slab_record record = {};
                zymm_node_record node = {};
                zymm_holder_sum sum = {};
                zymm_slab_record_get(slab, 1, &record);
                zymm_slab_node_get(slab, 0, &node);
                zymm_slab_holders_get(slab, ZYMM_HOLDERS_ALL, nullptr, 0, &sum);
            }
        }
    });
    in_threads(2, [&](unsigned) {
        for (unsigned turn = 0; turn < 300; turn++) {
            const uint64_t slab = make_slab(100, 100);
            give_all(slab, take_as(slab, "taker", 50));
            destroy(slab);
        }
    });
    is_over = true;
    watcher.join();
}

/*
 * The 141 size classes, and the allocator that is created over them.
 */
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

#include "fake/expect_log.h"

namespace
{

/* The table as it reached the allocator's create operation. */
std::vector<zymm_slab_item> table_handed_over()
{
    EXPECT_EQ(cmm_create_allocator(), 0u);
    const fake_call             call = fake_last_call(OP_zymm_allocator_create);
    std::vector<zymm_slab_item> items(call.record.size() / sizeof(zymm_slab_item));
    memcpy(items.data(), call.record.data(), items.size() * sizeof(zymm_slab_item));
    return items;
}

std::vector<uint64_t> sizes(const std::vector<zymm_slab_item> &items, size_t from, size_t to)
{
    std::vector<uint64_t> found;
    for (size_t i = from; i < to; ++i)
        found.push_back(items.at(i).obj_size);
    return found;
}

/* The distinct values of a field in items [from, to). */
template <typename T>
std::vector<T> distinct(const std::vector<zymm_slab_item> &items, size_t from, size_t to,
                        T zymm_slab_item::*field)
{
    std::vector<T> found;
    for (size_t i = from; i < to; ++i) {
        if (found.empty() || found.back() != items.at(i).*field)
            found.push_back(items.at(i).*field);
    }
    return found;
}

} // namespace

TEST(SizeClasses, there_are_141)
{
    EXPECT_EQ(table_handed_over().size(), 141u);
    EXPECT_EQ(fake_last_call(OP_zymm_allocator_create).args.at(3).number, 141u);
}

TEST(SizeClasses, the_first_six_double_from_64_to_2048_bytes)
{
    EXPECT_EQ(sizes(table_handed_over(), 0, 6),
              (std::vector<uint64_t>{64, 128, 256, 512, 1024, 2048}));
}

TEST(SizeClasses, the_next_eight_go_in_steps_of_4_kib_to_32_kib)
{
    EXPECT_EQ(sizes(table_handed_over(), 6, 14),
              (std::vector<uint64_t>{4096, 8192, 12288, 16384, 20480, 24576, 28672, 32768}));
}

TEST(SizeClasses, the_last_127_go_in_steps_of_128_kib)
{
    const std::vector<zymm_slab_item> items = table_handed_over();

    for (size_t i = 14; i < 141; ++i)
        EXPECT_EQ(items.at(i).obj_size, (i - 13) * 131072) << i;
}

TEST(SizeClasses, the_last_127_begin_at_128_kib_and_end_128_kib_below_16_mib)
{
    const std::vector<zymm_slab_item> items = table_handed_over();

    EXPECT_EQ(items.at(14).obj_size, 0x20000u);
    EXPECT_EQ(items.at(15).obj_size, 0x40000u);
    EXPECT_EQ(items.at(139).obj_size, 0xFC0000u);
    EXPECT_EQ(items.at(140).obj_size, 0xFE0000u);
}

TEST(SizeClasses, classes_below_4096_bytes_are_aligned_to_8)
{
    EXPECT_EQ(distinct(table_handed_over(), 0, 6, &zymm_slab_item::align),
              std::vector<uint32_t>{8});
}

TEST(SizeClasses, classes_from_4096_bytes_on_are_aligned_to_4096)
{
    EXPECT_EQ(distinct(table_handed_over(), 6, 141, &zymm_slab_item::align),
              std::vector<uint32_t>{4096});
}

TEST(SizeClasses, the_class_word_is_3_up_to_32_kib)
{
    EXPECT_EQ(distinct(table_handed_over(), 0, 14, &zymm_slab_item::class_word),
              std::vector<uint64_t>{3});
}

TEST(SizeClasses, the_class_word_is_1_above_32_kib)
{
    EXPECT_EQ(distinct(table_handed_over(), 14, 141, &zymm_slab_item::class_word),
              std::vector<uint64_t>{1});
}

TEST(SizeClasses, every_limit_is_4294967295)
{
    EXPECT_EQ(distinct(table_handed_over(), 0, 141, &zymm_slab_item::limit),
              std::vector<uint64_t>{4294967295});
}

TEST(SizeClasses, every_first_word_and_padding_is_0)
{
    const std::vector<zymm_slab_item> items = table_handed_over();

    EXPECT_EQ(distinct(items, 0, 141, &zymm_slab_item::first), std::vector<uint64_t>{0});
    EXPECT_EQ(distinct(items, 0, 141, &zymm_slab_item::pad), std::vector<uint32_t>{0});
}

TEST(BufferAllocator, the_table_is_5640_bytes_of_scratch_that_is_cleared_and_given_back)
{
    EXPECT_EQ(cmm_create_allocator(), 0u);

    const fake_call taken = fake_last_call(OP_zymm_malloc);
    EXPECT_EQ(taken.args.at(0).number, 5640u);
    EXPECT_EQ(taken.args.at(1).number, 386u);
    EXPECT_EQ(taken.args.at(2).text, "cmm_create_allocator");
    const fake_call cleared = fake_last_call(OP_memset_s);
    EXPECT_EQ(cleared.args.at(0).number, taken.result);
    EXPECT_EQ(cleared.args.at(1).number, 5640u);
    EXPECT_EQ(cleared.args.at(2).number, 0u);
    EXPECT_EQ(cleared.args.at(3).number, 5640u);
    const fake_call freed = fake_last_call(OP_zymm_free);
    EXPECT_EQ(freed.args.at(0).number, taken.result);
    EXPECT_EQ(freed.args.at(1).number, 386u);
    EXPECT_EQ(freed.args.at(2).text, "cmm_create_allocator");
    EXPECT_EQ(fake_objects_out(), 0u);
}

TEST(BufferAllocator, it_is_created_in_the_registered_pool_in_the_librarys_name)
{
    const uint64_t pool = zymm_pool_create("outside", 1024, 0, 77, "the test");
    g_ucmm_config.io_pool.pool_handle = pool;

    EXPECT_EQ(cmm_create_allocator(), 0u);

    const uint64_t  allocator = reinterpret_cast<uint64_t>(&g_ucmm_config.buffer_allocator);
    const fake_call created   = fake_last_call(OP_zymm_allocator_create);
    EXPECT_EQ(fake_last_call(OP_zymm_allocator_init).args.at(0).number, allocator);
    EXPECT_EQ(created.args.at(0).number, allocator);
    EXPECT_EQ(created.args.at(1).text, "buffer_slab_table");
    EXPECT_EQ(created.args.at(2).number, fake_last_call(OP_zymm_malloc).result);
    EXPECT_EQ(created.args.at(4).number, pool);
    EXPECT_EQ(created.args.at(5).number, 386u);
    EXPECT_EQ(created.args.at(6).text, "cmm_create_allocator");
    EXPECT_NO_LINE();
}

TEST(BufferAllocator, without_memory_for_the_table_it_fails_with_a_line)
{
    fake_fail(OP_zymm_malloc);

    EXPECT_EQ(cmm_create_allocator(), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cmm_create_allocator",
                     "[UMM_CMM] Malloc slab table item fail.");
    EXPECT_EQ(fake_count(OP_zymm_allocator_init), 0u);
    EXPECT_EQ(fake_count(OP_zymm_free), 0u);
}

TEST(BufferAllocator, the_line_of_a_missing_table_is_not_limited)
{
    fake_fail_always(OP_zymm_malloc);

    EXPECT_NOT_LIMITED(cmm_create_allocator(), "[UMM_CMM] Malloc slab table item fail.");
}

TEST(BufferAllocator, a_refused_creation_gives_the_table_back_without_a_line)
{
    fake_fail(OP_zymm_allocator_create);

    EXPECT_EQ(cmm_create_allocator(), 0xFFFFFFFFu);

    EXPECT_EQ(fake_count(OP_zymm_free), 1u);
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_NO_LINE();
}

TEST(BufferAllocator, any_result_of_the_creation_but_0_is_a_failure)
{
    fake_fail_with(OP_zymm_allocator_create, 1, 17);

    EXPECT_EQ(cmm_create_allocator(), 0xFFFFFFFFu);
}

TEST(BufferAllocator, without_a_create_operation_it_fails_and_gives_the_table_back)
{
    fake_fail(OP_zymm_allocator_init);

    EXPECT_EQ(cmm_create_allocator(), 0xFFFFFFFFu);

    EXPECT_EQ(fake_count(OP_zymm_allocator_create), 0u);
    EXPECT_EQ(fake_count(OP_zymm_free), 1u);
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_NO_LINE();
}

TEST(BufferAllocator, a_failed_clearing_of_the_table_does_not_stop_it)
{
    fake_fail(OP_memset_s);

    EXPECT_EQ(cmm_create_allocator(), 0u);
}

/*
 * Atomic access to plain fields: what each operation leaves and answers.
 */
#include "common/cmm_atomic.h"

#include <gtest/gtest.h>

TEST(Atomic, a_store_is_seen_by_both_loads)
{
    int field = 0;

    cmm_store_relaxed(&field, 3);
    EXPECT_EQ(cmm_load_relaxed(&field), 3);
    cmm_store_release(&field, 4);
    EXPECT_EQ(cmm_load_acquire(&field), 4);
}

TEST(Atomic, adding_and_subtracting_answer_the_new_value)
{
    unsigned field = 5;

    EXPECT_EQ(cmm_atomic_add(&field, 2u), 7u);
    EXPECT_EQ(cmm_atomic_sub(&field, 8u), 0xFFFFFFFFu);
    EXPECT_EQ(cmm_atomic_add_relaxed(&field, 1u), 0u);
}

TEST(Atomic, exchanging_and_setting_bits_answer_the_old_value)
{
    unsigned field = 5;

    EXPECT_EQ(cmm_atomic_exchange_relaxed(&field, 0x10u), 5u);
    EXPECT_EQ(cmm_atomic_or_relaxed(&field, 0x3u), 0x10u);
    EXPECT_EQ(field, 0x13u);
}

TEST(Atomic, a_claim_succeeds_once)
{
    unsigned field = 0;

    EXPECT_TRUE(cmm_atomic_claim(&field, 0u, 1u));
    EXPECT_FALSE(cmm_atomic_claim(&field, 0u, 1u));
    EXPECT_EQ(field, 1u);
}

/*
 * Operations whose log lines are switched off.
 *
 * All lines ask for their level first, and a node in the field has most levels off. What a test of
 * this fixture calls has every level off from the set-up on: it answers as it does when it writes,
 * and writes nothing. The lines themselves are the other tests' business.
 */
#pragma once

#include <gtest/gtest.h>

#include "fake/fake.h"

class Silence : public ::testing::Test
{
protected:
    void SetUp() override
    {
        fake_set_log_level(0);
    }

    /* Nothing was written, and that because levels were asked for. */
    void TearDown() override
    {
        EXPECT_EQ(fake_count(OP_zylog), 0u);
        EXPECT_GT(fake_count(OP_zylog_level_check), 0u);
    }
};

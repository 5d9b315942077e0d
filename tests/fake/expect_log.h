/*
 * Exact checks of log lines, for tests with GoogleTest.
 */
#pragma once

#include <gtest/gtest.h>

#include "fake.h"

/* The newest line is exactly this one, of the library's module and with no limiter flag. */
#define EXPECT_LAST_LINE(level_, func_, text_)             \
    do {                                                   \
        const fake_line last_ = fake_last_line();          \
        EXPECT_EQ(last_.module_id, 386u);                  \
        EXPECT_EQ(last_.level, uint32_t(level_));          \
        EXPECT_EQ(last_.func, func_);                      \
        EXPECT_EQ(last_.flag, 0u);                         \
        EXPECT_EQ(last_.text, text_);                      \
    } while (0)

/* Exactly one line has been written since the log was last forgotten, and it is this one. */
#define EXPECT_ONLY_LINE(level_, func_, text_)             \
    do {                                                   \
        EXPECT_EQ(fake_log().size(), 1u);                  \
        EXPECT_LAST_LINE(level_, func_, text_);            \
    } while (0)

#define EXPECT_NO_LINE() EXPECT_EQ(fake_log_texts(), std::vector<std::string>{})

/* `statement`, run five times, writes `text` three times: its call site has a limiter. */
#define EXPECT_LIMITED(statement, text_)                   \
    do {                                                   \
        fake_forget_log();                                 \
        for (int run_ = 0; run_ < 5; ++run_) {             \
            statement;                                     \
        }                                                  \
        EXPECT_EQ(fake_log_count(text_), 3u);              \
    } while (0)

/* `statement`, run five times, writes `text` five times: its call site has none. */
#define EXPECT_NOT_LIMITED(statement, text_)               \
    do {                                                   \
        fake_forget_log();                                 \
        for (int run_ = 0; run_ < 5; ++run_) {             \
            statement;                                     \
        }                                                  \
        EXPECT_EQ(fake_log_count(text_), 5u);              \
    } while (0)

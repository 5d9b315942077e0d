/*
 * What `top` knows over time, with a clock that the tests set, against a console with scripted
 * answers.
 */
#include <gtest/gtest.h>

#include <poll.h>

#include <atomic>
#include <memory>

#include "samples.h"
#include "scratch.h"
#include "top_session.h"

using namespace std::chrono_literals;

namespace {

class TopSession : public ::testing::Test
{
protected:
    using clock = top_session::clock;

    std::unique_ptr<fake_console> counting_console()
    {
        return std::make_unique<fake_console>(path(), [this](const std::string &line) {
            if (is_silent_)
                return scripted_answer{};
            if (line == "--json umm show pools")
                ++looks_;
            node_sample sample = busy_node();
            sample.pools.now_ms = 1000 * looks_;
            sample.pools.pools[0].allocs = 5000 + 300 * looks_;
            return told(sample, line);
        });
    }

    std::string path() const { return scratch_.file("console"); }

    clock::time_point at(clock::duration since) const { return start_ + since; }

    /* Hears whatever comes until the condition holds. */
    template <typename Condition>
    void hear_until(top_session &session, clock::time_point now, Condition holds) const
    {
        for (session.hear(now); !holds(); session.hear(now)) {
            pollfd one = {session.link().fd(), session.link().events(), 0};
            ASSERT_EQ(poll(&one, 1, 60000), 1);
        }
    }

    /* One look with its answers. */
    void look(top_session &session, clock::time_point now)
    {
        const unsigned before = looks_;
        session.look(now);
        hear_until(session, now, [&] {
            const top_state state = session.state(now);
            return state.sample && state.sample->pools.now_ms > 1000 * before;
        });
    }

    scratch_folder          scratch_;
    std::atomic<unsigned>   looks_ = 0;
    std::atomic<bool>       is_silent_ = false;
    const clock::time_point start_ = clock::time_point(1000000s);
};

} // namespace

TEST_F(TopSession, looks_at_once_and_then_every_interval)
{
    const auto process = counting_console();
    top_session session(path(), {});

    EXPECT_EQ(session.next_look(at(0s)), at(0s));
    look(session, at(0s));
    EXPECT_EQ(session.next_look(at(0s)), at(1s));
    session.look(at(999ms));
    session.hear(at(999ms));
    EXPECT_EQ(session.next_look(at(999ms)), at(1s));
}

TEST_F(TopSession, has_rates_from_the_second_look_on)
{
    const auto process = counting_console();
    top_session session(path(), {});

    look(session, at(0s));
    EXPECT_TRUE(session.state(at(0s)).rates.empty());
    look(session, at(1s));
    const top_state state = session.state(at(1s));
    ASSERT_EQ(state.rates.count("0xPAGE PARTITION"), 1u);
    EXPECT_DOUBLE_EQ(state.rates.at("0xPAGE PARTITION").allocs, 300);
    EXPECT_EQ(state.pid, getpid());
    EXPECT_EQ(state.trouble, "");
}

TEST_F(TopSession, keeps_the_last_sample_when_the_process_goes_away)
{
    auto process = counting_console();
    top_session session(path(), {});
    look(session, at(0s));

    process.reset();
    hear_until(session, at(400ms), [&] { return !session.link().is_open(); });

    const top_state state = session.state(at(3400ms));
    EXPECT_TRUE(state.sample.has_value());
    EXPECT_EQ(state.trouble, "the process closed the connection");
    EXPECT_EQ(state.trouble_ms, 3000u);
}

TEST_F(TopSession, the_time_of_trouble_goes_on_while_its_reason_changes)
{
    auto process = counting_console();
    top_session session(path(), {});
    look(session, at(0s));
    process.reset();
    hear_until(session, at(500ms), [&] { return !session.link().is_open(); });

    session.look(at(1s));

    const top_state state = session.state(at(2s));
    EXPECT_EQ(state.trouble, "No such file or directory");
    EXPECT_EQ(state.trouble_ms, 1500u);
}

TEST_F(TopSession, finds_a_process_that_is_back_and_has_no_rates_across_the_gap)
{
    auto process = counting_console();
    top_session session(path(), {});
    look(session, at(0s));
    look(session, at(1s));
    process.reset();
    hear_until(session, at(1500ms), [&] { return !session.link().is_open(); });

    looks_ = 0;
    process = counting_console();
    session.look(at(2s));
    hear_until(session, at(2s), [&] { return session.state(at(2s)).trouble.empty(); });

    const top_state state = session.state(at(2s));
    EXPECT_EQ(state.sample->pools.now_ms, 1000u);
    EXPECT_TRUE(state.rates.empty());
}

TEST_F(TopSession, looks_for_a_lost_process_at_least_every_5_seconds)
{
    top_view slow;
    slow.interval = 3600;
    top_session session(path(), slow);

    session.look(at(0s));
    EXPECT_EQ(session.next_look(at(1s)), at(5s));
}

TEST_F(TopSession, silence_is_trouble_after_2_seconds_and_no_second_question_is_asked)
{
    const auto process = counting_console();
    top_session session(path(), {});
    look(session, at(0s));
    is_silent_ = true;
    session.look(at(1s));

    EXPECT_EQ(session.state(at(2999ms)).trouble, "");
    EXPECT_EQ(session.state(at(3s)).trouble, "no answer");
    EXPECT_EQ(session.state(at(4500ms)).trouble_ms, 3500u);
    EXPECT_EQ(session.next_look(at(1500ms)), at(3s));
    EXPECT_EQ(session.next_look(at(4s)), at(5s));
    session.look(at(9s));
    EXPECT_TRUE(session.link().is_open());
}

TEST_F(TopSession, does_not_look_while_it_is_paused)
{
    const auto process = counting_console();
    top_session session(path(), {});
    look(session, at(0s));

    session.press('p');
    EXPECT_EQ(session.next_look(at(1s)), TopSession::clock::time_point::max());
    session.press('p');
    EXPECT_EQ(session.next_look(at(1s)), at(1s));
}

TEST_F(TopSession, an_answer_that_is_none_is_told_and_the_connection_kept)
{
    std::atomic<unsigned> asked = 0;
    fake_console process(path(), [&](const std::string &) {
        ++asked;
        return says("nonsense");
    });
    top_session session(path(), {});

    session.look(at(0s));
    hear_until(session, at(0s), [&] { return !session.state(at(0s)).trouble.empty(); });

    EXPECT_EQ(session.state(at(0s)).trouble, "umm show config: no JSON came: nonsense");
    EXPECT_TRUE(session.link().is_open());
    EXPECT_EQ(session.next_look(at(0s)), at(1s));
}

TEST_F(TopSession, scrolling_knows_how_many_rows_there_are)
{
    const auto process = counting_console();
    top_session session(path(), {});

    session.press('j');
    EXPECT_EQ(session.state(at(0s)).view.panels[0].first, 0u);
    look(session, at(0s));
    session.press('j');
    session.press('j');
    EXPECT_EQ(session.state(at(0s)).view.panels[0].first, 1u);
}

TEST_F(TopSession, q_quits)
{
    top_session session(path(), {});

    session.press('q');
    EXPECT_TRUE(session.quits());
}

/*
 * The queue of requests for pages as a plain first-in first-out list over a clock that somebody
 * else moves: no links, no locks, no slabs. What the model knows of the library is what its headers
 * promise: who is served when, who times out when, and what is counted.
 *
 *     pages       `out` of at most `limit`; a run is there as a whole or not at all
 *     waiting     requests, oldest first; the one being served is still there, marked
 *     marker      where the next walk begins: nowhere, at the head, behind a request
 *     pending     a run is due; absorbed: kicks since then
 *     told        what the call-backs heard, in order
 *
 * A flaw makes the model wrong on purpose, to see that the comparison finds it.
 */
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <vector>

/* What the call-backs of a request do besides noting what they heard. */
enum class habit {
    NONE,
    HANDS_BACK, /* frees what comes; when nothing comes, the oldest thing held */
    ASKS_AGAIN, /* for one page, without a time-out of its own */
    WALKS       /* starts a walk inside a run, and a run inside a walk */
};

enum class flaw {
    NONE,
    NEWEST_FIRST,
    EXPIRES_TOO_EARLY,
    NEVER_PASSES_OVER,
    QUIET_WHEN_A_RUN_FAILS
};

struct wish {
    uint64_t id;
    bool is_run;
    uint32_t pages;
    uint32_t timeout; /* seconds */
    habit does;
};

struct waiting_request {
    wish wanted;
    uint64_t since;
    bool served;
};

class retry_model
{
public:
    static constexpr uint64_t SECOND = 1000000000;
    static constexpr uint32_t NEVER = 0xFFFFFFFF;
    static constexpr uint64_t NOWHERE = 0; /* markers; requests count from 1 */
    static constexpr uint64_t AT_HEAD = UINT64_MAX;
    static constexpr uint64_t SECOND_WISH = 1000; /* added to the id of who asks again */
    static constexpr uint64_t MOST_REQUESTS = 5;

    explicit retry_model(flaw wrong) : wrong_(wrong)
    {
    }

    uint64_t now = SECOND;
    uint64_t clock_step = 0; /* each reading moves the clock on */
    uint64_t limit = 0;
    uint64_t out = 0;
    std::list<waiting_request> waiting;
    uint64_t marker = NOWHERE;
    uint32_t pending = 0;
    uint32_t absorbed = 0;
    uint64_t retry_timer = 500000; /* microseconds, as last armed */
    uint64_t walk_timer = 500000;
    std::deque<uint32_t> held; /* pages in each thing that was delivered and not freed */
    std::vector<std::string> told;

    void ask(const wish &wanted)
    {
        const int attempts = wanted.is_run ? 2 : 1;
        for (int i = 0; i < attempts; ++i) {
            if (attempt(wanted)) {
                deliver(wanted);
                return;
            }
        }
        if (waiting.size() >= MOST_REQUESTS) {
            fail(wanted);
            told.push_back("end " + std::to_string(wanted.id) + " 0xffffffff nothing");
            return;
        }
        waiting.push_back({wanted, read_clock(), false});
    }

    /* Frees one of the things held; nothing when there is none. */
    void give_back(size_t which)
    {
        if (held.empty())
            return;
        const auto thing = held.begin() + long(which % held.size());
        out -= *thing;
        held.erase(thing);
        kick();
    }

    void kick()
    {
        if (waiting.empty())
            return;
        if (pending != 0) {
            ++absorbed;
            return;
        }
        pending = 1;
        absorbed = 0;
        retry_timer = 100;
    }

    void run()
    {
        const uint64_t begin = read_clock();
        while (serve_one()) {
            if (read_clock() - begin > 500000)
                break;
        }
        --pending; /* wraps when no run was due */
    }

    void walk()
    {
        const uint64_t begin = read_clock();
        walking_ = true;
        marker = walk_from(first_to_judge(), begin);
        walking_ = false;
        walk_timer = 500000;
    }

    /* Stop and start: nobody who waits is told. */
    void restart()
    {
        waiting.clear();
        marker = NOWHERE;
        pending = 0;
        absorbed = 0;
        retry_timer = 500000;
        walk_timer = 500000;
    }

private:
    using place = std::list<waiting_request>::iterator;

    flaw wrong_;
    bool walking_ = false; /* the list is locked */

    uint64_t read_clock()
    {
        const uint64_t read = now;
        now += clock_step;
        return read;
    }

    bool attempt(const wish &wanted)
    {
        const bool can_be = wanted.pages >= 1 && wanted.pages <= 65535;
        if (can_be && out + wanted.pages <= limit) {
            out += wanted.pages;
            return true;
        }
        /* A run that fails gives its part of it back, and that is a free like any other. */
        if (can_be && wanted.is_run && wrong_ != flaw::QUIET_WHEN_A_RUN_FAILS)
            kick();
        return false;
    }

    void deliver(const wish &wanted)
    {
        const std::string what = wanted.is_run ? "run of " + std::to_string(wanted.pages) : "page";
        told.push_back("end " + std::to_string(wanted.id) + " 0x0 " + what);
        held.push_back(wanted.pages);
        if (wanted.does == habit::HANDS_BACK)
            give_back(held.size() - 1);
        else if (wanted.does == habit::ASKS_AGAIN)
            ask({wanted.id + SECOND_WISH, false, 1, NEVER, habit::NONE});
        else if (wanted.does == habit::WALKS)
            walk();
    }

    void fail(const wish &wanted)
    {
        told.push_back("fail " + std::to_string(wanted.id));
        if (wanted.does == habit::HANDS_BACK)
            give_back(0);
        else if (wanted.does == habit::WALKS)
            run();
    }

    bool serve_one()
    {
        if (walking_ || waiting.empty())
            return false;
        const place chosen =
            wrong_ == flaw::NEWEST_FIRST ? std::prev(waiting.end()) : waiting.begin();
        if (chosen->served)
            return false;

        chosen->served = true;
        if (!attempt(chosen->wanted) && !attempt(chosen->wanted)) {
            chosen->served = false;
            return false;
        }
        deliver(chosen->wanted);
        if (marker == chosen->wanted.id)
            marker = id_at(std::next(chosen), AT_HEAD);
        waiting.erase(chosen);
        return true;
    }

    uint64_t id_at(place at, uint64_t behind_the_last) const
    {
        return at == waiting.end() ? behind_the_last : at->wanted.id;
    }

    place first_to_judge()
    {
        if (marker == NOWHERE || marker == AT_HEAD)
            return waiting.begin();
        place at = waiting.begin();
        while (at->wanted.id != marker)
            ++at;
        return wrong_ == flaw::NEVER_PASSES_OVER ? at : std::next(at);
    }

    bool has_expired(const waiting_request &request, uint64_t judged_at) const
    {
        if (request.wanted.timeout == NEVER || request.served)
            return false;
        const uint64_t waited = judged_at - request.since;
        const uint64_t patience = request.wanted.timeout * SECOND;
        return wrong_ == flaw::EXPIRES_TOO_EARLY ? waited >= patience : waited > patience;
    }

    /* Answers the marker for the next walk. */
    uint64_t walk_from(place at, uint64_t begin)
    {
        while (at != waiting.end()) {
            const uint64_t judged_at = read_clock();
            if (judged_at - begin > 1000000)
                return std::next(at) == waiting.end() ? NOWHERE : at->wanted.id;
            at = has_expired(*at, judged_at) ? expire(at) : std::next(at);
        }
        return waiting.empty() ? NOWHERE : AT_HEAD;
    }

    place expire(place at)
    {
        const wish wanted = at->wanted;
        if (marker == wanted.id)
            marker = NOWHERE;
        const place next = waiting.erase(at);
        fail(wanted);
        told.push_back("end " + std::to_string(wanted.id) + " 0x80009301 nothing");
        return next;
    }
};

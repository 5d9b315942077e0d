/*
 * The real queue and the plain list of it (retry_model.h), side by side. Each operation is done on
 * both; difference() compares what there is to see afterwards: who waits, in which order, what the
 * call-backs have heard, and all that a program can read of the queue.
 *
 * The call-backs of real requests keep what came and then do what the request's habit says. There
 * is one user of the queue at a time, since a call-back is told nothing but a number.
 */
#pragma once

#include "retry_model.h"

#include <map>

#include "unit/zyumm_cmm_page/page_fixture.h"

/* ------------------------------------------------------------------ the user of the real queue */

struct held_thing {
    page_ctrl *page; /* one of the two */
    SGL *run;
};

struct real_user {
    std::map<uint64_t, wish> asked;
    std::deque<held_thing> held;
    std::vector<std::string> told;
};

inline real_user *user;

inline void real_ask(const wish &wanted);

inline void real_give_back(size_t which)
{
    if (user->held.empty())
        return;
    const auto at = user->held.begin() + long(which % user->held.size());
    const held_thing thing = *at;
    user->held.erase(at);
    if (thing.page != nullptr)
        freeOnePage(thing.page, MODULE, OWNER, 31);
    else
        freeMultiPages(thing.run, MODULE, OWNER, 32);
}

inline void hear_failure(uint64_t id)
{
    const habit does = user->asked[id].does;
    user->told.push_back("fail " + std::to_string(id));
    if (does == habit::HANDS_BACK)
        real_give_back(0);
    else if (does == habit::WALKS)
        page_do_retry();
}

inline bool is_fresh_page(const page_ctrl *page)
{
    return page->ref == 1 && page->owner_modid == MODULE && page->page_addr != nullptr;
}

/* What came, looked at as closely as it can be without writing to it. */
inline std::string text_of_result(const wish &wanted, const void *result)
{
    if (result == nullptr)
        return "nothing";
    if (!wanted.is_run)
        return is_fresh_page(static_cast<const page_ctrl *>(result)) ? "page" : "a bad page";

    const SGL *const chain = static_cast<const SGL *>(result);
    uint32_t good = 0;
    for (const SGL *sgl = chain; sgl != nullptr; sgl = sgl->nextSgl) {
        for (uint32_t i = 0; i < sgl->entryNum; ++i)
            good += is_fresh_page(sgl->entries[i].pageCtrl) ? 1 : 0;
    }
    return (good == chain->entrySumInChain ? "run of " : "a bad run of ") + std::to_string(good);
}

inline void keep(const wish &wanted, void *result)
{
    if (wanted.is_run)
        user->held.push_back({nullptr, static_cast<SGL *>(result)});
    else
        user->held.push_back({static_cast<page_ctrl *>(result), nullptr});
}

inline void hear_end(void *result, uint64_t id, uint32_t ret)
{
    const wish wanted = user->asked[id];
    user->told.push_back("end " + std::to_string(id) + " " + hex(uint64_t(ret)) + " " +
                         text_of_result(wanted, result));
    if (result == nullptr)
        return;
    keep(wanted, result);
    if (wanted.does == habit::HANDS_BACK)
        real_give_back(user->held.size() - 1);
    else if (wanted.does == habit::ASKS_AGAIN)
        real_ask({id + retry_model::SECOND_WISH, false, 1, retry_model::NEVER, habit::NONE});
    else if (wanted.does == habit::WALKS)
        umm_hung_page_timeout_detect();
}

inline void real_ask(const wish &wanted)
{
    user->asked[wanted.id] = wanted;
    if (wanted.is_run)
        allocMultiPagesForPagePoolTimeOut(wanted.pages, nullptr, wanted.timeout, hear_end,
                                          wanted.id, hear_failure, wanted.id, MODULE, OWNER, 22);
    else
        allocOnePageForPagePoolTimeOut(nullptr, wanted.timeout, hear_end, wanted.id, hear_failure,
                                       wanted.id, MODULE, OWNER, 21);
}

inline void real_restart()
{
    page_exit_retry();
    page_init_retry();
    fake_limit(s_page_request_id, retry_model::MOST_REQUESTS);
}

/* ------------------------------------------------------------------ both, side by side */

class both_queues
{
public:
    explicit both_queues(flaw wrong) : model_(wrong)
    {
        fake_forget_calls();
        fake_set_nanosec(model_.now);
        user = &user_;
        real_restart();
        set_limit(0);
    }

    ~both_queues()
    {
        while (!user_.held.empty())
            real_give_back(0);
        user = nullptr;
    }

    void ask(bool is_run, uint32_t pages, uint32_t timeout, habit does)
    {
        const wish wanted = {++ids_, is_run, pages, timeout, does};
        model_.ask(wanted);
        real_ask(wanted);
    }

    void set_limit(uint64_t pages)
    {
        model_.limit = pages;
        fake_limit(s_page_partition_id, pages);
    }

    void give_back(size_t which)
    {
        model_.give_back(which);
        real_give_back(which);
    }

    void advance(uint64_t nanosec)
    {
        model_.now += nanosec;
        fake_advance_nanosec(nanosec);
    }

    void kick()
    {
        model_.kick();
        page_start_retry();
    }

    void run(uint64_t clock_step)
    {
        set_clock_step(clock_step);
        model_.run();
        page_do_retry();
        set_clock_step(0);
    }

    void walk(uint64_t clock_step)
    {
        set_clock_step(clock_step);
        model_.walk();
        umm_hung_page_timeout_detect();
        set_clock_step(0);
    }

    /* As an embedder's thread does it. */
    void drive()
    {
        if (!model_.waiting.empty())
            model_.kick();
        if (model_.pending != 0)
            model_.run();
        if (s_retry_req_list.sum != 0)
            page_start_retry();
        if (s_enter_retry_cnt != 0)
            page_do_retry();
    }

    void restart()
    {
        model_.restart();
        real_restart();
    }

    /* What is not as the model has it; empty when all is well. */
    std::string difference() const
    {
        if (user_.told != model_.told)
            return "heard " + newest(user_.told) + ", the model " + newest(model_.told);
        const std::string list = list_difference();
        return list.empty() ? count_difference() : list;
    }

    std::string end()
    {
        while (!user_.held.empty())
            real_give_back(0);
        return pages_out() == 0 ? "" : "a leak of pages";
    }

private:
    retry_model model_;
    real_user user_;
    uint64_t ids_ = 0;

    void set_clock_step(uint64_t by)
    {
        model_.clock_step = by;
        fake_set_nanosec_step(by);
    }

    static std::string newest(const std::vector<std::string> &told)
    {
        return std::to_string(told.size()) + " lines up to \"" + (told.empty() ? "" : told.back()) +
               "\"";
    }

    static std::string unlike(const char *what, uint64_t real, uint64_t model)
    {
        if (real == model)
            return "";
        return std::string(what) + " " + std::to_string(real) + ", the model has " +
               std::to_string(model);
    }

    static bool same_request(const page_retry_req &real, const waiting_request &request)
    {
        const wish &wanted = request.wanted;
        return real.cbArg == wanted.id && real.failcbArg == wanted.id &&
               real.output_type == (wanted.is_run ? 0 : 1) && real.page_cnt == wanted.pages &&
               real.timeout == wanted.timeout && real.enqueue_time == request.since &&
               real.served == 0 && real.module_id == MODULE;
    }

    std::string list_difference() const
    {
        list_link *const head = &s_retry_req_list.head;
        list_link *link = head;
        for (const waiting_request &request : model_.waiting) {
            const std::string name = "request " + std::to_string(request.wanted.id);
            if (link->next == head)
                return name + " does not wait";
            if (link->next->prev != link)
                return "the link back from " + name;
            link = link->next;
            if (!same_request(*retry_record(link), request))
                return name + " is not where the model has it";
        }
        if (link->next != head || head->prev != link)
            return "more wait than in the model";
        return "";
    }

    static uint64_t marker()
    {
        list_link *const at = s_hung_page_list_travel_node;
        if (at == nullptr)
            return retry_model::NOWHERE;
        return at == &s_retry_req_list.head ? retry_model::AT_HEAD : retry_record(at)->cbArg;
    }

    std::string count_difference() const
    {
        const struct {
            const char *what;
            uint64_t real, model;
        } counts[] = {
            {"sum", s_retry_req_list.sum, model_.waiting.size()},
            {"pending runs", s_enter_retry_cnt, model_.pending},
            {"absorbed kicks", s_enter_retry_repeat_cnt, model_.absorbed},
            {"marker", marker(), model_.marker},
            {"pages out", pages_out(), model_.out},
            {"requests out", requests_out(), model_.waiting.size()},
            {"expiry of the retry timer", fake_timer(&s_retry_timer).expires, model_.retry_timer},
            {"expiry of the walk's timer", fake_timer(&s_hung_page_timer).expires,
             model_.walk_timer},
            {"clock", zyax_time_getnanosec(), model_.now},
            {"locks held", fake_locks_held(), 0},
        };
        for (const auto &count : counts) {
            const std::string found = unlike(count.what, count.real, count.model);
            if (!found.empty())
                return found;
        }
        return "";
    }
};

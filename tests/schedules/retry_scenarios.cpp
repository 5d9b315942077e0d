#include "retry_scenarios.h"

#include "retry_world.h"

namespace
{

constexpr uint32_t NOW = 0;
constexpr uint32_t NEVER = PAGE_TIMEOUT_NEVER;

void enqueue_page(uint64_t request, uint32_t timeout)
{
    world::enqueue(request, PAGE_REQ_OUTPUT_PAGE, 1, timeout);
}

void drive_twice()
{
    world::drive_once();
    world::drive_once();
}

void walk_twice()
{
    umm_hung_page_timeout_detect();
    umm_hung_page_timeout_detect();
}

/* Three requests, of which the first two have waited too long, and a pending run. */
schedule::scenario run_beside_walks(const char *name, uint32_t free_pages, unsigned late_at)
{
    const auto prepare = [free_pages, late_at] {
        world::setting as = {.free_pages = free_pages};
        as.held_pages = 1;
        as.late_walker = 1;
        as.late_at = late_at;
        world::begin(as);
        enqueue_page(1, NOW);
        enqueue_page(2, NOW);
        enqueue_page(3, NEVER);
        page_start_retry();
        world::let_time_pass();
    };
    return {std::string(name) + " " + std::to_string(late_at),
            prepare,
            {page_do_retry, walk_twice, world::give_page_back},
            world::check_end};
}

} // namespace

namespace scenarios
{

schedule::scenario serving(unsigned late_at)
{
    return run_beside_walks("serving", 3, late_at);
}

schedule::scenario giving_up(unsigned late_at)
{
    return run_beside_walks("giving up", 0, late_at);
}

schedule::scenario two_runs(unsigned late_at)
{
    const auto prepare = [late_at] {
        world::setting as = {.free_pages = 2};
        as.late_walker = 2;
        as.late_at = late_at;
        as.careful = false;
        world::begin(as);
        enqueue_page(1, NOW);
        enqueue_page(2, NEVER);
        page_start_retry();
        world::let_time_pass();
    };
    return {"two runs " + std::to_string(late_at),
            prepare,
            {page_do_retry, page_do_retry, walk_twice},
            world::check_end};
}

schedule::scenario queueing(unsigned late_at)
{
    const auto prepare = [late_at] {
        world::setting as = {.free_pages = 1};
        as.late_walker = 1;
        as.late_at = late_at;
        as.ordered = false;
        world::begin(as);
        enqueue_page(1, NOW);
        page_start_retry();
        world::let_time_pass();
    };
    const auto ask_twice = [] {
        world::ask_page(2, NEVER);
        world::ask_page(3, NEVER);
    };
    return {"queueing " + std::to_string(late_at),
            prepare,
            {page_do_retry, walk_twice, ask_twice},
            world::check_end};
}

schedule::scenario pages_back()
{
    const auto prepare = [] {
        world::setting as = {.free_pages = 0};
        as.held_pages = 1;
        as.ordered = false;
        world::begin(as);
    };
    return {"pages back",
            prepare,
            {world::give_page_back, drive_twice, [] { world::ask_page(1, NEVER); }},
            world::check_end};
}

schedule::scenario kicks()
{
    const auto prepare = [] {
        world::begin({.free_pages = 0});
        enqueue_page(1, NEVER);
    };
    const auto kick = [] { page_start_retry(); };
    const auto kick_twice = [] {
        page_start_retry();
        page_start_retry();
    };
    return {"kicks", prepare, {kick, kick_twice, drive_twice}, world::check_end};
}

schedule::scenario partial_run()
{
    const auto prepare = [] {
        world::setting as = {.free_pages = 1};
        as.held_pages = 1;
        world::begin(as);
        world::enqueue(1, PAGE_REQ_OUTPUT_SGL, 2, NOW);
        enqueue_page(2, NEVER);
        world::let_time_pass();
    };
    return {"partial run",
            prepare,
            {drive_twice, world::give_page_back, umm_hung_page_timeout_detect},
            world::check_end};
}

std::vector<schedule::scenario> all()
{
    std::vector<schedule::scenario> wanted;
    for (unsigned late_at = 0; late_at <= LATEST; ++late_at) {
        for (schedule::scenario (*make)(unsigned) : {serving, giving_up, two_runs, queueing})
            wanted.push_back(make(late_at));
    }
    for (schedule::scenario (*make)() : {pages_back, kicks, partial_run})
        wanted.push_back(make());
    return wanted;
}

} // namespace scenarios

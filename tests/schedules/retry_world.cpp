#include "retry_world.h"

#include <cstring>

#include "zymm.h"
#include "zyumm_cmm_sgl.h"

#include "zyumm_cmm_page/page_local.h"

namespace
{

constexpr uint32_t MODULE = 77;
constexpr char OWNER[] = "the owner";
constexpr uint64_t PAGE_SLAB = 1; /* handles; the explorer's objects for the slabs, too */
constexpr uint64_t SGL_SLAB = 2;
constexpr uint64_t RECORD_SLAB = 3;
constexpr uint64_t CLOCK = 4; /* the explorer's objects */
constexpr uint64_t HELD_PAGES = 5;
constexpr uint64_t SERVED_ORDER = 6;
constexpr uint64_t ANSWER = 16; /* ... of request 0 */
constexpr unsigned MOST_RECORDS = 8;
constexpr unsigned MOST_PAGES = 8;
constexpr unsigned MOST_SGLS = 16;
constexpr unsigned MOST_REQUESTS = 8;
constexpr uint64_t MILLISECOND = 1000000;
constexpr uint64_t START_OF_TIME = 1000000000;
constexpr int ROUNDS_TO_END = 3; /* of driving an unhindered queue */

/* Nobody but its maker knows a new record; it is out once the lock is taken that queues it. */
enum record_state : uint8_t { UNUSED, NEW, OUT, FREED };

struct answer {
    bool asked;
    uint32_t fails;
    uint32_t ends;
    uint32_t code;
    void *result;
    bool is_run;
};

/* Memory that lies still between runs, so that addresses are the same in each. */
page_retry_req s_records[MOST_RECORDS];
alignas(64) uint8_t s_pages[MOST_PAGES][8448];
alignas(64) uint8_t s_sgls[MOST_SGLS][1600];

struct {
    world::setting as;
    record_state records[MOST_RECORDS];
    int makers[MOST_RECORDS];
    unsigned records_used;
    bool page_out[MOST_PAGES];
    unsigned pages; /* that exist */
    bool sgl_out[MOST_SGLS];
    uint64_t now;
    unsigned readings; /* by the late walker */
    page_ctrl *held[MOST_PAGES];
    unsigned held_count;
    answer answers[MOST_REQUESTS];
    uint64_t last_served;
} s_world;

template <typename T>
bool lies_in(uintptr_t address, const T &variable)
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(&variable);
    return address >= begin && address < begin + sizeof variable;
}

/* ------------------------------------------------------------------ slabs */

void *take_record()
{
    if (s_world.records_used == MOST_RECORDS)
        return nullptr;
    s_world.records[s_world.records_used] = NEW;
    s_world.makers[s_world.records_used] = schedule::running();
    return &s_records[s_world.records_used++];
}

void publish_records_of(int thread)
{
    for (unsigned i = 0; i < MOST_RECORDS; ++i) {
        if (s_world.records[i] == NEW && s_world.makers[i] == thread)
            s_world.records[i] = OUT;
    }
}

/* The end of a record is as a write to all of it, for whoever still looks at it. */
int give_record(const void *object)
{
    const size_t index = size_t(static_cast<const page_retry_req *>(object) - s_records);
    schedule::expect(index < MOST_RECORDS, "something else was freed as a record");
    schedule::expect(s_world.records[index] == OUT, "a record was freed twice");
    s_world.records[index] = FREED;
    for (size_t at = 0; at < sizeof(page_retry_req); at += sizeof(uint64_t))
        schedule::touch((reinterpret_cast<uint64_t>(object) + at) / sizeof(uint64_t), true);
    return 0;
}

template <size_t N, size_t SIZE>
void *take_of(uint8_t (&objects)[N][SIZE], bool (&out)[N], unsigned count)
{
    for (unsigned i = 0; i < count; ++i) {
        if (!out[i]) {
            out[i] = true;
            return objects[i];
        }
    }
    return nullptr;
}

template <size_t N, size_t SIZE>
int give_of(uint8_t (&objects)[N][SIZE], bool (&out)[N], const void *object)
{
    for (unsigned i = 0; i < N; ++i) {
        if (objects[i] == object) {
            schedule::expect(out[i], "an object was freed twice");
            out[i] = false;
            return 0;
        }
    }
    schedule::fail("a foreign object was freed");
}

/* ------------------------------------------------------------------ answers */

void on_fail(uint64_t request)
{
    schedule::step(ANSWER + request, true, "is told of a failure");
    schedule::expect(s_world.answers[request].ends == 0, "a failure was announced after the end");
    s_world.answers[request].fails++;
}

void check_order(uint64_t request)
{
    schedule::touch(SERVED_ORDER, true);
    schedule::expect(request > s_world.last_served, "a request was served before an older one");
    s_world.last_served = request;
}

void on_end(void *result, uint64_t request, uint32_t code)
{
    schedule::step(ANSWER + request, true, "is answered");
    answer &mine = s_world.answers[request];
    schedule::expect(mine.ends == 0, "a request was answered twice");
    schedule::expect((code == 0) == (result != nullptr), "pages and code disagree");
    schedule::expect(mine.fails == (code == 0 ? 0u : 1u), "the failure call-back came amiss");
    if (code == 0 && s_world.as.ordered)
        check_order(request);
    mine.ends = 1;
    mine.code = code;
    mine.result = result;
}

void free_result(answer *of)
{
    if (of->result == nullptr)
        return;
    if (of->is_run)
        freeMultiPages(static_cast<SGL *>(of->result), MODULE, OWNER, 1);
    else
        freeOnePage(static_cast<page_ctrl *>(of->result), MODULE, OWNER, 1);
    of->result = nullptr;
}

void expect_asked(uint64_t request, bool is_run)
{
    schedule::expect(request < MOST_REQUESTS && !s_world.answers[request].asked,
                     "the scenario asks twice under one number");
    s_world.answers[request].asked = true;
    s_world.answers[request].is_run = is_run;
}

/* ------------------------------------------------------------------ the end */

unsigned waiting_requests()
{
    unsigned waiting = 0;
    for (const answer &each : s_world.answers)
        waiting += each.asked && each.ends == 0;
    return waiting;
}

unsigned records_out()
{
    unsigned out = 0;
    for (const record_state state : s_world.records)
        out += state == OUT;
    return out;
}

bool is_record_on_hand(const list_link *link)
{
    for (unsigned i = 0; i < MOST_RECORDS; ++i) {
        if (&s_records[i].list == link)
            return s_world.records[i] == OUT;
    }
    return false;
}

/* Both directions, the marks, the walk's marker; answers the number of records. */
uint64_t check_list()
{
    const list_link *const head = &s_retry_req_list.head;
    const list_link *const marker = s_hung_page_list_travel_node;
    bool marker_is_there = marker == nullptr || marker == head;
    uint64_t count = 0;

    for (const list_link *link = head; link->next != head; link = link->next) {
        const list_link *const next = link->next;
        schedule::expect(count < MOST_RECORDS, "the list runs in a circle");
        schedule::expect(is_record_on_hand(next), "the list holds what is no record");
        schedule::expect(next->prev == link, "the list does not lead back");
        schedule::expect(reinterpret_cast<const page_retry_req *>(next)->served == 0,
                         "a waiting record is still marked as being served");
        marker_is_there = marker_is_there || marker == next;
        count++;
    }
    schedule::expect(marker_is_there, "the walk's marker names a record that is gone");
    return count;
}

void check_answers_against_queue()
{
    const uint64_t queued = check_list();
    schedule::expect(s_retry_req_list.sum == queued, "the sum is not the list's");
    schedule::expect(waiting_requests() == queued, "a request is neither answered nor queued");
    schedule::expect(records_out() == queued, "a record has leaked");
    if (s_world.as.careful)
        schedule::expect(s_enter_retry_cnt <= 1, "the count of pending runs is beyond 1");
}

void bring_all_pages_back()
{
    while (s_world.held_count != 0)
        world::give_page_back();
    for (answer &each : s_world.answers)
        free_result(&each);
}

} // namespace

namespace world
{

memory kind_of(uintptr_t address)
{
    if (lies_in(address, s_records)) {
        const size_t index =
            (address - reinterpret_cast<uintptr_t>(s_records)) / sizeof(page_retry_req);
        if (s_world.records[index] == NEW)
            return memory::OTHER;
        return s_world.records[index] == OUT ? memory::SHARED : memory::FREED;
    }
    const bool is_shared = lies_in(address, s_retry_req_list) ||
                           lies_in(address, s_enter_retry_cnt) ||
                           lies_in(address, s_hung_page_list_travel_node);
    return is_shared ? memory::SHARED : memory::OTHER;
}

void begin(const setting &wanted)
{
    memset(s_records, 0, sizeof s_records);
    s_world = {};
    s_world.as = wanted;
    s_world.now = START_OF_TIME;
    s_world.pages = wanted.free_pages + wanted.held_pages;

    s_page_partition_id = PAGE_SLAB;
    g_sgl_partition_id = SGL_SLAB;
    s_page_request_id = RECORD_SLAB;
    s_retry_req_list = {};
    s_enter_retry_cnt = 0;
    s_enter_retry_repeat_cnt = 0;
    s_hung_page_list_travel_node = nullptr;
    retry_list_reset();

    for (unsigned i = 0; i < wanted.held_pages; ++i)
        s_world.held[s_world.held_count++] = allocOnePageSync(MODULE, OWNER, 1);
}

void ask_page(uint64_t request, uint32_t timeout)
{
    expect_asked(request, false);
    allocOnePageForPagePoolTimeOut(nullptr, timeout, on_end, request, on_fail, request, MODULE,
                                   OWNER, 1);
}

void ask_run(uint64_t request, uint32_t pages, uint32_t timeout)
{
    expect_asked(request, true);
    allocMultiPagesForPagePoolTimeOut(pages, nullptr, timeout, on_end, request, on_fail, request,
                                      MODULE, OWNER, 1);
}

void enqueue(uint64_t request, uint16_t output_type, uint32_t pages, uint32_t timeout)
{
    expect_asked(request, output_type == PAGE_REQ_OUTPUT_SGL);
    page_add_retry_req(output_type, pages, timeout, on_end, request, on_fail, request, MODULE,
                       OWNER, 1);
}

void let_time_pass()
{
    s_world.now += 2000 * MILLISECOND;
}

void give_page_back()
{
    schedule::touch(HELD_PAGES, true);
    page_ctrl *const page = s_world.held[--s_world.held_count];
    freeOnePage(page, MODULE, OWNER, 1);
}

void drive_once()
{
    schedule::step(reinterpret_cast<uint64_t>(&s_retry_req_list.sum) / 8, false, "looks at sum");
    if (s_retry_req_list.sum != 0)
        page_start_retry();
    schedule::step(reinterpret_cast<uint64_t>(&s_enter_retry_cnt) / 8, false, "looks at count");
    if (s_enter_retry_cnt != 0)
        page_do_retry();
}

void check_end()
{
    check_answers_against_queue();

    if (!s_world.as.careful)
        s_enter_retry_cnt = 0; /* documented: a run that nobody claimed spoils the count */
    s_world.pages = MOST_PAGES;
    for (int round = 0; round < ROUNDS_TO_END; ++round) {
        bring_all_pages_back();
        drive_once();
    }
    bring_all_pages_back();
    check_answers_against_queue();
    schedule::expect(waiting_requests() == 0, "a request waits for ever");
    for (const bool out : s_world.page_out)
        schedule::expect(!out, "a page has leaked");
    for (const bool out : s_world.sgl_out)
        schedule::expect(!out, "an SGL has leaked");
}

} // namespace world

/* ------------------------------------------------------------------ the platform */

extern "C" {

void __wrap_do_zyax_spinlock_lock(zyax_spinlock *lock, const char *, uint32_t)
{
    schedule::lock(lock);
    publish_records_of(schedule::running());
}

int __wrap_do_zyax_spinlock_trylock(zyax_spinlock *lock, const char *, uint32_t)
{
    return schedule::trylock(lock) ? 1 : 0;
}

void __wrap_do_zyax_spinlock_unlock(zyax_spinlock *lock)
{
    schedule::unlock(lock);
}

uint64_t __wrap_zyax_time_getnanosec(void)
{
    const bool by_walker = schedule::running() == int(s_world.as.late_walker);
    const bool jumps = by_walker && ++s_world.readings == s_world.as.late_at;
    schedule::step(CLOCK, jumps, "reads the clock");
    if (jumps)
        s_world.now += 2 * MILLISECOND;
    return s_world.now;
}

int __wrap_zyax_timer_modify(zyax_timer *, uint64_t)
{
    return 0;
}

void *__wrap_zymm_slab_malloc(uint64_t slab, uint32_t, const char *, uint32_t)
{
    schedule::step(slab, true, "allocates");
    if (slab == RECORD_SLAB)
        return take_record();
    if (slab == SGL_SLAB)
        return take_of(s_sgls, s_world.sgl_out, MOST_SGLS);
    return take_of(s_pages, s_world.page_out, s_world.pages);
}

int __wrap_zymm_slab_free(uint64_t slab, void *object, uint32_t, const char *)
{
    schedule::step(slab, true, "frees");
    if (slab == RECORD_SLAB)
        return give_record(object);
    if (slab == SGL_SLAB)
        return give_of(s_sgls, s_world.sgl_out, object);
    return give_of(s_pages, s_world.page_out, object);
}

/* Lines are the unit tests' business; here each would only cost time. */
int __wrap_zylog_level_check(uint32_t, uint32_t)
{
    return -1;
}
}

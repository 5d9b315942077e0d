/*
 * Dirty pages on their way into the files: the oldest first, each together with the dirty pages
 * beside it in its stripe.
 *
 * What is written is a chain with references of its own, and a page that is dirty stays so until
 * its write has succeeded. Meanwhile the range is held: readers go on, writes to these pages wait.
 */
#include <cerrno>
#include <chrono>

#include "block_device.h"
#include "error_text.h"
#include "zylog.h"
#include "zyumm_cmm.h"

namespace {

constexpr std::chrono::milliseconds PERIOD{100};
constexpr std::chrono::milliseconds AGE{5000};   /* dirty pages are written after that */
constexpr std::chrono::microseconds LONGEST_PAUSE{10000}; /* between two runs */

/* For pages, in the library's queue. */
bool requests_wait()
{
    return __atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED) != 0;
}

} // namespace

/* The oldest dirty page that was there at `until`, and its dirty neighbours. */
bool block_device::pick(cache_shard &shard, uint64_t until, page_range *run)
{
    std::lock_guard hold(shard.lock);
    const auto is_dirty = [&](uint64_t number) {
        const cached_page *one = shard.find(number);
        return one != nullptr && one->dirty_since != 0;
    };
    const cached_page *oldest = shard.oldest_dirty();

    if (oldest == nullptr || oldest->dirty_since > until)
        return false;
    uint64_t first = oldest->number, end = first + 1;
    while (first % STRIPE_PAGES != 0 && is_dirty(first - 1))
        --first;
    while (end % STRIPE_PAGES != 0 && is_dirty(end))
        ++end;
    *run = {first, uint32_t(end - first)};
    return true;
}

/* Fills up pages that are valid in part; what is damaged in the file stays as it is there. */
int block_device::complete(page_range run, SGL *chain)
{
    std::array<uint8_t, PAGE_SIZE_WITH_DIF> content;

    for (uint32_t i = 0; i < run.count; ++i) {
        page_ctrl *page = chain->entries[i].pageCtrl;
        const uint8_t valid = getPageValidBitMap(page);
        if (valid == PAGE_FULLY_VALID)
            continue;

        uint8_t *memory = content.data();
        page_finding finding;
        if (const int failed = files_.read({run.first + i, 1}, &memory, &finding))
            return failed;
        copy_sectors(page->page_addr, content.data(), sectors_of_bits(uint8_t(~valid)));
        addPageValidBitMap(page, bits_with_both(uint16_t(~finding.bad)));
        ++written.completed;
    }
    return 0;
}

int block_device::write_run(io_request &request, page_range run, SGL *chain)
{
    int failed = complete(run, chain);
    if (failed == 0)
        failed = files_.write(request, run, chain);
    if (failed != 0) {
        ++written.failures;
        if (write_failure_.exchange(failed) == 0)
            zylog(NODE_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, __func__, 0,
                  "pages %lu to %lu cannot be written: %s; they stay in the cache", run.first,
                  run.end() - 1, error_text(failed));
        return failed;
    }
    write_failure_ = 0;
    ++written.runs;
    written.pages += run.count;

    cache_shard &shard = cache.shard_of(run.first);
    std::lock_guard hold(shard.lock);
    for (uint64_t number = run.first; number < run.end(); ++number)
        if (cached_page *one = shard.find(number); one != nullptr && one->dirty_since != 0)
            cache.now_clean(shard, one);
    return 0;
}

/* Writes what is dirty in the range, run by run. */
int block_device::write_back(io_request &request, page_range range)
{
    cache_shard &shard = cache.shard_of(range.first);
    const range_hold held(cache, range);

    for (uint64_t at = range.first; at < range.end();) {
        SGL *chain = nullptr;
        allocOneSgl(&chain, NODE_MODULE_ID, __func__, __LINE__);
        if (chain == nullptr)
            return ENOMEM;
        page_range run = {at, 0};
        {
            SGL *cur = chain;
            uint32_t index = 0;
            std::lock_guard hold(shard.lock);
            for (; at < range.end(); ++at) {
                cached_page *one = shard.find(at);
                if (one != nullptr && one->dirty_since != 0)
                    add_one_page_to_sgl(chain, &cur, &index,
                                        page_reference::to(one->page).detach());
                else if (chain->entryNum > 0)
                    break;
                else
                    run.first = at + 1;
            }
            run.count = chain->entryNum;
        }
        const int failed = run.count > 0 ? write_run(request, run, chain) : 0;
        freeMultiPages(chain, NODE_MODULE_ID, __func__, __LINE__);
        if (failed != 0)
            return failed;
    }
    return 0;
}

int block_device::write_back_until(io_request &request, uint64_t until)
{
    page_range run;

    for (uint32_t i = 0; i < block_cache::SHARDS; ++i)
        while (pick(cache.shard(i), until, &run))
            if (const int failed = write_back(request, run))
                return failed;
    return 0;
}

int block_device::flush()
{
    io_request request(IO_FLUSH, 0, 0, 0);
    const int failed = write_back_until(request, cache.now());
    return failed != 0 ? failed : files_.sync();
}

/* Writes one run of any dirty pages; false when there are none. */
bool block_device::write_back_any(io_request &request, int *failed)
{
    static std::atomic<uint32_t> turn{0};
    const uint32_t start = turn++;
    page_range run;

    for (uint32_t i = 0; i < block_cache::SHARDS; ++i) {
        if (!pick(cache.shard((start + i) % block_cache::SHARDS), ~uint64_t(0), &run))
            continue;
        *failed = write_back(request, run);
        return true;
    }
    return false;
}

/* Half of the pool may be dirty at most, so that readers always find pages. A writer who would pass
 * that writes back himself, which makes writers no faster than the files; and when the files take
 * nothing any more he is told so. He holds nothing meanwhile. */
int block_device::admit(io_request &request, uint32_t pages)
{
    for (;;) {
        {
            std::lock_guard hold(admission_lock_);
            if (cache.dirty() + pending_ + pages <= most_) {
                pending_ += pages;
                return 0;
            }
        }
        int failed = 0;
        if (write_back_any(request, &failed)) {
            ++written.by_writers;
            if (failed != 0)
                return failed;
            continue;
        }
        std::unique_lock hold(admission_lock_);
        admitted_less_.wait_for(hold, PERIOD);
    }
}

/* ------------------------------------------------------------------------ thread */

void block_device::wake_write_back()
{
    {
        std::lock_guard hold(lock_);
        if (short_)
            return;
        short_ = true;
    }
    wake_.notify_one();
}

/* The more pages are dirty, the shorter: a page that is written again and again is better written
 * to the files once, and the processor is the clients' first. */
void block_device::pause()
{
    const uint64_t room = most_ - std::min<uint64_t>(most_, cache.dirty());
    std::unique_lock hold(lock_);

    wake_.wait_for(hold, LONGEST_PAUSE * room / most_,
                   [this] { return stopping_ || requests_wait(); });
}

/* Pages that were dirty at `aged` first; then as many as there are too many dirty ones; then, for
 * those who wait in the queue, clean pages out of what is left. */
void block_device::write_back_round(io_request &request, uint64_t aged)
{
    page_range run;
    int failed = 0;

    for (uint32_t i = 0; i < block_cache::SHARDS; ++i)
        for (; failed == 0 && !requests_wait() && pick(cache.shard(i), aged, &run); pause())
            failed = write_back(request, run);
    while (failed == 0 && !requests_wait() && cache.dirty() > low_ &&
           write_back_any(request, &failed))
        pause();
    while (requests_wait()) {
        if (cache.give_back(STRIPE_PAGES, true) > 0)
            supply.poller.signal();
        else if (write_back_until(request, cache.now()) != 0 || cache.dirty() == 0)
            return;
    }
}

void block_device::write_back_loop()
{
    io_request request(IO_WRITE_PAGES, 0, 0, 0);
    uint64_t aged = 0, young = 0;
    auto turn = std::chrono::steady_clock::now() + AGE;

    for (;;) {
        {
            std::unique_lock hold(lock_);
            wake_.wait_for(hold, PERIOD, [this] { return stopping_ || short_; });
            if (stopping_)
                return;
            short_ = false;
        }
        if (std::chrono::steady_clock::now() >= turn) {
            turn += AGE;
            aged = young;
            young = cache.now();
        }
        write_back_round(request, aged);
    }
}

/* ------------------------------------------------------------------ start, stop */

void block_device::start(uint32_t timeout)
{
    const uint32_t pages = g_ucmm_config.page_max;

    if (pages < 2 * 8)
        throw node_error("a page pool of " + std::to_string(pages) + " is too small: 16 at least");
    longest_part_ = std::clamp(pages / 8, 1u, STRIPE_PAGES);
    low_ = pages / 4;
    most_ = pages / 2;
    cache.open();
    supply.open(timeout, [this] { wake_write_back(); });
    supply.poller.start();
    files_.start();
    write_back_thread_ = std::thread([this] { write_back_loop(); });
}

int block_device::stop()
{
    int failed = 0;
    {
        std::lock_guard hold(lock_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (write_back_thread_.joinable())
        write_back_thread_.join();
    try {
        failed = flush();
    } catch (const std::exception &) {
        failed = ENOMEM;
    }
    supply.statistics.sample(); /* the cache goes, and with it what it held at its fullest */
    files_.stop();
    records_left_ = !cache.close();
    supply.poller.stop();
    return failed;
}

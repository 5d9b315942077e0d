/*
 * Reading with repair, writing to all copies.
 */
#include "device_files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "error_text.h"
#include "io_request.h"
#include "node_identity.h"
#include "protection.h"
#include "zylog.h"
#include "zyumm_cmm_sgl.h"

namespace {

void copy_sector(uint8_t *to, const uint8_t *from, uint32_t sector)
{
    memcpy(to + sector * PAGE_SECTOR_SIZE, from + sector * PAGE_SECTOR_SIZE, PAGE_SECTOR_SIZE);
}

} // namespace

size_t device_files::replicas_left() const
{
    size_t left = 0;
    for (const replica &one : replicas_)
        left += one.left_behind ? 0 : 1;
    return left;
}

void device_files::start()
{
    for (replica &one : replicas_)
        one.writer.start();
}

void device_files::stop()
{
    for (replica &one : replicas_)
        one.writer.stop();
}

void device_files::close()
{
    const uint64_t epoch = first_.file.header().epoch;

    for (replica &one : replicas_)
        if (!one.left_behind)
            one.copy.file.mark(STATE_CLOSED, epoch);
    first_.file.mark(STATE_CLOSED, epoch);
}

int device_files::sync()
{
    for (replica &one : replicas_) {
        const int failed = one.left_behind ? 0 : one.copy.file.sync();
        if (failed != 0)
            leave_behind(one, failed);
    }
    return first_.file.sync();
}

/* From here on the others know more than this one: a higher epoch tells the next start. */
void device_files::leave_behind(replica &one, int failed)
{
    std::lock_guard hold(epoch_lock_);
    const uint64_t epoch = first_.file.header().epoch + 1;

    if (one.left_behind.exchange(true))
        return;
    zylog(NODE_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, __func__, 0,
          "%s is left behind: %s. It will be made anew at the next start.",
          one.copy.file.path().c_str(), error_text(failed));
    first_.file.mark(STATE_OPEN, epoch);
    for (replica &other : replicas_)
        if (!other.left_behind)
            other.copy.file.mark(STATE_OPEN, epoch);
}

/* ------------------------------------------------------------------------- reading */

int device_files::read_one_by_one(page_range range, uint8_t *const *pages)
{
    for (uint32_t i = 0; i < range.count; ++i) {
        const uint64_t offset = offset_of_page(range.first + i);
        int failed = first_.file.read(pages[i], PAGE_SIZE_WITH_DIF, offset);

        for (replica &one : replicas_) {
            if (failed != 0 && !one.left_behind)
                failed = one.copy.file.read(pages[i], PAGE_SIZE_WITH_DIF, offset);
        }
        if (failed != 0) {
            zylog(NODE_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, __func__, 0,
                  "page %lu cannot be read: %s", range.first + i, error_text(failed));
            return failed;
        }
    }
    return 0;
}

int device_files::read(page_range range, uint8_t *const *pages, page_finding *findings)
{
    std::array<iovec, STRIPE_PAGES> vectors;

    for (uint32_t i = 0; i < range.count; ++i)
        vectors[i] = {pages[i], PAGE_SIZE_WITH_DIF};
    int failed = first_.file.read(vectors.data(), range.count, offset_of_page(range.first));
    if (failed != 0)
        failed = read_one_by_one(range, pages);
    if (failed != 0)
        return failed;

    statistics_.pages_read += range.count;
    for (uint32_t i = 0; i < range.count; ++i) {
        const uint64_t number = range.first + i;
        findings[i].hole = is_hole(pages[i]);
        if (findings[i].hole)
            protect_sectors(pages[i], number, ALL_SECTORS);
        else if ((findings[i].bad = damaged_sectors(pages[i], number)) != 0)
            mend(number, pages[i], &findings[i]);
    }
    return 0;
}

/* Takes what holds from the replicas, writes it over the first copy, and says what is left. */
void device_files::mend(uint64_t number, uint8_t *page, page_finding *finding)
{
    const uint16_t found_bad = finding->bad;
    std::array<uint8_t, PAGE_SIZE_WITH_DIF> other;

    for (uint32_t s = 0; s < PAGE_SECTORS; ++s) {
        if ((found_bad >> s & 1) != 0)
            zylog(NODE_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, __func__, 0,
                  "sector %lu is damaged at byte %lu of %s: wrong %s",
                  number * PAGE_SECTORS + s, offset_of_page(number) + s * PAGE_SECTOR_SIZE,
                  first_.file.path().c_str(), name_of(damage_of(page, number, s)));
    }
    for (replica &one : replicas_) {
        if (finding->bad == 0 || one.left_behind ||
            one.copy.file.read(other.data(), other.size(), offset_of_page(number)) != 0)
            continue;
        for (uint32_t s = 0; s < PAGE_SECTORS; ++s) {
            if ((finding->bad >> s & 1) == 0 ||
                damage_of(other.data(), number, s) != damage::NONE)
                continue;
            copy_sector(page, other.data(), s);
            finding->bad = uint16_t(finding->bad & ~(1u << s));
            ++statistics_.sectors_mended;
        }
    }
    statistics_.sectors_damaged += uint64_t(__builtin_popcount(finding->bad));
    if (finding->bad == found_bad)
        return;
    const int failed = first_.rewrite(number, page);
    zylog(NODE_MODULE_ID, ZYLOG_WARNING, __FILE__, __LINE__, __func__, 0,
          "page %lu was mended from a replica%s%s", number,
          failed != 0 ? ", but not in the file: " : "", failed != 0 ? error_text(failed) : "");
}

/* ------------------------------------------------------------------------- writing */

int device_files::write(io_request &request, page_range range, SGL *chain)
{
    statistics_.pages_written += range.count;
    ++statistics_.runs_written;
    return carry_out(request, request.part(IO_WRITE_PAGES, range, chain));
}

int device_files::trim(io_request &request, page_range range)
{
    statistics_.pages_trimmed += range.count;
    return carry_out(request, request.part(IO_TRIM_PAGES, range, nullptr));
}

/* Gives a replica its part, with a clone of the chain: true. Without SGLs for a clone the calling
 * thread writes the replica itself, from the chain. */
bool device_files::hand_out(size_t index, const cmm_genio &first, copy_job *job)
{
    SGL *chain = chain_of(first), *clone = nullptr;

    job->io = first;
    if (chain != nullptr) {
        cloneSgl(chain, chain->userTag, &clone, NODE_MODULE_ID, __func__, __LINE__);
        if (clone == nullptr) {
            replicas_[index].copy.carry_out(&job->io, *job->place);
            return false;
        }
        ++statistics_.clones;
        job->io.word_40 = reinterpret_cast<uint64_t>(clone);
    }
    replicas_[index].writer.submit(job);
    return true;
}

/* The intents of all copies stay until all copies are written: a start after the end of the process
 * finds every page in which copies may differ. */
int device_files::carry_out(io_request &request, cmm_genio first)
{
    std::array<std::optional<journal::place>, MOST_REPLICAS> places;
    std::array<copy_job, MOST_REPLICAS> jobs;
    std::array<bool, MOST_REPLICAS> handed_out{};
    journal::place place(first_.intents);

    for (size_t i = 0; i < replicas_.size(); ++i) {
        if (replicas_[i].left_behind)
            continue;
        jobs[i].place = &places[i].emplace(replicas_[i].copy.intents);
        handed_out[i] = hand_out(i, first, &jobs[i]);
    }
    first_.carry_out(&first, place);
    for (size_t i = 0; i < replicas_.size(); ++i) {
        if (!places[i].has_value())
            continue;
        if (handed_out[i])
            replicas_[i].writer.wait(&jobs[i]);
        request.done(jobs[i].io);
        if (jobs[i].io.word_48 != 0)
            leave_behind(replicas_[i], int(jobs[i].io.word_48));
    }
    request.done(first);
    return int(first.word_48);
}

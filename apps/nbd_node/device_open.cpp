/*
 * Opening of all copies, before the library and any thread runs: repair by the journals, replicas
 * that are new or were left behind, and the map of what is there.
 *
 *     first copy     closed     open           -
 *     replica        same epoch same epoch     new, or an older epoch
 *                    nothing    each by its    made anew from the first copy, page by page;
 *                               journal, then  until it is through it has epoch 0
 *                               made equal
 */
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "device_files.h"
#include "node_error.h"
#include "node_identity.h"
#include "protection.h"
#include "zylog.h"

namespace {

using page_bytes = std::array<uint8_t, PAGE_SIZE_WITH_DIF>;

void require(int failed, const backing_file &file, const char *what)
{
    if (failed != 0)
        throw system_failure(file.path() + ": " + what, failed);
}

void write_raw(backing_file &file, uint64_t number, const page_bytes &page)
{
    require(is_hole(page.data()) ? file.punch({number, 1})
                                 : file.write(page.data(), page.size(), offset_of_page(number)),
            file, "a page cannot be written");
}

/* Calls `use` with every page that may hold data, in order. */
template <typename F>
void for_each_page_with_data(const backing_file &file, F use)
{
    const uint64_t end = bytes_of_file(file.header().size);
    uint64_t next = 0; /* page */

    for (uint64_t at = file.next_data(JOURNAL_END); at < end; at = file.next_data(at)) {
        const uint64_t hole = file.next_hole(at);
        const uint64_t last = (hole - JOURNAL_END + PAGE_SIZE_WITH_DIF - 1) / PAGE_SIZE_WITH_DIF;
        for (next = std::max(next, (at - JOURNAL_END) / PAGE_SIZE_WITH_DIF); next < last; ++next)
            use(next);
        at = hole;
    }
}

} // namespace

device_files::device_files(const std::string &path, const std::vector<std::string> &replicas,
                           uint64_t size, bool barrier)
    : first_(path, size, barrier)
{
    std::vector<page_range> touched;
    const bool was_open = first_.file.header().state != STATE_CLOSED;

    if (replicas.size() > MOST_REPLICAS)
        throw node_error("no more than " + std::to_string(MOST_REPLICAS) + " replicas");
    if (first_.file.header().epoch == 0)
        throw node_error(path + ": a replica that was never completed");
    if (was_open) {
        journal::repair mine = first_.intents.replay();
        statistics_.journal_repairs += mine.pages;
        touched = std::move(mine.touched);
    }
    for (const std::string &one : replicas)
        replicas_.emplace_back(one, this->size(), barrier);
    for (replica &one : replicas_) {
        const std::vector<page_range> its = bring_up(one, was_open);
        touched.insert(touched.end(), its.begin(), its.end());
    }
    make_equal(touched);
    require(first_.file.sync(), first_.file, "cannot be synced");
    begin_epoch();
    find_present();
}

/* From here on a copy that is not served misses something. The first copy goes first: what ends the
 * process in between leaves replicas that are older, never one that is newer. */
void device_files::begin_epoch()
{
    const uint64_t epoch = first_.file.header().epoch + 1;

    require(first_.file.mark(STATE_OPEN, epoch), first_.file, "its header cannot be written");
    for (replica &one : replicas_)
        require(one.copy.file.mark(STATE_OPEN, epoch), one.copy.file,
                "its header cannot be written");
}

/* The pages of the replica's journal, when that counts. */
std::vector<page_range> device_files::bring_up(replica &one, bool was_open)
{
    const file_header mine = first_.file.header();
    backing_file &file = one.copy.file;

    if (!file.is_new() && memcmp(file.header().uuid, mine.uuid, sizeof mine.uuid) != 0 &&
        file.header().epoch != 0)
        throw node_error(file.path() + ": not a replica of " + first_.file.path());
    if (!file.is_new() && file.header().epoch > mine.epoch)
        throw node_error(file.path() + ": knows more than " + first_.file.path() +
                         ", which was left behind; serve this one as file=");
    if (file.is_new() || file.header().epoch < mine.epoch) {
        remake(one);
        return {};
    }
    std::vector<page_range> touched;
    if (was_open || file.header().state != STATE_CLOSED) {
        journal::repair its = one.copy.intents.replay();
        statistics_.journal_repairs += its.pages;
        touched = std::move(its.touched);
    }
    return touched;
}

void device_files::remake(replica &one)
{
    backing_file &file = one.copy.file;
    page_bytes page;

    zylog(NODE_MODULE_ID, ZYLOG_WARNING, __FILE__, __LINE__, __func__, 0,
          "%s is made anew from %s", file.path().c_str(), first_.file.path().c_str());
    require(file.mark(STATE_OPEN, 0), file, "its header cannot be written");
    for (uint64_t at = 0; at < pages(); at += STRIPE_PAGES)
        require(file.punch({at, uint32_t(std::min<uint64_t>(STRIPE_PAGES, pages() - at))}), file,
                "cannot be emptied");
    for_each_page_with_data(first_.file, [&](uint64_t number) {
        require(first_.file.read(page.data(), page.size(), offset_of_page(number)), first_.file,
                "cannot be read");
        if (!is_hole(page.data()))
            write_raw(file, number, page);
    });
    require(file.sync(), file, "cannot be synced");
    require(file.adopt(first_.file.header()), file, "its header cannot be written");
    ++statistics_.replicas_made;
}

void device_files::make_equal(const std::vector<page_range> &touched)
{
    page_bytes mine, its;

    for (const page_range &range : touched) {
        for (uint64_t number = range.first; number < range.end(); ++number) {
            const uint64_t offset = offset_of_page(number);
            require(first_.file.read(mine.data(), mine.size(), offset), first_.file,
                    "cannot be read");
            for (replica &one : replicas_) {
                backing_file &file = one.copy.file;
                require(file.read(its.data(), its.size(), offset), file, "cannot be read");
                if (mine != its)
                    write_raw(file, number, mine);
            }
        }
    }
}

void device_files::find_present()
{
    present.resize(pages());
    for_each_page_with_data(first_.file, [&](uint64_t number) { present.add({number, 1}); });
}

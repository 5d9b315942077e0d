/*
 * Reads a chunk of the file and hands it on.
 */
#include "worker.h"

#include <cstring>
#include <exception>

#include "file_io.h"

worker::worker(io_context &io, uint32_t chunk_bytes)
    : io_(io), waiter_(io.pages, io.poller), protector_(io, waiter_),
      verifier_(io, waiter_, chunk_bytes), source_(chunk_bytes)
{
}

void worker::run(phase what, work_list &list)
{
    chunk part;
    while (list.next(&part)) {
        bool well = true;
        try {
            work_on(what, part);
        } catch (const std::exception &error) {
            well = false;
            io_.failures.add(error.what());
            if (what == phase::PROTECT)
                list.stop();
        }
        list.done(part, well);
    }
}

void worker::work_on(phase what, const chunk &part)
{
    const size_t filled = sectors_of(part.length) * PAGE_SECTOR_DATA_SIZE;

    read_all(part.file->fd.get(), part.file->source.path, source_.data(), part.length,
             part.offset);
    memset(source_.data() + part.length, 0, filled - part.length);
    if (what == phase::PROTECT)
        protector_.protect(part, source_.data());
    else
        verifier_.verify(part, source_.data());
}

/*
 * The way of a chunk into its replicas:
 *
 *     zeros found - pages taken - data copied in - marked as valid - a clone for each writer -
 *     kept in the cache - own chain given back - writers waited for
 *
 * The copy leaves the integrity bytes alone that a page has from its allocation: they are what an
 * image's sectors carry.
 */
#include "protector.h"

#include "node_error.h"
#include "page_marks.h"
#include "request_record.h"
#include "zero_stretch.h"

/* The chain ends here: what is under way has clones, and the cache has references. */
void protector::hand_out(const chunk &part, const uint8_t *data, write_group &writes)
{
    const uint32_t length = uint32_t(sectors_of(part.length)) * PAGE_SECTOR_DATA_SIZE;
    const page_run run = take_filled(data, length, waiter_, io_.timeout, io_.poller, io_.shares);

    mark_valid(run.chain(), part.length);
    for (size_t replica = 0; replica < io_.writers.size(); ++replica) {
        io_.writers[replica].submit({run.clone(), &part.file->images[replica], part.offset,
                                     part.length, &writes});
        ++io_.shares.clones;
    }
    io_.cache.keep({part.file->source.index, part.offset / PAGE_DATA_SIZE}, run.chain());
}

/* The first failure is the chunk's; the other replicas' are told all the same. */
void protector::finish(write_group &writes)
{
    const std::vector<std::string> &failures = writes.wait();

    for (size_t i = 1; i < failures.size(); ++i)
        io_.failures.add(failures[i]);
    if (!failures.empty())
        throw node_error(failures.front());
}

void protector::protect(const chunk &part, const uint8_t *data)
{
    const request_record request;
    write_group writes;

    hand_out(part, data, writes);
    finish(writes);
}

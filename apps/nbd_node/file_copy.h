/*
 * One copy of the device: a backing file and its journal, and how pages get into it.
 *
 * Threads: any, but no two for the same page at once: whoever writes holds the range.
 */
#pragma once

#include "backing_file.h"
#include "journal.h"
#include "zyumm_cmm_types.h"

class file_copy
{
public:
    file_copy(const std::string &path, uint64_t size, bool barrier)
        : file(path, size), intents(file, barrier)
    {
    }

    /* Does the part of a request that the genio names, with the intent in `place`; the result is
     * left in the genio. */
    void carry_out(cmm_genio *io, journal::place &place);

    /* Writes one page's content over what the file has, with an intent of its own. An errno. */
    int rewrite(uint64_t number, const uint8_t *page);

    backing_file file;
    journal      intents;
};

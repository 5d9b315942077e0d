/*
 * The pools that a command is about: all of them, or those that fit what was typed.
 *
 *     typed              fits
 *     ----------------   ----------------------------------------------------------
 *     PAGE PARTITION     pools of exactly this name; several may have it
 *     0x1010000          the pool with this handle
 *     page               when neither fits: pools whose names begin so, in any case
 *
 * A pool that goes away between the list and a look at it is passed over.
 */
#pragma once

#include <stdint.h>

#include "block.h"
#include "zymm_host.h"

namespace console
{

class pool_list
{
public:
    /* All pools; `with_leaks` also counts their leaked objects, but not the block of the zero
     * pages: it is out for as long as there are pages. */
    explicit pool_list(bool with_leaks);

    /* Those that fit. */
    pool_list(bool with_leaks, const char *typed);

    bool is_made() const
    {
        return records_.is_made();
    }
    const zymm_slab_record *begin()
    {
        return records_.items();
    }
    const zymm_slab_record *end()
    {
        return records_.items() + used_;
    }
    uint64_t count() const
    {
        return used_;
    }

private:
    void look();
    void count_leaked();
    void keep_fitting(const char *typed);

    block<zymm_slab_record> records_;
    uint64_t used_ = 0;
};

/*
 * The fitting pools of a command "umm show <what> <pool>": the words behind the third name them.
 * `usage` is printed when there are none.
 */
struct typed_pool {
    char text[128];
    bool is_typed;

    typed_pool(int32_t count, char **words, const char *usage);
};

/* False, after the error, when no pool fits or there is no memory. */
bool has_pools(pool_list *pools, const typed_pool &typed);

/* The pool of the zero pages' block; 0 while there is none. */
uint64_t zero_page_pool();

/* A pool's name in a table: size classes of one allocator show their size. */
struct pool_label {
    char chars[32];
};
pool_label label_of(const zymm_slab_record &record);

} // namespace console

/*
 * The pools that a command is about.
 */
#include "pool_list.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <initializer_list>

#include "text_form.h"
#include "zyax.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"

namespace console
{

/* Pools that may be made between counting them and listing them. */
enum : uint64_t { SPARE_POOLS = 32 };

pool_list::pool_list(bool with_leaks) : records_(zymm_slab_list(nullptr, 0) + SPARE_POOLS)
{
    look();
    if (with_leaks)
        count_leaked();
}

pool_list::pool_list(bool with_leaks, const char *typed)
    : records_(zymm_slab_list(nullptr, 0) + SPARE_POOLS)
{
    look();
    keep_fitting(typed);
    if (with_leaks)
        count_leaked();
}

void pool_list::look()
{
    block<uint64_t> handles(records_.count());
    if (!is_made() || !handles.is_made())
        return;
    const uint64_t all = zymm_slab_list(handles.items(), handles.count());
    const uint64_t listed = all < handles.count() ? all : handles.count();
    for (uint64_t at = 0; at < listed; at++) {
        if (zymm_slab_record_get(handles[at], 0, &records_[used_]) == 0)
            used_++;
    }
}

/* Last, and for the pools that are wanted only: each of their objects is looked at. */
void pool_list::count_leaked()
{
    uint64_t kept = 0;
    for (uint64_t at = 0; at < used_; at++) {
        const uint64_t handle = records_[at].handle;
        const int with_leaks = handle != zero_page_pool() ? 1 : 0;
        if (zymm_slab_record_get(handle, with_leaks, &records_[kept]) == 0)
            kept++;
    }
    used_ = kept;
}

using fits_fn = bool (*)(const zymm_slab_record &record, const char *typed);

static bool has_name(const zymm_slab_record &record, const char *typed)
{
    return strcmp(record.name, typed) == 0;
}

static bool has_handle(const zymm_slab_record &record, const char *typed)
{
    return record.handle == zyax_str_tou64(typed);
}

static bool begins_so(const zymm_slab_record &record, const char *typed)
{
    return strncasecmp(record.name, typed, strlen(typed)) == 0;
}

void pool_list::keep_fitting(const char *typed)
{
    for (const fits_fn fits : {has_name, has_handle, begins_so}) {
        uint64_t kept = 0;
        for (uint64_t at = 0; at < used_; at++) {
            if (fits(records_[at], typed))
                records_[kept++] = records_[at];
        }
        if (kept != 0) {
            used_ = kept;
            return;
        }
    }
    used_ = 0;
}

typed_pool::typed_pool(int32_t count, char **words, const char *usage)
    : text(""), is_typed(join_words(count, words, 3, text, sizeof text))
{
    if (!is_typed)
        fail_with("usage: ", usage);
}

bool has_pools(pool_list *pools, const typed_pool &typed)
{
    if (!pools->is_made()) {
        fail_without_memory();
        return false;
    }
    if (pools->count() == 0) {
        fail_with("There is no pool ", typed.text);
        return false;
    }
    return true;
}

uint64_t zero_page_pool()
{
    const cmm_partition *entry = get_cmm_partition_byid(int32_t(s_zero_page_partition_id));
    return entry != nullptr ? __atomic_load_n(&entry->pool, __ATOMIC_ACQUIRE) : 0;
}

pool_label label_of(const zymm_slab_record &record)
{
    pool_label label;
    if (record.is_class == 0) {
        snprintf(label.chars, sizeof label.chars, "%s", record.name);
        return label;
    }
    char size[24];
    const int length = snprintf(size, sizeof size, "/%lu", record.obj_size);
    snprintf(label.chars, sizeof label.chars, "%.*s%s", int(sizeof label.chars) - 1 - length,
             record.name, size);
    return label;
}

} // namespace console

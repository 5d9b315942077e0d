/*
 * One measured row of the layout table, and the two compilers' measurements.
 *
 * A record's own row has an empty field name and offset 0.
 */
#ifndef ABI_LAYOUT_H
#define ABI_LAYOUT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct abi_row {
    const char *record;
    const char *field;
    size_t      offset, size;           /* bytes, as compiled */
    size_t      told_offset, told_size; /* bytes, as the table says */
} abi_row;

extern const abi_row abi_rows_of_c[];
extern const size_t  abi_row_count_of_c;

#ifdef __cplusplus
}
#endif

/* Rows of one include of abi_table.h. */
#define ABI_RECORD_ROW(record, size) {#record, "", 0, sizeof(record), 0, size},
#define ABI_FIELD_ROW(record, field, offset, size)                                                \
    {#record, #field, offsetof(record, field), sizeof(((record *)0)->field), offset, size},

#endif

/*
 * The layout of the shared records as a C compiler sees it: refused at compile time where it
 * differs from the table, and measured for the comparison with C++.
 */
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"
#include "zylog.h"
#include "bounded.h"
#include "dbg_console.h"

#include "abi_layout.h"

#define RECORD(record, size) _Static_assert(sizeof(record) == (size), #record);
#define FIELD(record, field, offset, size)                                                        \
    _Static_assert(offsetof(record, field) == (offset), #record "." #field);                      \
    _Static_assert(sizeof(((record *)0)->field) == (size), #record "." #field);
#include "abi_table.h"
#undef RECORD
#undef FIELD

#define RECORD ABI_RECORD_ROW
#define FIELD  ABI_FIELD_ROW
const abi_row abi_rows_of_c[] = {
#include "abi_table.h"
};

const size_t abi_row_count_of_c = sizeof(abi_rows_of_c) / sizeof(abi_rows_of_c[0]);

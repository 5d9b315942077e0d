/*
 * Scatter-gather lists: how the node describes an I/O buffer.
 *
 * An SGL holds up to 64 entries, each naming one piece of memory: its address, its length and the
 * control record of the page it lies in. Longer lists are chains, linked front to back; the first
 * SGL is the head and stands for the whole chain. The records are in zyumm_cmm_types.h.
 *
 *     head                       second                     last
 *     entrySumInChain = 130
 *     entryNum = 64              entryNum = 64              entryNum = 2
 *     [0][1][2] ... [63] ------> [0][1][2] ... [63] ------> [0][1] . . . ------> null
 *
 * Counts. `entryNum` is how many entries of this SGL are used, from index 0 on; the head's
 * `entrySumInChain` is how many are used in the whole chain, and no other SGL's means anything.
 * A chain may have gaps: inner SGLs that are not full, even SGLs without a used entry. Walks pass
 * over those, and what lies in an entry behind the used ones is never looked at: new SGLs are not
 * cleared beyond their header.
 *
 * Positions. A place in a chain is (SGL, entry index), the index counting from 0 in that SGL; a
 * byte is (SGL, entry index, offset in entry). Two steps move a position. The writer's step goes by
 * capacity, 64 entries an SGL, and counts what was written; the reader's step goes by use and
 * leaves an SGL behind its last used entry. Behind the last entry of a chain the position is
 * (null, 0). A typical walk:
 *
 *     SGL     *cur   = chain;
 *     uint32_t index = 0;
 *     for (uint32_t i = 0; i < chain->entrySumInChain; ++i) {
 *         use(&cur->entries[index]);
 *         move2NextEntryAndModifyPSgl(&cur, &index);
 *     }
 *
 * In a chain that may have SGLs without a used entry, take the step again while the SGL reached has
 * none, also before the first use.
 *
 * Measures. The bytes of a chain are numbered as if its entries were one flat buffer, in either of
 * two measures:
 *
 *     full    every byte counts: an entry is `len` bytes. A page is 8,320.
 *     data    the integrity bytes do not count: an entry is a run of sectors of 520 bytes, 512 of
 *             data with 8 of integrity behind them, and its data length is `len` with the low 8
 *             bits cleared. A page is 8,192. That is 512 a sector for entries of fewer than 32
 *             whole sectors; longer ones are outside the data measure.
 *
 * Operations whose names end in IgnoreDif work in the data measure. Offsets from 2 GiB on are
 * outside the lookups and copies: they are not refused, and the result means nothing.
 *
 * Ownership. A chain belongs to one user at a time, from its allocation to freeSglChain. It does
 * not own the pages in its entries: whoever put page references into it drops them before it frees
 * the chain, and freeing a chain touches no page. After freeMultiPages, which does both, the chain
 * is gone and must not be freed again. The identity that comes with every allocation and release
 * (owner id, function, line) is kept by the slab layer to trace leaks, so the function name must
 * outlive the SGL.
 *
 * Clones. Several users of the same pages each hold a chain of their own, made in one of two ways:
 *
 *                         cloneSgl                        cloneSglChain
 *     page references     one an entry, the clone's own   none: borrowed from the source
 *     shape               packed, 64 entries an SGL       the source's, gaps included
 *     user tag            0                               the source's
 *     owner of its SGLs   the caller                      the library
 *     released by         dropping a reference an entry   freeCloneSgl, before the source's holder
 *                         and then freeSglChain; or       drops his references
 *                         freeMultiPages for both
 *
 * Threads. The pool is safe for all threads. Nothing here locks a chain: several threads may read
 * one as long as nobody changes it. Pool creation and destruction belong to the start and the stop.
 *
 * Status. int32_t operations answer 0 or -1; nothing here ends the process.
 */
#ifndef ZYUMM_CMM_SGL_H
#define ZYUMM_CMM_SGL_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------ pool */

/*
 * Handle of the process's SGL pool; 0 = there is none, and then no SGL can be allocated.
 *
 * Threads: written with release when the pool is created and destroyed; the library reads it with
 *          acquire, so a pool may be created while others already ask for SGLs and get none.
 */
CMM_API extern uint64_t g_sgl_partition_id;

/*
 * Creates the SGL pool from the configuration's counts; the module's start calls it.
 *
 * 0 when the pool is there, and also when there is nothing to do: the configured maximum is 0, or
 * bit 0x2 of the partition-creator mask leaves the pool to zyumm_sgl_slab_create. -1 on failure.
 *
 * Owner:   the library, with module id 386.
 * Threads: the starting thread only.
 * Logs:    error, not limited: a failed copy of the name, a refused slab.
 */
CMM_API int32_t cmm_create_sgl_mempool(void);

/*
 * Creates the SGL pool inside a memory pool of an outside component, for which bit 0x2 of the
 * partition-creator mask must be set. Counts are the configuration's, as at the start.
 *
 * pool_id    the enclosing memory pool; 0 is refused.
 * attr       attribute word of the unified memory manager, see zyumm_attr_conver_zymm_attr.
 * module_id  owner of the pool.
 * func       the caller's name, which must outlive the pool; null is refused.
 *
 * 0 when this call created the pool; -1 otherwise, also when a pool exists already.
 *
 * Owner:   the caller; the module's stop destroys the pool unless the caller did.
 * Threads: one at a time, after the start; others may allocate meanwhile.
 * Logs:    error, not limited: each refusal and a refused slab.
 */
CMM_API int32_t zyumm_sgl_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                      const char *func);

/*
 * The SGL pool's objects: at most (`total`) and held by callers (`used`). The slab layer's result,
 * 0 on success; it fails while there is no pool.
 *
 * Threads: any.
 * Logs:    nothing of its own.
 */
CMM_API int zyumm_sgl_get_usage_info(uint64_t *total, uint64_t *used);

/*
 * The same for one NUMA node. The slab layer's result, 0 on success.
 *
 * Threads: any.
 * Logs:    nothing of its own.
 */
CMM_API int zyumm_sgl_get_usage_by_numa(uint32_t numa_id, zymm_numa_usage *usage);

/*
 * Name, sizes, counts and owner of the SGL pool. The memory manager's result, 0 on success.
 *
 * Threads: any.
 * Logs:    nothing of its own.
 */
CMM_API int zyumm_sgl_info_get(zyumm_partition_info *info);

/*
 * Destroys the SGL pool if there is one; the module's stop calls it. SGLs that users still hold
 * are not looked for and go with the pool.
 *
 * Threads: the stopping thread only, when nobody allocates, frees or holds SGLs any more.
 * Logs:    nothing of its own.
 */
CMM_API void cmm_destory_sgl_mempool(void);

/* ---------------------------------------------------------------------------------- chains */

/*
 * Takes one SGL from the pool: no successor, both counts, user flag and user tag 0. Its entries
 * hold anything.
 *
 * out       receives the SGL, or null when the pool is empty or absent. With a null out nothing
 *           happens.
 * owner_id  the caller's module id.
 * func      the caller's name, which must outlive the SGL.
 * line      the caller's line.
 *
 * Owner:   the caller, until freeSglChain.
 * Threads: any; never blocks.
 * Logs:    nothing: an empty pool shows as the null result.
 */
CMM_API void allocOneSgl(SGL **out, uint32_t owner_id, const char *func, uint32_t line);

/*
 * Takes as many SGLs as `entry_cnt` entries need, 64 an SGL, linked in the order of allocation.
 * All or nothing: when one of them is not to be had, those taken before go back.
 *
 * out        receives the head, or null; with a null out nothing happens.
 * entry_cnt  entries the chain shall hold. 0 gives null without a line. Useful up to 65,535, which
 *            is what a head can count; the 63 highest 32-bit numbers get a chain of one SGL.
 * owner_id, func, line  as for allocOneSgl.
 *
 * Owner:   the caller, until freeSglChain.
 * Threads: any; never blocks.
 * Logs:    error, limited: no first SGL; no further SGL.
 */
CMM_API void allocSglChain(SGL **out, uint32_t entry_cnt, uint32_t owner_id, const char *func,
                           uint32_t line);

/*
 * Gives every SGL of the chain back to the pool, following the links and not the counts. The
 * entries are not looked at: references to their pages must have been dropped before.
 *
 * chain     the head; null is refused with a line.
 * owner_id  the caller's module id.
 * func      the caller's name; null is written as "(null)" in the line.
 * line      not used.
 *
 * Owner:   the pool, from here on.
 * Threads: any, one user of the chain at a time.
 * Logs:    error, not limited: a null chain.
 */
CMM_API void freeSglChain(SGL *chain, uint32_t owner_id, const char *func, uint32_t line);

/*
 * Writer's step: counts the entry just written at the position, in its SGL and in the head, and
 * moves the position on by capacity: behind index 63 to index 0 of the next SGL, whatever the SGL's
 * own count says.
 *
 * cur_sgl  the position's SGL; becomes null behind the last entry of the last SGL.
 * index    the position's entry, 0 to 63.
 * head     the chain's head.
 * None of the three, nor the SGL behind `cur_sgl`, may be null.
 *
 * Threads: the chain's user.
 * Logs:    nothing.
 */
CMM_API void move2NextEntryAndIncEntrySum(SGL **cur_sgl, uint32_t *index, SGL *head);

/*
 * Reader's step: moves the position to the next entry by use: behind the SGL's last used entry to
 * index 0 of the next SGL, even when there is room left. The next SGL is not looked at: if it has
 * no used entry, take the step again before using it.
 *
 * cur_sgl  the position's SGL; becomes null behind the chain's last SGL.
 * index    the position's entry.
 * Neither, nor the SGL behind `cur_sgl`, may be null.
 *
 * Threads: the chain's user.
 * Logs:    nothing.
 */
CMM_API void move2NextEntryAndModifyPSgl(SGL **cur_sgl, uint32_t *index);

/*
 * Logs the entries of a chain, as many as the head counts, one line each. All lines share one
 * limiter, so that a long chain is dumped only in part.
 *
 * sgl  the head; null, or one that counts no entries, logs nothing.
 *
 * Threads: the chain's user.
 * Logs:    error, limited: each entry's memory, page record, length and index in its SGL.
 */
CMM_API void cpmm_print_sgl_detail(SGL *sgl);

/* ---------------------------------------------------------------------------------- lookup */

/*
 * Finds the byte `offset` of a chain in the full measure. A byte on the boundary of two entries is
 * the later one's first. Offset 0 is (sgl, 0, 0) at once, even when that SGL has no used entries.
 *
 * sgl           the head.
 * offset        bytes from the chain's start, below 2 GiB. The total length is beyond the chain.
 * cur_sgl       receives the SGL.
 * index         receives the entry's index in it.
 * entry_offset  receives the bytes from the entry's start.
 * All four pointers must not be null; on failure nothing is written through any.
 *
 * 0, or -1: a null pointer, or an offset beyond the chain.
 *
 * Threads: any that may read the chain.
 * Logs:    error, limited: each null pointer; an offset beyond the chain.
 */
CMM_API int32_t getCurrentSglByOffset(SGL *sgl, uint32_t offset, SGL **cur_sgl, uint32_t *index,
                                      uint32_t *entry_offset);

/*
 * The same in the data measure: `offset` and `entry_offset` count data bytes. Where a data byte
 * lies is entry_offset / 512 sectors of 520 bytes, and entry_offset % 512 bytes, behind `buf`.
 *
 * Threads: any that may read the chain.
 * Logs:    error, limited: each null pointer; an offset beyond the chain, always followed by the
 *          chain's dump, see cpmm_print_sgl_detail.
 */
CMM_API int32_t getCurrentSglByOffsetIgnoreDif(SGL *sgl, uint32_t offset, SGL **cur_sgl,
                                               uint32_t *index, uint32_t *entry_offset);

/*
 * Finds the last used entry of a chain, and with it checks that the head's total agrees with the
 * counts of the SGLs.
 *
 * head      the head.
 * last_sgl  receives the SGL; null on failure.
 * index     receives the entry's index in it; 0 on failure.
 * None may be null.
 *
 * Threads: any that may read the chain.
 * Logs:    error, not limited: each null pointer; a head that counts no entries; a chain that ends
 *          early; counts that disagree.
 */
CMM_API void getLastSgl(SGL *head, SGL **last_sgl, uint32_t *index);

/*
 * Moves a position forward by a number of used entries; behind the last one it becomes (null, 0).
 *
 * sgl    the position's SGL; neither it nor the SGL behind it may be null.
 * index  the position's entry. If it is null, the caller's SGL has become null by the time this is
 *        found out, and stays so.
 * count  entries; 0 and less leave the position as it is.
 *
 * Threads: any that may read the chain.
 * Logs:    error, not limited: each null pointer.
 */
CMM_API void sglAndEntryOffsetPages(SGL **sgl, uint32_t *index, int32_t count);

/*
 * How many entries (pages) the bytes [offset, offset + length) touch, in the full measure.
 *
 * sgl     the head.
 * offset  bytes from the chain's start, below 2 GiB.
 * length  bytes. Offset and length both 0 (or with a 32-bit sum of 0) ask for the whole chain: the
 *         answer is the head's count, 0 for a null head, without a line.
 *
 * 0 also on failure: a null head, an offset beyond the chain, a range that reaches beyond it. A
 * length of 0 inside an entry counts that entry, and on an entry's first byte none.
 *
 * Threads: any that may read the chain.
 * Logs:    error, limited: the lookup's lines; a range that reaches beyond the chain.
 */
CMM_API uint32_t getValidSglPageNum(SGL *sgl, uint32_t offset, uint32_t length);

/* ---------------------------------------------------------------------------------- copies
 *
 * All six copy exactly `length` bytes and answer 0, or answer -1. A failure of the arguments or of
 * the lookup is found before any byte moves; after any other the pieces before it have been copied
 * and stay: the destination is to be taken as undefined. There is no room check against the buffer.
 *
 * A length of 0 makes one copy of 0 bytes at the place that the offset names, so a null memory
 * there or an offset beyond the chain still fails. A chain without used entries has no such place:
 * then 0 bytes at offset 0 are copied with success, and any more find the chain ended.
 *
 * Neither the chain's memory nor the buffer may be used by another thread meanwhile, and the two
 * must not overlap; two copies into different parts of one chain may run at once.
 */

/*
 * Copies a buffer into a chain, full measure: integrity bytes included, as they lie in the buffer.
 *
 * dstSgl  the head; null is refused.
 * offset  bytes from the chain's start, below 2 GiB.
 * buffer  `length` bytes to read; null is refused.
 * length  bytes.
 *
 * Threads: any, see above.
 * Logs:    error, limited: null chain; null buffer; offset not found (behind the lookup's own
 *          line); a failed piece; a chain that ends before all is copied.
 */
CMM_API int32_t copyDataFromBufferToSgl(SGL *dstSgl, uint32_t offset, const void *buffer,
                                        uint32_t length);

/*
 * Copies out of a chain into a buffer, full measure: the mirror image of the above.
 *
 * srcSgl  the head; null is refused.
 * buffer  room for `length` bytes; null is refused.
 *
 * Threads: any, see above.
 * Logs:    as copyDataFromBufferToSgl, with limiters of its own.
 */
CMM_API int32_t copyDataFromSglToBuffer(SGL *srcSgl, uint32_t offset, void *buffer,
                                        uint32_t length);

/*
 * Copies pure data from a buffer into the data bytes of a chain's sectors; the integrity bytes stay
 * as they are.
 *
 * dstSgl  the head; null is refused.
 * offset  data bytes from the chain's start, below 2 GiB.
 * buffer  `length` bytes to read; null is refused.
 * length  data bytes.
 *
 * Threads: any, see above.
 * Logs:    error, limited: null chain; null buffer. Error, not limited: offset not found (behind
 *          the lookup's line and dump); a failed piece (behind the entry copy's line); a chain that
 *          ends before all is copied.
 */
CMM_API int32_t copyDataFromBufferToSglIgnoreDif(SGL *dstSgl, uint32_t offset, const void *buffer,
                                                 uint32_t length);

/*
 * Copies the data bytes of a chain's sectors into a buffer: the mirror image of the above.
 *
 * srcSgl  the head; null is refused.
 * buffer  room for `length` bytes; null is refused.
 *
 * Threads: any, see above.
 * Logs:    as copyDataFromBufferToSglIgnoreDif, with limiters of its own.
 */
CMM_API int32_t copyDataFromSglToBufferIgnoreDif(SGL *srcSgl, uint32_t offset, void *buffer,
                                                 uint32_t length);

/*
 * Copies pure data from a buffer into the data bytes of one entry's sectors.
 *
 * entry   not null. Its length is not looked at: the caller stays within its data length.
 * offset  data bytes from the entry's start.
 * buffer  `length` bytes to read.
 * length  data bytes.
 *
 * Threads: any, see above.
 * Logs:    error, not limited: a failed piece, with its address, length and offset in its sector.
 */
CMM_API int32_t copyDataFromBufferToEntryIgnoreDif(SGL_ENTRY *entry, uint32_t offset,
                                                   const void *buffer, uint32_t length);

/*
 * Copies the data bytes of one entry's sectors into a buffer: the mirror image of the above.
 *
 * buffer  room for `length` bytes.
 *
 * Threads: any, see above.
 * Logs:    as copyDataFromBufferToEntryIgnoreDif.
 */
CMM_API int32_t copyDataFromEntryToBufferIgnoreDif(SGL_ENTRY *entry, uint32_t offset, void *buffer,
                                                   uint32_t length);

/* ---------------------------------------------------------------------- clones and walks */

/*
 * Makes a second chain over the same pages and takes a page reference for each of its entries, so
 * that clone and source are released independently of each other.
 *
 * The clone is packed: its SGLs are full but for the last one, whatever gaps the source has. Its
 * user tag is 0. Each of its SGLs has the user flag of the source SGL that its last entry is from.
 *
 * srcSgl    the head; null gives null without a line.
 * key       the user tag that the source must carry; another one gives null without a line.
 * out       receives the clone, or null: refused, no entries, not enough SGLs. With a null out
 *           nothing happens.
 * owner_id  the caller's module id, owner of the clone's SGLs.
 * func      the caller's name, which must outlive the clone. With a null one each page refuses its
 *           reference, with a line of its own, and the clone holds none.
 * line      the caller's line.
 *
 * A source that ends before its count leaves the entries up to there, and their references, in a
 * clone that is the caller's as a complete one is.
 *
 * Owner:   the caller, until he has dropped a reference for each entry and freed the chain.
 * Threads: any; the source must not change meanwhile. Never blocks.
 * Logs:    error, limited: a source that ends before its count. The line of allocSglChain when
 *          there are not enough SGLs, and those of incAndRetPageReference.
 */
CMM_API void cloneSgl(SGL *srcSgl, uint64_t key, SGL **out, uint32_t owner_id, const char *func,
                      uint32_t line);

/*
 * Copies a chain SGL for SGL, without taking page references: the copy borrows the pages. Counts,
 * user tags, user flags and used entries are the source's, in every SGL.
 *
 * srcSgl  the head; null is refused. Its links are followed, not its count.
 * out     receives the copy, or null on failure. A null one is refused without a line.
 *
 * 0, or -1. All or nothing: SGLs taken before a failure go back.
 *
 * Owner:   the caller, until freeCloneSgl; the slab layer has its SGLs in the library's name, with
 *          module id 386.
 * Threads: any; the source must not change meanwhile. Never blocks.
 * Logs:    error, limited: a null source; a refused SGL.
 */
CMM_API int32_t cloneSglChain(SGL *srcSgl, SGL **out);

/*
 * Gives a copy made by cloneSglChain back: clears its used entries, so that no free SGL points to a
 * page, and frees its SGLs. Drops no page reference.
 *
 * chain  the head; null is refused.
 *
 * Owner:   the pool, from here on.
 * Threads: any, one user of the chain at a time.
 * Logs:    error, limited: a null chain.
 */
CMM_API void freeCloneSgl(SGL *chain);

/*
 * Calls an operation with the page of each entry, front to back, as often as the head counts.
 *
 * sgl        the head; null is refused.
 * operation  not null, as long as the head counts an entry. Its result is ignored, and it may free
 *            the page, but not change the chain.
 * value      handed to every call.
 * text       handed to every call; null is refused.
 *
 * 0, also for a head that counts no entries; -1 when refused, or when the chain ends before its
 * count: the operation has been applied to all entries that there are, and that stays.
 *
 * Threads: any that may read the chain; the operation runs on the calling thread without a lock.
 * Logs:    error, limited: a chain that ends before its count. Nothing for a refusal.
 */
CMM_API int32_t traversePageInSgl(SGL *sgl, cmm_page_op_fn operation, uint32_t value,
                                  const char *text);

/*
 * Take, and drop, one page reference for each entry of a chain: walks with incPageRefByFunc and
 * decPageRefByFunc, which see the caller's module id and name, and 0 as the line. The drop of a
 * page's last reference frees the page; the chain itself is never freed.
 *
 * sgl        the head; null is refused.
 * module_id  the caller's module id.
 * func       the caller's name; null is refused.
 *
 * The walk's result; that of a single page is not looked at.
 *
 * Threads: any that may read the chain.
 * Logs:    the walk's line, and those of the two page operations.
 * Fatal:   a drop ends the process as decAndRetPageReference does.
 */
CMM_API int32_t incPageReferenceBySgl(SGL *sgl, uint32_t module_id, const char *func);
CMM_API int32_t decPageReferenceBySgl(SGL *sgl, uint32_t module_id, const char *func);

#ifdef __cplusplus
}
#endif

#endif

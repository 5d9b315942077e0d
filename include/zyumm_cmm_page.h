/*
 * Pages: the pool of I/O pages, the two zero pages, allocation and freeing, sharing and attributes,
 * the queue of requests that wait for pages, eviction, usage, and console commands.
 *
 *     who wants              operation                              answer
 *     --------------------   ------------------------------------   ------------------------------
 *     one page, now          allocOnePageSync                       page_ctrl * or null
 *     a run, now             allocMultiPagesSync                    SGL chain or null
 *     one page, in time      allocOnePageForPagePoolTimeOut         through call-backs
 *     a run, in time         allocMultiPagesForPagePoolTimeOut      through call-backs
 *     to give one page back  freeOnePage                            -
 *     to give a run back     freeMultiPages                         -
 *     to share a page        incAndRetPageReference                 the new count
 *     to let go of a share   decAndRetPageReference                 the count that is left
 *
 * A page is 16 sectors of 512 data bytes, each followed by 8 integrity bytes, with its control
 * record directly behind (see page_ctrl). Callers hold the record's address, never the page's.
 *
 * A page is owned by references. Allocation gives its caller one; freeing drops one, and the drop
 * of the last one returns the page. Nobody may touch a page after dropping his own reference.
 *
 * No operation waits for pages. The time-out operations queue a request and return; a process that
 * uses them must drive the queue itself, see page_do_retry.
 *
 * Common arguments:
 *     module_id   the caller's module id; pages keep its low 16 bits
 *     func        the caller's function name, a constant string that outlives the page; not copied
 *     line        the caller's source line; goes to the slab layer, a page does not keep it
 *
 * Every message begins with "[UMM_CMM] " but for the two fatal ones named at try_free_one_page.
 * "Limited" lines pass the rate limiter: three in a burst for each place in the code.
 */
#ifndef ZYUMM_CMM_PAGE_H
#define ZYUMM_CMM_PAGE_H

#include <pthread.h>

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ page pool */

/* Handle of the page slab; 0 = no page pool. Written by the operations below only. */
CMM_API extern uint64_t s_page_partition_id;

/* Lets the first pool of the process start the eviction timer, and no later one. */
CMM_API extern pthread_once_t g_page_evict_timer_init;

/*
 * Creates the zero pages and then the pool, as the start of the library does: page_min to page_max
 * pages of g_ucmm_config. Does nothing, and succeeds, when page_max is 0, when the pool exists,
 * when the creator mask leaves the pool to an outside component (bit 0x1), and when the
 * configuration reserves an I/O pool (io_pool.reserve_size is not 0).
 *
 * 0; 0xFFFFFFFF on failure, and then zero pages that were made stay.
 *
 * The first pool of the process also starts the eviction timer, see
 * zyumm_page_evict_timer_create. A timer that cannot be started does not fail the creation.
 *
 * Threads: the thread that starts the library; g_cmm_umm_partition must be set.
 * Logs:    info, not limited: that the I/O pool's owner creates the pool.
 *          error, not limited: zero pages, name copy or slab failed. And as the timer's creation.
 */
CMM_API uint32_t create_page_mempool(void);

/*
 * Creates the zero pages and then the pool inside a memory pool of the caller's. Only for the
 * component that holds bit 0x1 of the creator mask, and only once.
 *
 * pool_id    enclosing pool, not 0. Inside the buffer pool (g_ucmm_config.io_pool.pool_handle) the
 *            page pool belongs to module 386 and reserves nothing; elsewhere to `module_id`, with
 *            page_min pages.
 * attr       attribute word of the unified memory manager, see zyumm_attr_conver_zymm_attr
 * module_id  the caller's module id
 * func       the caller's function name; null is refused
 *
 * 0; 0xFFFFFFFF on failure, and then zero pages that were made stay.
 *
 * Threads: the component's set-up thread, while nobody else creates or deletes the pool.
 * Logs:    error, not limited: each refusal and failure. A process that is not the creator is
 *          refused with the words for a pool that exists. And as the eviction timer's creation.
 */
CMM_API uint32_t zyumm_page_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                        const char *func);

/*
 * As zyumm_page_slab_create, but a pool that exists already is success.
 *
 * Logs:    info, not limited: that the pool exists.
 */
CMM_API uint32_t zyumm_page_slab_create_ex(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                           const char *func);

/*
 * Destroys the pool, then the zero pages. Without a pool it does nothing and succeeds.
 *
 * 0; 0xFFFFFFFF on failure. When the slab cannot be destroyed the pool stays; when somebody still
 * refers to a zero page, or it cannot be unprotected or freed, the pool is gone already.
 *
 * Owner:   pages still out go with the slab.
 * Threads: the thread that stops the library, when nobody uses pages any more.
 * Logs:    error, not limited: the step that failed. Warning, not limited: no zero pages.
 */
CMM_API uint32_t delete_page_mempool(void);

/*
 * Usage of the pool, asked from the slab layer, whose result comes back as it is.
 *
 * total    pages at most
 * used     pages held by callers
 * numa_id  node
 * info     name, sizes, counts and owner of the pool
 *
 * Threads: any. Without a pool the slab layer answers a failure and writes nothing.
 */
CMM_API int      zyumm_page_get_usage_info(uint64_t *total, uint64_t *used);
CMM_API int      zyumm_page_get_usage_by_numa(uint32_t numa_id, zymm_numa_usage *usage);
CMM_API int      zyumm_page_info_get(zyumm_partition_info *info);

/* Sets the record's state to free and clears its valid bitmap; looks at nothing else. */
CMM_API void     set_page_ctrl_free(page_ctrl *ctrl);

/*
 * Returns a page to the slab, whatever its count says: try_free_one_page's last step. `line` is
 * not read. The slab layer's result; 0 = freed.
 *
 * Threads: the page's only owner.
 */
CMM_API int      free_one_page(page_ctrl *ctrl, uint32_t module_id, const char *func,
                               uint32_t line);

/* ----------------------------------------------------------------- zero pages */

/* Partition that holds both zero pages (0 = none), and the start of its block. */
CMM_API extern uint32_t   s_zero_page_partition_id;
CMM_API extern void      *s_zero_page_address;

/*
 * Records of the two zero pages; null before their creation.
 *
 * delete_page_mempool clears the first pointer and leaves the second as it is: the record with DIF
 * is only an address then, to be compared but not read, until the next creation replaces it.
 */
CMM_API extern page_ctrl *g_global_zero_page_without_dif;
CMM_API extern page_ctrl *g_global_zero_page_dif;

/*
 * Builds both zero pages in a partition of their own: 8,320 bytes of zeros, the second page with
 * "CMMREDIF" as the integrity bytes of each sector. Both start with the library's own reference,
 * fully valid and known to be zero; the first 4,096 bytes of each are read-only.
 *
 * 0; 0xFFFFFFFF on failure, and then what was made stays, also the first page published.
 *
 * Threads: the thread that starts the library or creates the pool.
 * Logs:    error, not limited: no partition, or a page could not be protected.
 */
CMM_API uint32_t   umm_create_global_zero_pages(void);

/*
 * The zero page with zeros as integrity bytes, and the one with "CMMREDIF"; null before they are
 * made. Take a reference before handing one on. After a stop the second one still answers the old
 * record, see g_global_zero_page_dif.
 *
 * Threads: any.
 */
CMM_API page_ctrl *getZeroPageCtrlWithoutDif(void);
CMM_API page_ctrl *getZeroPageCtrl(void);

/* Replace the pointers; for the library itself and for tests. Not checked. */
CMM_API void       umm_set_global_zero_page_ctrl_without_dif(page_ctrl *ctrl);
CMM_API void       umm_set_global_zero_page_ctrl_dif(page_ctrl *ctrl);

/* ------------------------------------------- synchronous allocation and freeing */

/*
 * Takes one page: count 1, empty valid bitmap, not known to be zero, "CMMREDIF" as the integrity
 * bytes of each sector. The data bytes hold anything.
 *
 * The record; null, without a line, when the pool is empty or does not exist.
 *
 * Owner:   the caller holds the page's one reference; freeOnePage drops it.
 * Threads: any.
 */
CMM_API page_ctrl *allocOnePageSync(uint32_t module_id, const char *func, uint32_t line);

/*
 * Takes a run of pages as an SGL chain, one entry of 8,320 bytes a page; all or nothing.
 *
 * page_cnt  pages, 1 to 65,535
 * out       receives the chain, or null on failure. Without a pool it is left untouched.
 *
 * Owner:   the caller owns the chain and one reference of each page; freeMultiPages returns both.
 * Threads: any.
 * Logs:    error, limited: no pool, null `out`, a count out of range.
 *          warning, limited: the pool ran dry (see alloc_multi_page); what was taken is given back,
 *          which also kicks the retry queue.
 */
CMM_API void       allocMultiPagesSync(uint32_t page_cnt, SGL **out, uint32_t module_id,
                                       const char *func, uint32_t line);

/*
 * Drops one reference of a page and kicks the retry queue. A null record or function name is
 * refused, without a kick.
 *
 * Threads: any, also from the call-backs of the time-out walk.
 * Logs:    error, limited: a null argument. And as try_free_one_page.
 * Fatal:   as try_free_one_page.
 */
CMM_API void       freeOnePage(page_ctrl *ctrl, uint32_t module_id, const char *func,
                               uint32_t line);

/*
 * Drops one reference of each page of the chain, frees the chain and kicks the retry queue. A null
 * chain is quietly ignored. Without a pool nothing is freed, not even the chain.
 *
 * Owner:   the chain is gone afterwards; freeSglChain must not be called again.
 * Threads: any; the chain must be the caller's alone.
 * Logs:    error, limited: no pool. And as try_free_one_page.
 * Fatal:   as try_free_one_page.
 */
CMM_API void       freeMultiPages(SGL *chain, uint32_t module_id, const char *func, uint32_t line);

/*
 * Drops one reference of a page; the last one returns it to the pool. A zero page whose count
 * reaches 0 is reported and stays. The retry queue is not kicked.
 *
 * ctrl  the record, not null
 * func  the freeing function, for messages; null is written as "(null)"
 *
 * The count that is left.
 *
 * Threads: any; of all threads that drop one page exactly one sees 0.
 * Logs:    warning, not limited: a zero page's count reached 0.
 * Fatal:   a page that is not allocated ("Page_ctrl(%p) double free."), or a count below 0
 *          ("Page_ctrl(%p) ref(%d) is invalid."): an error line with the page's last owner, the
 *          fatal line, then the process aborts.
 */
CMM_API uint32_t   try_free_one_page(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                     uint32_t line);

/*
 * freeMultiPages without its checks.
 *
 * chain  not null; its first entrySumInChain used entries must hold pool pages. SGLs without used
 *        entries are passed over, and a chain shorter than its count ends the walk quietly.
 *
 * The result of page_start_retry.
 */
CMM_API uint32_t   free_multi_page(SGL *chain, uint32_t module_id, const char *func, uint32_t line);

/*
 * Lays new pages into an empty chain, until `page_cnt` are laid or the pool is empty.
 *
 * page_cnt  pages; the chain must have room for them
 * chain     not null
 *
 * The number of pages laid. They stay in the chain; the caller undoes a part with freeMultiPages.
 *
 * Logs:    warning, limited: the pool ran dry.
 */
CMM_API uint32_t   alloc_multi_page(uint32_t page_cnt, uint32_t module_id, SGL *chain,
                                    const char *func, uint32_t line);

/*
 * Lays one page into the entry at a position and steps the position on by capacity.
 *
 * head       first SGL of the chain, which counts all entries
 * cur_sgl    current SGL; null afterwards when the chain is full
 * cur_index  entry in it, 0 to 63
 * ctrl       the page; the chain takes over the caller's reference
 */
CMM_API void       add_one_page_to_sgl(SGL *head, SGL **cur_sgl, uint32_t *cur_index,
                                       page_ctrl *ctrl);

/* ------------------------------------- time-out allocation and the retry queue */

/*
 * State of the queue; for reading only.
 *
 * s_page_request_id             slab of request records; 0 while the queue does not exist. It holds
 *                               one record for each 8 pages of page_max; with a maximum below 8
 *                               none, and then every time-out request that finds no page is refused
 * s_retry_req_list              the waiting requests, oldest first; `sum` may be read at any time
 * s_enter_retry_cnt             1 from a kick that claims a run to that run's end, else 0
 * s_enter_retry_repeat_cnt      kicks that found a run pending since the last claim. No sign that
 *                               pages came back: a failed attempt at a run kicks too when it gives
 *                               its partial run back
 * s_retry_times                 cleared by page_init_retry, otherwise never changed
 * s_retry_exit_count            never changed
 * s_hung_page_list_travel_node  the next time-out walk begins at this link's successor; null = at
 *                               the front
 */
CMM_API extern uint64_t        s_page_request_id;
CMM_API extern sLockList       s_retry_req_list;
CMM_API extern uint32_t        s_enter_retry_cnt;
CMM_API extern uint32_t        s_enter_retry_repeat_cnt;
CMM_API extern uint32_t        s_retry_times;
CMM_API extern uint32_t        s_retry_exit_count;
CMM_API extern list_link      *s_hung_page_list_travel_node;

/*
 * Asks for one page now or within a time-out; the result comes through the call-backs.
 *
 *     what happened             failcbFunc        cbFunc                             thread
 *     -----------------------   ---------------   --------------------------------   ------------
 *     a page at once            -                 (page_ctrl *, cbArg, 0)            the caller's
 *     a page later              -                 (page_ctrl *, cbArg, 0)            page_do_retry
 *     request not queued        (failcbArg) 1st   (null, cbArg, 0xFFFFFFFF) 2nd      the caller's
 *     null `func`               (failcbArg) 1st   (null, cbArg, 0xFFFFFFFF) 2nd      the caller's
 *     time-out passed           (failcbArg) 1st   (null, cbArg, 0x80009301) 2nd      the timer's
 *     null cbFunc, failcbFunc   -                 -                                  -
 *
 * reserved    ignored
 * timeout     seconds; 0 fails at the first walk after queueing, PAGE_TIMEOUT_NEVER never
 * cbFunc      brings the result; not null. The page is the receiver's from then on.
 * failcbFunc  announces a failure; not null
 *
 * Call-backs of the timer's thread run under the list lock: they may free pages and chains, but
 * must not queue requests (the lock is taken again, which the platform reports before it ends the
 * process), must not run page_do_retry, and must be short. Call-backs of page_do_retry run without
 * a lock and may queue. A stop of the library calls nobody back.
 *
 * One attempt is made before queueing.
 *
 * Threads: any but the time-out walk's.
 * Logs:    error, limited: each null argument. Warning, limited: no page at once.
 *          info, not limited: queued. Error, not limited: no memory for the request.
 */
CMM_API void allocOnePageForPagePoolTimeOut(const void *reserved, uint32_t timeout,
                                            page_retry_cb cbFunc, uint64_t cbArg,
                                            page_retry_fail_cb failcbFunc, uint64_t failcbArg,
                                            uint32_t module_id, const char *func, uint32_t line);

/*
 * As allocOnePageForPagePoolTimeOut for a run of pages: the result is an SGL chain, and two
 * attempts are made before queueing. A count that allocMultiPagesSync refuses is queued all the
 * same, holds back every request behind it, and can only end by its time-out.
 */
CMM_API void allocMultiPagesForPagePoolTimeOut(uint32_t page_cnt, const void *reserved,
                                               uint32_t timeout, page_retry_cb cbFunc,
                                               uint64_t cbArg, page_retry_fail_cb failcbFunc,
                                               uint64_t failcbArg, uint32_t module_id,
                                               const char *func, uint32_t line);

/*
 * Serves the queue, oldest request first, until it is empty, a request cannot be satisfied, the
 * list lock is busy, or 0.5 ms have passed. Ends the run that page_start_retry claimed.
 *
 * The library never calls it: the embedding process drives the queue, from one thread, at least
 * every 10 ms and whenever it is signalled that pages came back:
 *
 *     if (s_retry_req_list.sum != 0)  page_start_retry();
 *     if (s_enter_retry_cnt != 0)     page_do_retry();
 *
 * (both read atomically). Never from two threads and never from a call-back; with a pause between
 * runs that served nothing; and stopped before the library's last stop. Polling is needed and a
 * signal alone is not enough: requests that could be served stay without a pending run when the
 * budget ended a run, when the lock was busy, when pages came back between a failed attempt and
 * its queueing, and when a large request at the front has expired.
 *
 * A run without a pending kick takes s_enter_retry_cnt from 0 to 0xFFFFFFFF.
 *
 * A request that is being served stays on the list, marked (page_retry_req.served), and cannot
 * expire meanwhile. A run that finds the front marked by another ends.
 *
 * Threads: one; call-backs run in it, without the list lock.
 * Logs:    as function "do_retry_single"; error, not limited: a request of an unknown type, which
 *          stays at the front until it expires; a request without a call-back, whose result goes
 *          to nobody. And as the allocation.
 */
CMM_API void     page_do_retry(void);

/*
 * Kicks the queue: when requests wait and no run is pending, claims one and re-arms the retry
 * timer to 100 microseconds. Every whole free does this; a poller does it too.
 *
 * 0; 0xFFFFFFFF when the timer could not be re-armed, and then the run is pending all the same.
 *
 * Threads: any, without a lock.
 * Logs:    error, not limited: the timer.
 */
CMM_API uint32_t page_start_retry(void);

/*
 * The time-out walk: fails the requests that have waited longer than their time-out, for at most
 * 1 ms, and re-arms the hung-page timer. Expiry function of both timers.
 *
 * Threads: the timer's; it holds the list lock throughout, call-backs included.
 * Logs:    error, not limited: the timer could not be re-armed.
 */
CMM_API void     umm_hung_page_timeout_detect(void);

/*
 * Creates the request slab, empties the list and starts both timers. Does nothing, and succeeds,
 * when page_max is 0.
 *
 * 0; 0xFFFFFFFF on failure, with nothing left behind.
 *
 * Threads: the thread that starts the library.
 * Logs:    error, not limited: the step that failed. Info, not limited: both timers.
 */
CMM_API uint32_t page_init_retry(void);

/*
 * Deletes both timers, empties the list and destroys the request slab. Harmless when nothing was
 * created.
 *
 * Owner:   requests still queued are not called back; their memory goes with the slab.
 * Threads: the thread that stops the library, when nobody drives the queue any more.
 * Logs:    error, not limited: requests are still queued, and then the list is left as it is.
 */
CMM_API void     page_exit_retry(void);

/*
 * Steps of page_init_retry: start one timer of 500,000 microseconds that runs the time-out walk. A
 * timer that is initialised already is accepted. 0 or 0xFFFFFFFF.
 *
 * Logs:    error, not limited: the step that failed. Info, not limited.
 */
CMM_API uint32_t page_init_retry_timeout_timer(void);
CMM_API uint32_t page_init_hung_page_timeout_timer(void);

/*
 * Steps of page_exit_retry: delete one timer; the walk does not run from it afterwards. The
 * platform's result, 0 = deleted, also when it never existed.
 *
 * Logs:    error, not limited.
 */
CMM_API uint32_t umm_delete_retry_timer(void);
CMM_API uint32_t umm_delete_hung_page_timer(void);

/* ------------------------------------------------------ references and attributes */

/*
 * One more reference of a page that the caller holds one of already. The three differ only in what
 * the error line says about the caller.
 *
 *     operation                     func            line
 *     ---------------------------   -------------   -------------
 *     incAndRetPageReferenceInner   the caller's    the caller's
 *     incAndRetPageReference        the caller's    the caller's
 *     incPageRefByFunc              the caller's    0
 *
 * ctrl       the record; null is refused
 * module_id  not read
 * func       null is refused
 *
 * The new count; 0xFFFFFFFF on failure. A page that nobody held (free, or broken) fails too, and
 * its count stays raised: the record is not judged before.
 *
 * Owner:   the caller holds one reference more; decAndRetPageReference or freeOnePage drops it.
 * Threads: any that holds a reference, or was handed the page by a holder who keeps his meanwhile.
 * Logs:    error, limited: a null argument. Error, not limited: nobody held the page; all lines as
 *          function "incAndRetPageReferenceInner".
 */
CMM_API uint32_t incAndRetPageReferenceInner(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                             uint32_t line);
CMM_API uint32_t incAndRetPageReference(page_ctrl *ctrl, const char *func, uint32_t line);
CMM_API uint32_t incPageRefByFunc(page_ctrl *ctrl, uint32_t module_id, const char *func);

/*
 * Drop one reference of a page, as try_free_one_page; the last one returns the page. The retry
 * queue is not kicked: a component whose drops are what others wait for uses freeOnePage.
 * decPageRefByFunc drops with line 0.
 *
 * ctrl  the record; null is refused
 * func  null is refused
 *
 * The count that is left; 0xFFFFFFFF when an argument is null or there is no pool.
 *
 * Threads: any that holds a reference; nobody may touch the page after dropping his own.
 * Logs:    error, limited, as function "decAndRetPageReference": a null argument, no pool. And as
 *          try_free_one_page.
 * Fatal:   as try_free_one_page.
 */
CMM_API uint32_t decAndRetPageReference(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                        uint32_t line);
CMM_API uint32_t decPageRefByFunc(page_ctrl *ctrl, uint32_t module_id, const char *func);

/*
 * The count of a page as it is at this moment; the record is not judged. 0xFFFFFFFF when an
 * argument is null.
 *
 * Threads: any; with other holders about, the answer may be old when it arrives.
 * Logs:    error, limited: a null argument.
 */
CMM_API uint32_t getPageReference(page_ctrl *ctrl, const char *func);

/*
 * The start of the page that a record belongs to; null when the record is null or not valid.
 *
 * A record is valid when it lies 8,320 bytes behind the page that it names, and the page is
 * allocated. This and the operations below judge it alike, with two lines of their own as function
 * "isPageCtrlValid": error, limited, one limiter a line whichever operation asked.
 *
 * Threads: any.
 * Logs:    error, limited: null, not valid. And the line of the judgement.
 */
CMM_API uint8_t *getPageAddrByPageCtrl(page_ctrl *ctrl);

/*
 * Reads and sets the mark that the page's whole content is known to be zero. The library never
 * looks at the content: whoever writes into the page clears the mark.
 *
 * ctrl     the record; null is refused
 * is_zero  getPageZeroFlags: receives 1 or 0, and 0 for a record that is not valid; null is
 *          refused, and with a null record nothing is written.
 *          setPageZeroFlags: only the low 8 bits count, so 0x100 clears the mark
 *
 * Threads: any holder; one byte, no lock, the last writer wins.
 * Logs:    error, limited: null, not valid. And the line of the judgement.
 */
CMM_API void    getPageZeroFlags(page_ctrl *ctrl, uint8_t *is_zero);
CMM_API void    setPageZeroFlags(page_ctrl *ctrl, int is_zero);

/*
 * Adds bits to the page's valid bitmap, and reads it. What a bit means is the callers'; 0xFF says
 * fully valid. Bits are only ever added; freeing the page clears them all.
 *
 * ctrl  the record; null and one that is not valid are refused, reading answers 0 then
 *
 * Threads: any holder; under the page's lock, so additions at once lose no bits.
 * Logs:    error, not limited: null, not valid. And the line of the judgement, which is limited.
 */
CMM_API void    addPageValidBitMap(page_ctrl *ctrl, uint8_t bits);
CMM_API uint8_t getPageValidBitMap(page_ctrl *ctrl);

/* ------------------------------------------------------------ eviction and usage */

/*
 * The registered eviction handlers and the timer that calls them. For reading only: `count` with
 * acquire first.
 *
 * The timer outlives a stop: until the next start its ticks find a configured maximum but no pool,
 * and say so, with a limit. A process that will not start the library again may delete it before
 * its last stop: zyax_timer_delete(&g_page_async_evict_handler.timer). A tick that runs meanwhile
 * reports an error, since it cannot arm the timer again; from another timer's function, which runs
 * in the same thread, there is no such tick.
 */
CMM_API extern page_evict_table g_page_async_evict_handler;

/*
 * Clears the handler table, its timer included. The library runs it once, before the first
 * registration or with the first pool; a second run would forget the handlers and a running timer.
 *
 * Threads: none beside it.
 */
CMM_API void     zyumm_page_evict_handler_init(void);

/*
 * Registers a handler that is to give pages back when they run short. Up to 8, in the order in
 * which they will be called; one may be registered several times. There is no way back: handler
 * and argument must live as long as the process.
 *
 * reserved   ignored
 * handler    runs in the timer's thread, with no lock held: it may free pages, must not block, and
 *            returns soon since all timers wait for it. It is called again at every tick for as
 *            long as the threshold is passed. Null is refused
 * arg        handed to the handler
 * module_id  the registering module
 * func       the registering function, for the lines; null is written as "(null)"
 *
 * 0; 0xFFFFFFFF when the handler is null or 8 are registered.
 *
 * Threads: any, from a handler too; before or after the pool's creation.
 * Logs:    error, not limited: refused. Info, not limited: registered.
 */
CMM_API uint32_t zyumm_page_evict_handler_reg(uint64_t reserved, page_evict_handler handler,
                                              uint64_t arg, uint32_t module_id, const char *func);

/*
 * Starts the eviction timer with a period of 10 microseconds, which the platform's timer rounds up
 * to its resolution. Run once a process, by the first pool through g_page_evict_timer_init; a
 * failure is not tried again and leaves eviction off. The timer outlives a stop of the library.
 *
 * Threads: the thread that creates the pool.
 * Logs:    info, not limited: begin, success. Error, not limited: it could not be started.
 */
CMM_API void     zyumm_page_evict_timer_create(void);

/*
 * One tick: calls every handler when at least 95 % of page_max pages are in use, and re-arms the
 * timer. With a page_max of 0 the threshold counts as passed. A tick that falls into the
 * destruction of the pool calls nobody.
 *
 * Threads: the timer's; handlers run in it, without a lock.
 * Logs:    error, not limited: the timer could not be re-armed, which ends eviction. And as
 *          get_page_count, at every tick between a stop and the next start.
 */
CMM_API void     zyumm_page_evict_timer_hendler(void);

/*
 * Pages that the configuration allows, that are held by callers, and that are left. All 0 when
 * page_max is 0 or there is no pool. zyumm_page_useinfo_get is the same.
 *
 * total, used, free  pages; checked in the order free, total, used, and with one of them null
 *                    nothing is written
 *
 * Threads: any; a moment's view. Not beside the destruction of the pool.
 * Logs:    error, limited, as function "get_page_count": a null pointer; no pool.
 */
CMM_API void     get_page_count(uint64_t *total, uint64_t *used, uint64_t *free);
CMM_API void     zyumm_page_useinfo_get(uint64_t *total, uint64_t *used, uint64_t *free);

/*
 * Bytes of the pages that are out for longer than the slab layer's leak age, 8,376 a page; 0
 * without a pool.
 *
 * Threads: any.
 */
CMM_API uint64_t zyumm_page_leak_size_get(void);

/*
 * Lets the slab layer print the pool's usage and then its holders on the debug console. The result
 * of the second; 0 = printed.
 *
 * Threads: any.
 */
CMM_API int      zyumm_page_usage_dump(void);

/* Does nothing; for programs that were built to call it. Any arguments, null too. */
CMM_API void     updateSglPageOwner(SGL *sgl, uint32_t module_id, const char *func, uint32_t line);

/* ---------------------------------------------------------------- console commands */

/*
 * Handler of the request list's command: with 3 words the newest requests, with 4 all of them,
 * with any other number nothing.
 *
 * argc  number of words of the typed line
 * argv  the words; not read
 *
 * Threads: any, as umm_cmm_show_page_request_list.
 */
CMM_API void     umm_cmm_show_request_list(int32_t argc, char **argv);

/*
 * Prints the queued requests, oldest first, with their place in the queue.
 *
 * limit  0 = all; with more than `limit` requests queued the newest limit + 1 are shown
 *
 * Threads: any but a call-back of the time-out walk's. The list's lock is only tried, and a busy
 *          one ends the command with a line on the console; it is held while rows are gathered.
 */
CMM_API void     umm_cmm_show_page_request_list(uint32_t limit);

/*
 * Handler of "umm show page <addr>": prints the record of the page that starts at the address, as
 * a snapshot without a lock. Another number of words prints the usage, an address that no record
 * behind it confirms prints so.
 *
 * The record is read at whatever address is typed, and a typing error may name memory that is not
 * there. Whoever registers this handler with a console first makes sure that the address is an
 * object of the page slab or one of the zero pages, so that an operator cannot end the process.
 *
 * argc  number of words of the typed line; 4 is right
 * argv  the words; the fourth is the address of the page's start, decimal or after 0x hexadecimal
 *
 * Threads: any.
 */
CMM_API void     umm_cmm_diagnose_show_page_info(int32_t argc, char **argv);

/*
 * NUMA node of a page's memory; 0xFFFFFFFF for null and, from the slab layer, for a page that is
 * not of the pool, which the zero pages are not.
 *
 * Threads: any that holds a reference.
 * Logs:    error, limited: null.
 */
CMM_API uint32_t zyumm_page_get_numaid(page_ctrl *ctrl);

#ifdef __cplusplus
}
#endif

#endif

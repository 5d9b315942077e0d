/*
 * Exchange of a request's I/O description with the generic I/O record of the lower layers.
 *
 *     request 32 40 48 56 64 102 72 80 88 96 100 714 688       address      (nothing)
 *               ^  ^  ^  ^  ^   ^  ^  ^  ^  ^   ^   ^   ^          |            |
 *               v  v  v  v  v   v  v  v  v  v   v   v   v          v            v
 *     genio    0  8 16 24 32  36 40 48 56 64  68  70  88          72       80 := 0
 *
 * Thirteen fields go both ways. Two do not: a genio carries the request itself at 72, so that the
 * lower layer's answer finds its way back, and starts with nothing at 80; what it holds there when
 * it returns is stored in the request at 112 and 672.
 *
 * Threads: both records belong to the caller for the time of the call.
 */
#include "req_local.h"

#include "common/cmm_log.h"

/* Names each pair of the fields that go both ways once; `pass` gives the direction. */
template <typename Genio, typename Req, typename Pass>
static void exchange(Genio &genio, Req &req, Pass pass)
{
    pass(genio.word_0, req.word_32);
    pass(genio.word_8, req.word_40);
    pass(genio.word_16, req.word_48);
    pass(genio.word_24, req.word_56);
    pass(genio.word_32, req.word_64);
    pass(genio.half_36, req.half_102);
    pass(genio.word_40, req.word_72);
    pass(genio.word_48, req.word_80);
    pass(genio.word_56, req.word_88);
    pass(genio.word_64, req.word_96);
    pass(genio.half_68, req.half_100);
    pass(genio.byte_70, req.byte_714);
    pass(genio.word_88, req.word_688);
}

void copyReq2Genio(cmm_genio *genio, const cmm_req *req)
{
    if (genio == nullptr || req == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Genio or req is NULL, genio(%p), req(%p).",
                static_cast<void *>(genio), static_cast<const void *>(req));
        return;
    }

    exchange(*genio, *view_of(req), [](auto &to, const auto &from) { to = from; });
    genio->req     = reinterpret_cast<uintptr_t>(req);
    genio->word_80 = 0;
}

void copyGenio2Req(cmm_req *req, const cmm_genio *genio)
{
    if (genio == nullptr || req == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Genio or req is NULL, genio(%p), req(%p).",
                static_cast<const void *>(genio), static_cast<void *>(req));
        return;
    }

    req_view *view = view_of(req);
    exchange(*genio, *view, [](const auto &from, auto &to) { to = from; });
    /* sic: not back to where they came from; the layers above look for an answer at these two. */
    view->word_112 = genio->req;
    view->word_672 = genio->word_80;
}

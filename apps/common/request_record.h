/*
 * The request record that an I/O of the node carries from its start to its end.
 */
#pragma once

#include "node_error.h"
#include "node_identity.h"
#include "zyumm_cmm_req.h"

class request_record
{
public:
    request_record()
    {
        allocReq(&req_, NODE_MODULE_ID, __func__, __LINE__);
        if (req_ == nullptr)
            throw node_error("no request record is left in the request pool");
    }

    request_record(const request_record &) = delete;
    ~request_record() { freeReq(req_, NODE_MODULE_ID, __func__, __LINE__); }

    cmm_req *record() const { return req_; }

private:
    cmm_req *req_ = nullptr;
};

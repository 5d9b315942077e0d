/*
 * The device from the opening of its files to its report:
 *
 *     before the fork   open(): options, files, repair
 *     after the fork    start(): library, console, threads
 *     at the end        stop(): what is dirty is written, threads, cache, audit, console, library,
 *                       report
 *
 * Owner: one a process, which is never taken down: the library's call-backs refer to it.
 */
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "block_device.h"
#include "console_use.h"
#include "leak_audit.h"
#include "library_use.h"
#include "options.h"

/* How the clients' requests ended. */
struct request_statistics {
    std::atomic<uint64_t> taken{0}, answered{0}, failed{0};
    std::atomic<uint64_t> reads{0}, writes{0}, zeros{0}, trims{0}, flushes{0};
    std::atomic<uint64_t> bytes_read{0}, bytes_written{0};
};

class device_service
{
public:
    device_options options;

    void open();
    void start();

    /* True when all is written, nothing is left out and the library stopped clean. */
    bool stop();

    block_device &device() { return *device_; }

    request_statistics requests;

private:
    void write_report(int flush_failure, bool clean) const;
    std::string text_of_report(int flush_failure, bool clean) const;

    std::unique_ptr<device_files> files_;
    std::unique_ptr<block_device> device_;
    std::unique_ptr<library_use>  library_;
    std::unique_ptr<console_use>  console_; /* serving none without console=; null: not started */
    leak_audit                    audit_;
};

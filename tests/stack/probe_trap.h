/*
 * A tracer for one's own process: sets traps at static probes of a loaded library and keeps the
 * arguments of each hit. It does what bpftrace and gdb do, from the same notes, without their rights.
 *
 *     note in the library's file       "zyumm_cmm request_queued at 0xc391, 8@%rbx 4@24(%rbp) ..."
 *     the loaded nop                   replaced by a trap while the object lives
 *     the trap's signal                reads the arguments, goes on behind the nop
 *
 * Threads: any may run into a trap; one object at a time.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

class probe_trap
{
public:
    static constexpr size_t MAX_ARGUMENTS = 6;
    static constexpr size_t MAX_HITS = 256; /* those beyond are counted */

    struct hit {
        size_t probe; /* its number among those that were asked for */
        uint64_t arguments[MAX_ARGUMENTS];
        size_t count; /* of arguments */
    };

    /* library: the beginning of its file name; probes: "provider:name" each. */
    probe_trap(const std::string &library, const std::vector<std::string> &probes);
    ~probe_trap();
    probe_trap(const probe_trap &) = delete;
    probe_trap &operator=(const probe_trap &) = delete;

    size_t places() const; /* at which the library has the probes */
    size_t hits() const;
    hit at(size_t index) const;

private:
    std::vector<uint8_t *> m_places;
};

/* The text that a probe's argument points to. */
inline const char *text_at(uint64_t argument)
{
    return reinterpret_cast<const char *>(argument);
}

#include "probe_trap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <link.h>
#include <optional>
#include <signal.h>
#include <sstream>
#include <string.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

static constexpr uint8_t NOP = 0x90;
static constexpr uint8_t TRAP = 0xCC;
static constexpr int NO_REGISTER = -1;

namespace
{

/* "-4@24(%rbp,%rcx,8)": a number, a register, or memory at base + index * scale + number. */
struct operand {
    size_t size; /* bytes */
    bool is_signed;
    bool is_memory;
    int base = NO_REGISTER;
    int index = NO_REGISTER;
    int64_t scale = 1;
    int64_t number = 0;
};

struct place {
    size_t probe;
    uint8_t *address;
    std::array<operand, probe_trap::MAX_ARGUMENTS> operands;
    size_t count;
};

struct loaded_library {
    std::string file;
    uintptr_t base;
};

/* What the handler of the signal reads: fixed while traps are set. */
std::array<place, 16> s_places;
std::atomic<size_t> s_place_count; /* published when the places are complete */
std::array<probe_trap::hit, probe_trap::MAX_HITS> s_hits;
std::atomic<size_t> s_hit_claims;
std::array<std::atomic<bool>, probe_trap::MAX_HITS> s_is_complete;

/* ---------------------------------------------------------------- operands */

struct register_names {
    int number;
    std::array<const char *, 4> names; /* of 8, 4, 2 and 1 bytes */
};

constexpr register_names REGISTERS[] = {
    {REG_RAX, {"rax", "eax", "ax", "al"}},      {REG_RBX, {"rbx", "ebx", "bx", "bl"}},
    {REG_RCX, {"rcx", "ecx", "cx", "cl"}},      {REG_RDX, {"rdx", "edx", "dx", "dl"}},
    {REG_RSI, {"rsi", "esi", "si", "sil"}},     {REG_RDI, {"rdi", "edi", "di", "dil"}},
    {REG_RBP, {"rbp", "ebp", "bp", "bpl"}},     {REG_RSP, {"rsp", "esp", "sp", "spl"}},
    {REG_R8, {"r8", "r8d", "r8w", "r8b"}},      {REG_R9, {"r9", "r9d", "r9w", "r9b"}},
    {REG_R10, {"r10", "r10d", "r10w", "r10b"}}, {REG_R11, {"r11", "r11d", "r11w", "r11b"}},
    {REG_R12, {"r12", "r12d", "r12w", "r12b"}}, {REG_R13, {"r13", "r13d", "r13w", "r13b"}},
    {REG_R14, {"r14", "r14d", "r14w", "r14b"}}, {REG_R15, {"r15", "r15d", "r15w", "r15b"}},
};

int register_of(const std::string &text)
{
    for (const register_names &each : REGISTERS) {
        for (const char *name : each.names) {
            if (text == std::string("%") + name)
                return each.number;
        }
    }
    ADD_FAILURE() << "no register: " << text;
    return NO_REGISTER;
}

/* "(%base,%index,scale)" without the parentheses. */
void read_address(const std::string &text, operand *out)
{
    std::istringstream parts(text);
    std::string part;
    if (std::getline(parts, part, ',') && !part.empty())
        out->base = register_of(part);
    if (std::getline(parts, part, ','))
        out->index = register_of(part);
    if (std::getline(parts, part, ','))
        out->scale = std::stoll(part);
}

operand read_operand(const std::string &text)
{
    operand out = {};
    const size_t at = text.find('@');
    const int size = std::stoi(text.substr(0, at));
    const std::string what = text.substr(at + 1);
    const size_t open = what.find('(');

    out.is_signed = size < 0;
    out.size = size_t(abs(size));
    if (what[0] == '%') {
        out.base = register_of(what);
    } else if (what[0] == '$') {
        out.number = std::stoll(what.substr(1));
    } else if (open != std::string::npos) {
        out.is_memory = true;
        out.number = open != 0 ? std::stoll(what.substr(0, open)) : 0;
        read_address(what.substr(open + 1, what.size() - open - 2), &out);
    } else {
        ADD_FAILURE() << "no argument that this tracer can read: " << text;
    }
    return out;
}

/* In a handler of a signal. */
uint64_t value_of(const operand &from, const gregset_t &registers)
{
    uint64_t value = uint64_t(from.number);
    if (from.base != NO_REGISTER)
        value += uint64_t(registers[from.base]);
    if (from.index != NO_REGISTER)
        value += uint64_t(registers[from.index]) * uint64_t(from.scale);
    if (from.is_memory) {
        const void *address = reinterpret_cast<const void *>(value);
        value = 0;
        memcpy(&value, address, from.size);
    }

    const unsigned unused = unsigned(8 * (sizeof value - from.size));
    return from.is_signed ? uint64_t(int64_t(value << unused) >> unused)
                          : value << unused >> unused;
}

/* ---------------------------------------------------------------- the signal */

void keep_hit(const place &here, const gregset_t &registers)
{
    const size_t claim = s_hit_claims.fetch_add(1);
    if (claim >= probe_trap::MAX_HITS)
        return;
    s_hits[claim].probe = here.probe;
    s_hits[claim].count = here.count;
    for (size_t i = 0; i < here.count; ++i)
        s_hits[claim].arguments[i] = value_of(here.operands[i], registers);
    s_is_complete[claim].store(true, std::memory_order_release);
}

/* The trap is one byte, as the nop was: the thread goes on behind it. */
void on_trap(int, siginfo_t *, void *context)
{
    const gregset_t &registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    const uint8_t *behind = reinterpret_cast<const uint8_t *>(registers[REG_RIP]);
    const size_t count = s_place_count.load(std::memory_order_acquire);
    for (size_t i = 0; i < count; ++i) {
        if (s_places[i].address + 1 == behind) {
            keep_hit(s_places[i], registers);
            return;
        }
    }
}

/* ---------------------------------------------------------------- notes */

std::optional<loaded_library> find_library(const std::string &name)
{
    struct search {
        const std::string &name;
        std::optional<loaded_library> found;
    } search = {name, {}};
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *ctx) {
            auto *wanted = static_cast<struct search *>(ctx);
            const std::string file = info->dlpi_name;
            if (file.substr(file.rfind('/') + 1).rfind(wanted->name, 0) == 0)
                wanted->found = loaded_library{file, info->dlpi_addr};
            return 0;
        },
        &search);
    return search.found;
}

/* The section's bytes; none if the file has no such section. */
std::string section_of(const std::string &file, const std::string &name)
{
    std::ifstream in(file, std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Elf64_Ehdr header = {};
    if (all.size() < sizeof header)
        return "";
    memcpy(&header, all.data(), sizeof header);
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    memcpy(sections.data(), all.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    const char *names = all.data() + sections[header.e_shstrndx].sh_offset;
    for (const Elf64_Shdr &each : sections) {
        if (name == names + each.sh_name)
            return all.substr(each.sh_offset, each.sh_size);
    }
    return "";
}

/* A note's content: address, two words that do not matter here, then three texts. */
void add_place(const char *content, uintptr_t base, const std::vector<std::string> &probes)
{
    uint64_t address = 0;
    memcpy(&address, content, sizeof address);
    const std::string provider = content + 3 * sizeof address;
    const char *name = content + 3 * sizeof address + provider.size() + 1;
    const auto wanted = std::find(probes.begin(), probes.end(), provider + ":" + name);
    if (wanted == probes.end())
        return;

    const size_t count = s_place_count.load(std::memory_order_relaxed);
    ASSERT_LT(count, s_places.size());
    place &here = s_places[count];
    here.probe = size_t(wanted - probes.begin());
    here.address = reinterpret_cast<uint8_t *>(base + address);
    here.count = 0;
    std::istringstream arguments(name + strlen(name) + 1);
    for (std::string text; arguments >> text;) {
        ASSERT_LT(here.count, probe_trap::MAX_ARGUMENTS);
        here.operands[here.count++] = read_operand(text);
    }
    s_place_count.store(count + 1, std::memory_order_release);
}

void read_notes(const loaded_library &library, const std::vector<std::string> &probes)
{
    const std::string notes = section_of(library.file, ".note.stapsdt");
    const auto rounded = [](size_t size) { return (size + 3) / 4 * 4; };

    s_place_count = 0;
    for (size_t at = 0; at + sizeof(Elf64_Nhdr) <= notes.size();) {
        Elf64_Nhdr header = {};
        memcpy(&header, notes.data() + at, sizeof header);
        const size_t content = at + sizeof header + rounded(header.n_namesz);
        add_place(notes.data() + content, library.base, probes);
        at = content + rounded(header.n_descsz);
    }
}

/* ---------------------------------------------------------------- traps */

/* As a debugger does it: past the protection of the code, and past tools that watch the program's own
 * accesses. */
void replace_byte(uint8_t *address, uint8_t former, uint8_t byte)
{
    const int memory = open("/proc/self/mem", O_RDWR | O_CLOEXEC);
    const off_t place = off_t(reinterpret_cast<uintptr_t>(address));
    uint8_t found = 0;

    EXPECT_EQ(pread(memory, &found, 1, place), 1);
    EXPECT_EQ(found, former);
    EXPECT_EQ(pwrite(memory, &byte, 1, place), 1);
    close(memory);
}

} // namespace

/*
 * In the place of libc's, for the whole program: the slab layer blocks all signals while it holds
 * some of its locks, and a trap whose signal is blocked ends the process. A tracer outside of the
 * process has no such worry.
 */
#pragma GCC visibility push(default)
extern "C" int pthread_sigmask(int how, const sigset_t *set, sigset_t *former)
{
    constexpr size_t KERNEL_SET_SIZE = 8;
    sigset_t without_traps;
    if (set != nullptr) {
        without_traps = *set;
        if (how != SIG_UNBLOCK)
            sigdelset(&without_traps, SIGTRAP);
        set = &without_traps;
    }
    return syscall(SYS_rt_sigprocmask, how, set, former, KERNEL_SET_SIZE) == 0 ? 0 : errno;
}
#pragma GCC visibility pop

probe_trap::probe_trap(const std::string &library, const std::vector<std::string> &probes)
{
    const std::optional<loaded_library> found = find_library(library);
    EXPECT_TRUE(found.has_value()) << library;
    if (!found)
        return;
    read_notes(*found, probes);
    s_hit_claims = 0;
    for (std::atomic<bool> &each : s_is_complete)
        each = false;

    struct sigaction action = {};
    action.sa_sigaction = on_trap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, nullptr);
    for (size_t i = 0; i < s_place_count; ++i) {
        m_places.push_back(s_places[i].address);
        replace_byte(m_places.back(), NOP, TRAP);
    }
}

/* The action of the signal stays: a thread may have run into a trap just now. */
probe_trap::~probe_trap()
{
    for (uint8_t *address : m_places)
        replace_byte(address, TRAP, NOP);
}

size_t probe_trap::places() const
{
    return m_places.size();
}

/* Hits from the front that are complete. */
size_t probe_trap::hits() const
{
    size_t count = 0;
    while (count < MAX_HITS && s_is_complete[count].load(std::memory_order_acquire))
        ++count;
    return count;
}

probe_trap::hit probe_trap::at(size_t index) const
{
    EXPECT_LT(index, hits());
    return s_hits[index];
}

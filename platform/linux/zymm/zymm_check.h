/*
 * The findings of a slab's consistency check: a few in full, the rest as a number.
 *
 * They are gathered while the slab's threads stand still and logged when these go on again.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

struct slab;

struct check_findings {
    enum : uint32_t { KEPT = 8 };
    struct finding {
        const char *what;   /* constant text */
        const void *object; /* or null */
        uint64_t    tag;    /* of the object */
        uint64_t    is, should_be;
    } kept[KEPT];
    uint64_t found;

    void add(const finding &one)
    {
        if (found < KEPT)
            kept[found] = one;
        found++;
    }

    /* Two numbers that should be equal. */
    void expect(const char *what, uint64_t is, uint64_t should_be)
    {
        if (is != should_be)
            add({what, nullptr, 0, is, should_be});
    }
};

/* Objects' marks, by their numbers in the slab: one bit each, in memory of its own. */
class object_marks {
public:
    explicit object_marks(uint64_t numbers);
    ~object_marks();
    object_marks(const object_marks &) = delete;
    object_marks &operator=(const object_marks &) = delete;

    bool is_made() const
    {
        return words_ != nullptr;
    }
    bool has(uint64_t number) const
    {
        return (words_[number / 64] >> number % 64 & 1) != 0;
    }
    void set(uint64_t number)
    {
        words_[number / 64] |= 1ull << number % 64;
    }

private:
    uint64_t *words_;
    uint64_t  bytes_;
};

/* Sums that the pieces' own numbers and tags add up to. */
struct check_sums {
    uint64_t pieces, carved, capacity, out;
};

/* Marks every object that lies in a cache, magazine, stack or quarantine, and finds those that lie
 * in two places. The slab's threads are stopped. */
void check_free_places(slab *s, object_marks *marks, check_findings *findings);

/* Compares pieces, tags and numbers of one node with the marks; adds to *sums. */
void check_pieces(slab *s, uint32_t node, const object_marks *marks, check_sums *sums,
                  check_findings *findings);

} // namespace zymm

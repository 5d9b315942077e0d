/*
 * Rounding never lies at the ends: one object shows, and a bar is full only when the pool is.
 */
#include "usage_bar.h"

#include <algorithm>

namespace {

size_t columns_of(uint64_t part, uint64_t capacity, size_t room)
{
    if (part == 0 || capacity == 0)
        return 0;
    if (part >= capacity)
        return room;
    const size_t columns = size_t(double(part) / double(capacity) * double(room));
    return std::clamp(columns, size_t(1), std::max(room, size_t(2)) - 1);
}

} // namespace

look look_of_use(uint64_t used, uint64_t capacity)
{
    if (capacity <= 1)
        return look::DIM;
    const double share = double(used) / double(capacity);
    return share >= 0.95 ? look::BAD : share >= 0.75 ? look::WARNING : look::GOOD;
}

painted_line usage_bar(uint64_t used, uint64_t high_water, uint64_t capacity, size_t width)
{
    const size_t room = std::max(width, size_t(3)) - 2;
    const size_t full = columns_of(used, capacity, room);
    const size_t peak = std::max(full, columns_of(high_water, capacity, room));
    painted_line bar = {{"[", look::DIM}};

    bar.push_back({std::string(full, '#'), look_of_use(used, capacity)});
    if (peak > full) {
        bar.push_back({std::string(peak - full - 1, '.'), look::DIM});
        bar.push_back({"|", look::STRONG});
    }
    bar.push_back({std::string(room - peak, ' '), look::PLAIN});
    bar.push_back({"]", look::DIM});
    return bar;
}

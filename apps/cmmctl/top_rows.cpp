/*
 * A sort key is a name and a comparison that puts first what an operator looks for first: the
 * fullest pool, the oldest request, the largest holder.
 */
#include "top_rows.h"

#include <algorithm>
#include <cctype>

namespace {

template <typename Row>
struct sort_key {
    const char *name;
    bool (*goes_first)(const Row &a, const Row &b);
};

double allocs_of(const pool_row &row)
{
    return row.rate ? row.rate->allocs : -1;
}

uint64_t time_left(const request_report &request)
{
    if (!request.timeout_ms)
        return UINT64_MAX;
    return *request.timeout_ms - std::min(*request.timeout_ms, request.age_ms);
}

const sort_key<pool_row> POOL_KEYS[] = {
    {"use", [](const pool_row &a, const pool_row &b) { return a.dryness() > b.dryness(); }},
    {"name", [](const pool_row &a, const pool_row &b) { return a.pool.name < b.pool.name; }},
    {"used",
     [](const pool_row &a, const pool_row &b) { return a.pool.used > b.pool.used; }},
    {"rate", [](const pool_row &a, const pool_row &b) { return allocs_of(a) > allocs_of(b); }},
    {"leaked",
     [](const pool_row &a, const pool_row &b) { return a.pool.leaked > b.pool.leaked; }},
    {"memory",
     [](const pool_row &a, const pool_row &b) {
         return a.pool.memory_bytes > b.pool.memory_bytes;
     }},
};

const sort_key<request_report> REQUEST_KEYS[] = {
    {"age",
     [](const request_report &a, const request_report &b) { return a.age_ms > b.age_ms; }},
    {"place",
     [](const request_report &a, const request_report &b) { return a.place < b.place; }},
    {"left",
     [](const request_report &a, const request_report &b) { return time_left(a) < time_left(b); }},
    {"pages",
     [](const request_report &a, const request_report &b) {
         return a.pages_wanted > b.pages_wanted;
     }},
    {"site",
     [](const request_report &a, const request_report &b) { return a.function < b.function; }},
};

const sort_key<holder_report> HOLDER_KEYS[] = {
    {"bytes", [](const holder_report &a, const holder_report &b) { return a.bytes > b.bytes; }},
    {"objects",
     [](const holder_report &a, const holder_report &b) { return a.objects > b.objects; }},
    {"oldest",
     [](const holder_report &a, const holder_report &b) {
         return a.oldest_age_s > b.oldest_age_s;
     }},
    {"leaked", [](const holder_report &a, const holder_report &b) { return a.leaked > b.leaked; }},
    {"pool", [](const holder_report &a, const holder_report &b) { return a.pool < b.pool; }},
    {"site",
     [](const holder_report &a, const holder_report &b) { return a.function < b.function; }},
};

template <typename Row, size_t Count>
std::vector<std::string> names_of(const sort_key<Row> (&keys)[Count])
{
    std::vector<std::string> names;

    for (const sort_key<Row> &key : keys)
        names.emplace_back(key.name);
    return names;
}

template <typename Row, size_t Count>
void sort_rows(std::vector<Row> &rows, const sort_key<Row> (&keys)[Count], const panel_view &view)
{
    const auto goes_first = keys[view.sort_by % Count].goes_first;

    std::stable_sort(rows.begin(), rows.end(), [&](const Row &a, const Row &b) {
        return view.is_reversed ? goes_first(b, a) : goes_first(a, b);
    });
}

bool contains(const std::string &text, const std::string &part)
{
    const auto same = [](char a, char b) {
        return tolower(static_cast<unsigned char>(a)) == tolower(static_cast<unsigned char>(b));
    };

    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end() ||
           part.empty();
}

} // namespace

double pool_row::use() const
{
    return capacity() == 0 ? 0 : double(pool.used) / double(capacity());
}

const std::vector<std::string> &sort_keys(top_panel panel)
{
    static const std::array<std::vector<std::string>, TOP_PANELS> NAMES = {
        names_of(POOL_KEYS), names_of(REQUEST_KEYS), names_of(HOLDER_KEYS)};

    return NAMES[size_t(panel)];
}

top_rows rows_of(const node_sample &sample, const pool_rates &rates, const top_view &view)
{
    top_rows rows;

    for (const pool_report &pool : sample.pools.pools) {
        const auto rate = rates.find(pool.handle);
        if (pool.is_idle_class())
            continue;
        if (contains(pool.name, view.filter) || contains(pool.module, view.filter))
            rows.pools.push_back({pool, rate == rates.end() ? std::optional<pool_rate>()
                                                            : rate->second});
    }
    for (const request_report &request : sample.requests.requests)
        if (contains(request.function, view.filter) || contains(request.module, view.filter))
            rows.requests.push_back(request);
    for (const holder_report &holder : sample.holders)
        if (contains(holder.function, view.filter) || contains(holder.module, view.filter) ||
            contains(holder.pool, view.filter))
            rows.holders.push_back(holder);
    sort_rows(rows.pools, POOL_KEYS, view.panel_of(top_panel::POOLS));
    sort_rows(rows.requests, REQUEST_KEYS, view.panel_of(top_panel::REQUESTS));
    sort_rows(rows.holders, HOLDER_KEYS, view.panel_of(top_panel::HOLDERS));
    return rows;
}

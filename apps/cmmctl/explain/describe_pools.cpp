/*
 * What the pools reserve when the process starts, and what they cost at most.
 *
 * The slabs are those that the start asked for, with the counts that it asked for; what one object
 * takes is the slab layer's own figure, records and alignment included. The two buffer pools are
 * not made by the library: their sizes are what their users are told.
 */
#include "description.h"
#include "reading.h"

/* A pool of the library, and why it may not have been asked for. */
struct known_pool {
    const char *name;
    uint32_t max; /* of the configuration */
};

static const slab_wish *find_wish(const reading &read, const std::string &name)
{
    for (const slab_wish &wish : read.trace.slabs) {
        if (wish.name == name)
            return &wish;
    }
    return nullptr;
}

static pool_line made_pool(const slab_wish &wish)
{
    pool_line pool = {};
    pool.name = wish.name;
    pool.maker = wish.is_made ? "library" : "nobody";
    pool.object_bytes = wish.obj_size;
    pool.whole_bytes = zymm_object_whole_size_get(wish.obj_size, 0, wish.align);
    pool.min = wish.min_num;
    pool.max = wish.max_num;
    pool.reserve_bytes = wish.is_made ? wish.min_num * pool.whole_bytes : 0;
    pool.cost_bytes = wish.is_made ? wish.max_num * pool.whole_bytes : 0;
    pool.note = wish.is_made ? "" : "the slab layer refuses it, and the start fails";
    return pool;
}

/* Pages that the storage service makes take what the library's report says, minimum and maximum. */
static pool_line storage_service_pages(const reading &read, const char *name)
{
    pool_line pool = {};
    pool.name = name;
    pool.maker = "storage service";
    pool.min = read.config.page_min;
    pool.max = read.config.page_max;
    pool.reserve_bytes = read.report.page_min_size;
    pool.cost_bytes = read.report.page_max_size;
    pool.note = "reserve_size of <io_pool> is not 0, so the library leaves it to others";
    return pool;
}

static pool_line library_pool(const reading &read, const known_pool &known)
{
    const slab_wish *wish = find_wish(read, known.name);
    if (wish != nullptr)
        return made_pool(*wish);

    pool_line pool = {};
    pool.name = known.name;
    pool.maker = "nobody";
    pool.note = known.max == 0 ? "its maximum is 0" : "the start fails before it is made";
    return pool;
}

static pool_line buffer_pool(const char *name, const cmm_pool_info &info)
{
    pool_line pool = {};
    pool.name = name;
    pool.maker = info.max_size != 0 || info.reserve_size != 0 ? "its users" : "nobody";
    pool.reserve_bytes = info.reserve_size;
    pool.cost_bytes = info.max_size;
    pool.note = pool.maker == "nobody" ? "its sizes are 0" : "";
    return pool;
}

void describe_pools(const reading &read, description *out)
{
    const cmm_config &config = read.config;
    const bool is_left_to_others = config.page_max != 0 && config.io_pool.reserve_size != 0 &&
                                   find_wish(read, "PAGE PARTITION") == nullptr && read.status == 0;

    out->pools.push_back(library_pool(read, {"REQ PARTITION", config.req_max}));
    out->pools.push_back(library_pool(read, {"SGL PARTITION", config.sgl_max}));
    if (is_left_to_others) {
        out->pools.push_back(storage_service_pages(read, "PAGE PARTITION"));
    } else {
        out->pools.push_back(library_pool(read, {"ZERO_PAGE_POOL", config.page_max}));
        out->pools.push_back(library_pool(read, {"PAGE PARTITION", config.page_max}));
    }
    out->pools.push_back(library_pool(read, {"PAGE REQUEST", config.page_max}));
    out->pools.push_back(buffer_pool("normal_pool", read.report.normal_pool));
    out->pools.push_back(buffer_pool("io_pool", read.report.io_pool));
}

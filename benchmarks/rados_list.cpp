#include "rados_list.h"

#include <memory>

#include <rados/buffer.h>

namespace bench
{

static std::unique_ptr<ceph::bufferlist> s_list;
static std::unique_ptr<char[]> s_memory;

void rados_list_make(uint32_t buffers, uint32_t bytes, size_t stride)
{
    s_memory = std::make_unique<char[]>(buffers * stride);
    s_list = std::make_unique<ceph::bufferlist>();
    for (uint32_t i = 0; i < buffers; ++i) {
        char *start = s_memory.get() + i * stride;
        s_list->append(ceph::buffer::ptr(ceph::buffer::create_static(bytes, start)));
    }
}

void rados_list_drop(void)
{
    s_list.reset();
    s_memory.reset();
}

void rados_list_clone(void)
{
    ceph::bufferlist clone(*s_list);
    asm volatile("" : : "r"(&clone) : "memory"); /* somebody could use it now */
    clone.clear();
}

} // namespace bench

/*
 * A node that the library can start on, and the story of what the start or stop did to the layers
 * below, one short sentence a call that makes or ends something.
 */
#pragma once

#include <map>

#include "config_documents.h"
#include "expect_log.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

inline constexpr char ALL_POOLS[] = R"(<?xml version="1.0"?>
<cmm>
  <memcfg>
    <mem>1</mem>
  </memcfg>
  <config>
    <node memory="1">
      <umm>
        <uprocess name="default">
          <rdma_flag flag="0"/>
          <req_num num="16"/>
          <sgl_num num="16"/>
          <page_num num="64"/>
          <mem_coredump dump_level="2"/>
        </uprocess>
      </umm>
    </node>
  </config>
</cmm>
)";

/* A directory with the process's executable and this document in it. */
class started_node
{
public:
    explicit started_node(const std::string &text = ALL_POOLS)
    {
        directory_.write("node_config.xml", text);
        fake_set_executable(directory_.path() + "/cmm_test");
    }

private:
    scratch_directory directory_;
};

/* The library as a freshly loaded one finds it, for the next step of a sweep. */
inline void start_over()
{
    g_cmm_init_magic = 0;
    g_cmm_init_count = 0;
    g_cmm_part_sum   = 0;
    g_ucmm_config    = {};
}

inline std::string story_line(const fake_call &call, std::map<uint64_t, std::string> *names)
{
    switch (call.op) {
    case OP_zyumm_partition_create:
        return "make partition " + call.args.at(3).text;
    case OP_zyumm_partition_delete:
        return "delete partition " + std::to_string(call.args.at(0).number);
    case OP_zyax_xml_loadfd:
        return "load document";
    case OP_zymm_numa_coredump_level_set:
        return "core dump level " + std::to_string(call.args.at(0).number);
    case OP_zymm_create_slab:
        (*names)[call.result] = call.as<zymm_slab_param>().name;
        return "make " + std::string(call.as<zymm_slab_param>().name);
    case OP_zyumm_mpool_create:
        (*names)[call.result] = call.as<zyumm_mpool_param>().name;
        return "make " + std::string(call.as<zyumm_mpool_param>().name);
    case OP_zymm_pool_create:
        (*names)[call.result] = call.args.at(0).text;
        return "make " + call.args.at(0).text;
    case OP_zymm_allocator_destroy:
        return "end the buffer allocator";
    case OP_zymm_destory_slab:
    case OP_zyumm_mpool_delete:
    case OP_zymm_pool_destory:
        return "end " + (*names)[call.args.at(0).number];
    default:
        return "";
    }
}

using story = std::vector<std::string>;

/* What has happened since `from` calls of the story had happened. */
inline story story_since(size_t from)
{
    std::map<uint64_t, std::string> names;
    story told;
    for (const fake_call &call : fake_calls()) {
        const std::string line = story_line(call, &names);
        if (!line.empty())
            told.push_back(line);
    }
    told.erase(told.begin(), told.begin() + long(std::min(from, told.size())));
    return told;
}

inline story whole_story()
{
    return story_since(0);
}

/* Slabs that the library made and that still exist. */
inline uint64_t slabs_alive()
{
    uint64_t alive = 0;
    for (const fake_call &call : fake_calls(OP_zymm_create_slab))
        alive += call.result != 0 && fake_handle_alive(call.result) ? 1 : 0;
    return alive;
}

/*
 * That the sweep is whole: every name of the export list is an operation with a row, or data.
 */
#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <type_traits>

#include "sweep.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

namespace
{

using names = std::set<std::string>;

/* The list says data of nothing but data. */
#define DATA(name)                                                                                 \
    (static_assert_data<std::is_function_v<std::remove_reference_t<decltype(name)>>>(), #name)

template <bool is_function>
void static_assert_data()
{
    static_assert(!is_function, "an operation needs a row in the sweep");
}

names exported_data()
{
    return {
        DATA(g_cmm_init_magic),
        DATA(g_cmm_init_status),
        DATA(g_cmm_init_count),
        DATA(g_cmm_umm_partition),
        DATA(g_cmm_part_s),
        DATA(g_cmm_part_sum),
        DATA(g_cmm_part_lock),
        DATA(g_cmm_part_creator),
        DATA(g_config_path),
        DATA(g_proc_name),
        DATA(g_exe_file_path),
        DATA(g_cfg_path_absolute),
        DATA(g_ucmm_config),
        DATA(s_page_partition_id),
        DATA(s_zero_page_partition_id),
        DATA(s_zero_page_address),
        DATA(g_global_zero_page_without_dif),
        DATA(g_global_zero_page_dif),
        DATA(s_page_request_id),
        DATA(s_retry_req_list),
        DATA(s_enter_retry_cnt),
        DATA(s_enter_retry_repeat_cnt),
        DATA(s_retry_times),
        DATA(s_retry_exit_count),
        DATA(s_hung_page_list_travel_node),
        DATA(g_page_async_evict_handler),
        DATA(g_page_evict_timer_init),
        DATA(g_sgl_partition_id),
        DATA(g_req_partition_id),
    };
}

/* The names between "global:" and "local:" of a version script, comments left out. */
names exported_names(const std::string &path)
{
    std::ostringstream whole;
    whole << std::ifstream(path).rdbuf();
    std::string text = whole.str();
    for (size_t from; (from = text.find("/*")) != std::string::npos;)
        text.erase(from, text.find("*/", from) + 2 - from);

    const size_t begin = text.find("global:") + sizeof "global:";
    std::replace(text.begin(), text.end(), ';', ' ');
    std::istringstream words(text.substr(begin, text.find("local:") - begin));
    names found;
    for (std::string word; words >> word;)
        found.insert(word);
    return found;
}

names names_with_rows()
{
    names found;
    for (const auto *table : {&module_operations(), &partition_operations(), &config_operations(),
                              &parameter_operations(), &page_pool_operations(), &page_operations(),
                              &retry_operations(), &page_report_operations(), &sgl_operations(),
                              &copy_operations(), &req_operations(), &buffer_operations()}) {
        for (const operation &row : *table)
            found.insert(row.name);
    }
    return found;
}

std::string without(const names &these, const names &those)
{
    std::string rest;
    for (const std::string &name : these)
        rest += those.count(name) == 0 ? name + " " : "";
    return rest;
}

} // namespace

TEST(SweepTable, every_exported_operation_has_a_row)
{
    names exported = exported_names(CMM_EXPORT_MAP);
    ASSERT_GT(exported.size(), 100u);

    for (const std::string &name : exported_data())
        EXPECT_EQ(exported.erase(name), 1u) << name;
    EXPECT_EQ(without(exported, names_with_rows()), "") << "exported without a row";
    EXPECT_EQ(without(names_with_rows(), exported), "") << "rows of nothing exported";
}

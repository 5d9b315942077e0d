/*
 * The handlers of the commands: a pair a command, text for people and JSON, with the words of the
 * typed line as zyax_console.h hands them over. register.cpp has the table.
 */
#pragma once

#include <stdint.h>

namespace console
{

void show_page_text(int32_t count, char **words);
void show_page_json(int32_t count, char **words);
void show_newest_requests_json(int32_t count, char **words);
void show_all_requests_json(int32_t count, char **words);
void show_pools_text(int32_t count, char **words);
void show_pools_json(int32_t count, char **words);
void show_pool_text(int32_t count, char **words);
void show_pool_json(int32_t count, char **words);
void show_holders_text(int32_t count, char **words);
void show_holders_json(int32_t count, char **words);
void show_leaks_text(int32_t count, char **words);
void show_leaks_json(int32_t count, char **words);
void show_numa_text(int32_t count, char **words);
void show_numa_json(int32_t count, char **words);
void show_config_text(int32_t count, char **words);
void show_config_json(int32_t count, char **words);
void show_partitions_text(int32_t count, char **words);
void show_partitions_json(int32_t count, char **words);
void set_log_level(int32_t count, char **words);
void show_log_sinks_text(int32_t count, char **words);
void show_log_sinks_json(int32_t count, char **words);

} // namespace console

/*
 * What a line looks like: its levels' names in words and colours, and the time before it. The
 * formatters are spdlog's, with one part of our own: the level, whose name spdlog would choose
 * otherwise.
 */
#pragma once

#include "log_local.h"

#include <memory>
#include <spdlog/pattern_formatter.h>

namespace zyax
{

enum class log_form { PLAIN, COLOURED, WITHOUT_TIME };

std::unique_ptr<spdlog::formatter> make_log_formatter(log_form form);

/* Bytes that describe() may need for a line. */
inline constexpr size_t LOG_DESCRIPTION_SIZE = LOG_TEXT_SIZE + 64;

/* "4711 module function file:line text": what comes after the time and the level; the length. */
size_t describe(const log_line &line, char *out, size_t size);

/* The line as spdlog's sinks take it. `description` must outlive it. */
spdlog::details::log_msg make_log_message(const log_line &line, spdlog::string_view_t description);

/* Whether standard error is a terminal that knows colours, and whose user wants them. */
bool wants_colour(void);

} // namespace zyax

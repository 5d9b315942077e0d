/*
 * Log and console: every line and every console text is kept for the test.
 *
 * Error and fatal lines are also written to standard error, one piece a line, because a death test
 * sees nothing else of its child.
 */
#include <cstdarg>
#include <cstdio>
#include <memory>

#include "fake_local.h"

namespace
{

struct log_state {
    uint32_t               level = ZYLOG_INFO;
    std::vector<fake_line> lines;
    std::string            printed;  /* of DBG_Print */
    std::string            gathered; /* of DBG_PrintBuf */
};

log_state &state()
{
    static log_state *const log = new log_state;
    return *log;
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char *format, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int   length = vsnprintf(nullptr, 0, format, again);
    std::string text(length > 0 ? static_cast<size_t>(length) + 1 : 1, '\0');
    va_end(again);
    vsnprintf(text.data(), text.size(), format, args);
    text.pop_back();
    return text;
}

void keep_line(fake_line line)
{
    const fake::guard held(fake::state_mutex());
    if (line.level > state().level)
        return;
    if (line.level <= ZYLOG_ERROR)
        fprintf(stderr, "%u|%s|%u|%s\n", line.level, line.func.c_str(), line.flag,
                line.text.c_str());
    state().lines.push_back(std::move(line));
}

std::string or_null(const char *text)
{
    return text != nullptr ? text : "(null)";
}

} // namespace

void fake::platform_line(uint32_t level, const char *func, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = formatted(format, args);
    va_end(args);
    keep_line({PLATFORM_MODULE_ID, level, 0, "fake", 0, func, std::move(text)});
}

int zylog_level_check(uint32_t module_id, uint32_t level)
{
    fake::call c(OP_zylog_level_check, module_id, level);
    return c.answer<int>([&] {
        const fake::guard held(fake::state_mutex());
        return level <= state().level ? 0 : 1;
    });
}

void zylog(uint32_t module_id, uint32_t level, const char *file, uint32_t line, const char *func,
           uint32_t flag, const char *format, ...)
{
    fake::call c(OP_zylog, module_id, level, file, line, func, flag, format);
    va_list    args;
    va_start(args, format);
    std::string text = formatted(format, args);
    va_end(args);
    c.run([&] {
        keep_line({module_id, level, flag, or_null(file), line, or_null(func), std::move(text)});
    });
}

void DBG_Print(const char *format, ...)
{
    fake::call c(OP_DBG_Print, format);
    va_list    args;
    va_start(args, format);
    const std::string text = formatted(format, args);
    va_end(args);
    c.run([&] {
        const fake::guard held(fake::state_mutex());
        state().printed += text;
    });
}

void DBG_PrintBuf(const char *format, ...)
{
    fake::call c(OP_DBG_PrintBuf, format);
    va_list    args;
    va_start(args, format);
    const std::string text = formatted(format, args);
    va_end(args);
    c.run([&] {
        const fake::guard held(fake::state_mutex());
        state().gathered += text;
    });
}

std::vector<fake_line> fake_log()
{
    const fake::guard held(fake::state_mutex());
    return state().lines;
}

std::vector<fake_line> fake_log_from(const std::string &func)
{
    std::vector<fake_line> lines = fake_log();
    std::erase_if(lines, [&](const fake_line &line) { return line.func != func; });
    return lines;
}

std::vector<std::string> fake_log_texts()
{
    std::vector<std::string> texts;
    for (fake_line &line : fake_log())
        texts.push_back(std::move(line.text));
    return texts;
}

fake_line fake_last_line()
{
    const fake::guard held(fake::state_mutex());
    return state().lines.empty() ? fake_line{} : state().lines.back();
}

uint64_t fake_log_count(const std::string &text)
{
    uint64_t count = 0;
    for (const fake_line &line : fake_log())
        count += line.text == text;
    return count;
}

void fake_forget_log()
{
    const fake::guard held(fake::state_mutex());
    state().lines.clear();
}

void fake_set_log_level(uint32_t level)
{
    const fake::guard held(fake::state_mutex());
    state().level = level;
}

std::string fake_console()
{
    const fake::guard held(fake::state_mutex());
    return state().printed + state().gathered;
}

void fake_forget_console()
{
    const fake::guard held(fake::state_mutex());
    state().printed.clear();
    state().gathered.clear();
}

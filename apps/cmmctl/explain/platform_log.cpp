/*
 * Log operations: while a recording is made every line is wanted and goes into it, the platform's
 * own complaints about a document included.
 */
#include "recording.h"

#include <cstdarg>
#include <cstdio>

#include "zylog.h"

static constexpr size_t LINE_SIZE = 8192; /* two paths fit */
static constexpr char PREFIX[] = "[UMM_CMM] ";

extern "C" {

int __real_zylog_level_check(uint32_t module_id, uint32_t level);
void __real_zylog(uint32_t module_id, uint32_t level, const char *file, uint32_t line,
                  const char *func, uint32_t flag, const char *format, ...)
    __attribute__((format(printf, 7, 8)));

int __wrap_zylog_level_check(uint32_t module_id, uint32_t level);
void __wrap_zylog(uint32_t module_id, uint32_t level, const char *file, uint32_t line,
                  const char *func, uint32_t flag, const char *format, ...)
    __attribute__((format(printf, 7, 8)));

int __wrap_zylog_level_check(uint32_t module_id, uint32_t level)
{
    return current_recording() != nullptr ? 0 : __real_zylog_level_check(module_id, level);
}

void __wrap_zylog(uint32_t module_id, uint32_t level, const char *file, uint32_t line,
                  const char *func, uint32_t flag, const char *format, ...)
{
    char text[LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    recording *current = current_recording();
    if (current == nullptr) {
        __real_zylog(module_id, level, file, line, func, flag, "%s", text);
        return;
    }
    std::string said = text;
    if (said.rfind(PREFIX, 0) == 0)
        said.erase(0, sizeof PREFIX - 1);
    current->lines.push_back({module_id, level, said});
}
}

/*
 * Text for the debug console.
 *
 *     thread's word --> innermost command --> outer command --> null: standard output
 *
 * A command is a small record on the heap that exists from zyax_console_begin to zyax_console_end,
 * or for one line of the console. Only the thread that began it ever touches it, so there is no
 * lock. What DBG_PrintBuf gathers
 * grows without a bound of its own: a command's output is delivered whole. When memory ends first,
 * what was gathered goes out early and the text at once, so that nothing is lost or reordered.
 */
#include "console_local.h"

#include <new>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <utility>

namespace zyax
{

constinit thread_local console_command *t_command = nullptr;

static void deliver(console_command *command, const char *text, size_t length)
{
    if (length != 0)
        command->write(command->ctx, text, length);
}

/* The call-back may print itself, so the text is out of the record while it runs. */
static void deliver_gathered(console_command *command)
{
    const std::string text = std::exchange(command->gathered, {});
    deliver(command, text.data(), text.size());
}

static void at_once(console_command *command, const char *text, size_t length)
{
    if (command != nullptr) {
        deliver(command, text, length);
        return;
    }
    fwrite(text, 1, length, stdout);
    fflush(stdout);
}

static void gather(console_command *command, const char *text, size_t length)
{
    if (command == nullptr) {
        at_once(command, text, length);
        return;
    }
    try {
        command->gathered.append(text, length);
    } catch (...) {
        deliver_gathered(command);
        deliver(command, text, length);
    }
}

using text_user = void (*)(console_command *command, const char *text, size_t length);

/* Formats and passes the text on; most texts fit the stack. */
__attribute__((format(printf, 2, 0)))
static void print(text_user use, const char *format, va_list args)
{
    char small[1024];
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(small, sizeof(small), format, args);
    if (length > 0 && size_t(length) < sizeof(small)) {
        use(t_command, small, size_t(length));
    } else if (length > 0) {
        char *large = nullptr;
        if (vasprintf(&large, format, again) >= 0) {
            use(t_command, large, size_t(length));
            free(large);
        } else {
            use(t_command, small, sizeof(small) - 1);
        }
    }
    va_end(again);
}

console_command *console_begin(console_write write, void *ctx, bool is_line)
{
    console_command *command = new (std::nothrow) console_command{
        .write = write, .ctx = ctx, .gathered = {}, .outer = t_command, .is_line = is_line};
    if (command != nullptr)
        t_command = command;
    return command;
}

static void end_innermost(void)
{
    console_command *command = t_command;
    t_command = command->outer;
    deliver_gathered(command);
    delete command;
}

void console_end(console_command *command)
{
    while (t_command != command)
        end_innermost();
    end_innermost();
}

uint32_t console_runs_here(const console_entry *entry)
{
    uint32_t runs = 0;
    for (const console_command *command = t_command; command != nullptr; command = command->outer)
        runs += command->entry == entry;
    return runs;
}

} // namespace zyax

using namespace zyax;

void DBG_Print(const char *format, ...)
{
    if (format == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Console text with a null format.");
        return;
    }

    va_list args;
    va_start(args, format);
    print(at_once, format, args);
    va_end(args);
}

void DBG_PrintBuf(const char *format, ...)
{
    if (format == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Console text with a null format.");
        return;
    }

    va_list args;
    va_start(args, format);
    print(gather, format, args);
    va_end(args);
}

void zyax_console_begin(void (*write)(void *ctx, const char *text, size_t length), void *ctx)
{
    if (write == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "A console command without a call-back.");
        return;
    }

    if (console_begin(write, ctx, false) == nullptr)
        ZYAX_LOG(ZYLOG_ERROR, "No memory for a console command.");
}

void zyax_console_end(void)
{
    if (t_command == nullptr || t_command->is_line) {
        ZYAX_LOG(ZYLOG_ERROR, "The end of a console command that never began.");
        return;
    }

    end_innermost();
}

void zyax_console_fail(void)
{
    for (console_command *command = t_command; command != nullptr; command = command->outer) {
        if (command->is_line) {
            command->has_failed = true;
            return;
        }
    }
}

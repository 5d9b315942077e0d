/*
 * Registers the commands, then serves them; the other way round at the end.
 */
#include "console_use.h"

#include "node_error.h"
#include "zyax_console.h"
#include "zyumm_console.h"

console_use::console_use(const std::string &path)
{
    if (path.empty())
        return;
    if (zyumm_console_register() != 0)
        throw node_error("the console's commands cannot be registered");
    if (zyax_console_start(path.c_str()) != 0) {
        zyumm_console_unregister();
        throw node_error(path + ": cannot be used as the console's socket");
    }
    running_ = true;
}

console_use::~console_use()
{
    stop();
}

void console_use::stop()
{
    if (!running_)
        return;
    running_ = false;
    zyax_console_stop();
    zyumm_console_unregister();
}

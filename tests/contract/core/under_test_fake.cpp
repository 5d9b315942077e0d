/*
 * The core contract against the fake platform.
 */
#include "under_test.h"

#include "fake.h"

uint64_t error_lines_of(const std::function<void()> &action)
{
    fake_forget_log();
    action();
    uint64_t errors = 0;
    for (const fake_line &line : fake_log())
        errors += line.level == ZYLOG_ERROR;
    return errors;
}

std::string make_ini(const std::string &section, const std::string &key, const std::string &value)
{
    fake_set_ini("/etc/contract.ini", section, key, value);
    return "/etc/contract.ini";
}

uint64_t make_public_pool()
{
    return fake_make_public_pool();
}

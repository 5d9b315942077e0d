/*
 * The core contract against the Linux platform.
 *
 * Error lines are read back from a log file, since standard error also carries what the platform's
 * libraries say themselves.
 */
#include "under_test.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "zyax_log.h"
#include "zyumm_pub.h"

namespace
{

/* A folder of this process that is removed when it ends. */
class scratch_folder
{
public:
    scratch_folder()
    {
        char name[] = "/tmp/contract_XXXXXX";
        path_       = mkdtemp(name) != nullptr ? name : "/no/scratch/folder";
    }

    ~scratch_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string file(const char *name) const
    {
        return path_ + "/" + name;
    }

private:
    std::string path_;
};

const scratch_folder &scratch()
{
    static const scratch_folder folder;
    return folder;
}

const std::string &log_file()
{
    static const std::string path = [] {
        std::string name = scratch().file("contract.log");
        return zyax_log_add_file(name.c_str(), 1u << 20, 0) == 0 ? name : std::string();
    }();
    return path;
}

uint64_t error_lines()
{
    zyax_log_flush();
    std::ifstream log(log_file());
    uint64_t      errors = 0;
    for (std::string line; std::getline(log, line);) {
        std::string        time, level;
        std::istringstream fields(line);
        fields >> time >> level;
        errors += level == "error";
    }
    return errors;
}

} // namespace

uint64_t error_lines_of(const std::function<void()> &action)
{
    const uint64_t before = error_lines();
    action();
    return error_lines() - before;
}

std::string make_ini(const std::string &section, const std::string &key, const std::string &value)
{
    std::string path = scratch().file("contract.ini");
    std::ofstream(path) << "[" << section << "]\n" << key << "=" << value << "\n";
    return path;
}

uint64_t make_public_pool()
{
    return zyumm_pub_mpool_create("public", 4u << 20, 4u << 20, 386);
}

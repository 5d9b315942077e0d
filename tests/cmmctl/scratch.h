/*
 * A folder of the test's own, removed with everything in it at the end.
 */
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class scratch_folder
{
public:
    scratch_folder()
    {
        char made[] = "/tmp/cmmctl_test.XXXXXX";
        if (mkdtemp(made) == nullptr)
            abort();
        path_ = made;
    }
    ~scratch_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;

    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/*
 * Names of images and folders. An image is called after its source's place on the command line and
 * its base name, cut where the name would become too long for a file system.
 */
#include "replica_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "failure_list.h"
#include "node_error.h"

namespace {

constexpr size_t LONGEST_NAME = 200; /* of 255; leaves room for index and ending */

std::string make_temporary_folder()
{
    const char *root = getenv("TMPDIR");
    std::string path = std::string(root != nullptr ? root : "/tmp") + "/cmm_node-XXXXXX";

    if (mkdtemp(path.data()) == nullptr)
        throw system_failure(path, errno);
    return path;
}

} // namespace

replica_store::replica_store(const std::string &dir, uint32_t replicas)
    : dir_(dir), replicas_(replicas)
{
    if (dir_.empty()) {
        dir_ = make_temporary_folder();
        made_.push_back(dir_);
    }
    std::string outer;
    for (const std::filesystem::path &step : std::filesystem::path(dir_))
        make_folder(outer = (std::filesystem::path(outer) / step).string());
    for (uint32_t number = 1; number <= replicas_; ++number)
        make_folder(dir_ + "/replica-" + std::to_string(number));
}

void replica_store::make_folder(const std::string &path)
{
    if (mkdir(path.c_str(), 0777) == 0)
        made_.push_back(path);
    else if (!std::filesystem::is_directory(path))
        throw system_failure(path, errno);
}

std::string replica_store::image_path(uint32_t number, const source_file &source) const
{
    const std::string name = std::filesystem::path(source.path).filename().string();
    return dir_ + "/replica-" + std::to_string(number + 1) + "/" + std::to_string(source.index) +
           "-" + name.substr(0, LONGEST_NAME) + ".img";
}

void replica_store::remove_images(const std::vector<source_file> &sources, failure_list &failures)
{
    for (const source_file &source : sources) {
        for (uint32_t number = 0; number < replicas_; ++number) {
            const std::string path = image_path(number, source);
            if (unlink(path.c_str()) != 0 && errno != ENOENT)
                failures.add(system_failure(path + ": could not be removed", errno).what());
        }
    }
    for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder)
        rmdir(folder->c_str());
}

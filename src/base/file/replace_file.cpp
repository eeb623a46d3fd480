#include <fcntl.h>
#include <filesystem>
#include <span>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/file/kx_disk_file.h"
#include "base/file/kx_memory_file.h"
#include "platform/Descriptor.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kReplaceGrowth = 4096;
constexpr mode_t kPermissions = 0666;  // less what the process's mask takes away
constexpr const char* kBesideSuffix = ".new";

// Makes the new file whole on the disk, as open to others as the one it will replace.
bool write_beside(const std::string& beside, const std::string& target,
                  std::span<const std::byte> bytes) {
    Descriptor file(::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kPermissions));
    if (!file.open()) return false;
    struct stat status {};
    // A file system without permissions refuses, and has lost nothing.
    if (::stat(target.c_str(), &status) == 0)
        static_cast<void>(::fchmod(file.get(), status.st_mode & 07777U));
    return write_all(file.get(), bytes) && ::fsync(file.get()) == 0 && file.close();
}

// So that the new name is on the disk too. A folder that cannot be synced has no more to promise.
void sync_folder(const std::filesystem::path& file) {
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
    const Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor.open()) ::fsync(descriptor.get());
}

}  // namespace

bool replace_file(const std::string& name, const std::function<bool(kx_file&)>& fill) {
    kx_memory_file content(kReplaceGrowth);
    if (!fill(content)) return false;

    std::error_code missing;
    const std::filesystem::path resolved = std::filesystem::canonical(name, missing);
    const std::string target = missing ? name : resolved.string();
    const std::string beside = target + kBesideSuffix;
    if (!write_beside(beside, target, content.contents()) ||
        ::rename(beside.c_str(), target.c_str()) != 0) {
        ::unlink(beside.c_str());
        return false;
    }
    sync_folder(target);
    return true;
}

}  // namespace vorrim

#include "base/file/kx_disk_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorrim {

namespace {

constexpr std::uint32_t kLargestPosition = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kLargestMove = std::numeric_limits<std::int32_t>::max();
constexpr mode_t kPermissions = 0666;  // less what the process's mask takes away

int open_flags(std::uint32_t mode) noexcept {
    int flags = O_CLOEXEC;
    if ((mode & KX_FILE_WRITE) == 0) {
        flags |= O_RDONLY;
    } else {
        flags |= (mode & KX_FILE_READ) != 0 ? O_RDWR : O_WRONLY;
    }
    if (mode != KX_FILE_READ) flags |= O_CREAT;
    if ((mode & KX_FILE_CREATE) != 0) flags |= O_TRUNC;
    return flags;
}

}  // namespace

std::unique_ptr<kx_file> kx_open_file(const std::string& name, std::uint32_t mode) {
    const int descriptor = ::open(name.c_str(), open_flags(mode), kPermissions);
    if (descriptor < 0) return nullptr;
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        ::close(descriptor);
        return nullptr;
    }
    const auto size = static_cast<std::uint32_t>(std::min<off_t>(status.st_size, kLargestPosition));
    return std::make_unique<kx_disk_file>(descriptor, size);
}

kx_disk_file::~kx_disk_file() {
    if (mapping_ != nullptr) ::munmap(mapping_, mapping_size_);
    ::close(descriptor_);
}

std::int32_t kx_disk_file::read(void* buffer, std::uint32_t count) {
    count = std::min({count, kLargestMove, kLargestPosition - position_});
    auto* const to = static_cast<std::byte*>(buffer);
    std::uint32_t done = 0;
    while (done < count) {
        std::uint32_t got = 0;
        const std::uint32_t left = count - done;
        const bool is_ahead = position_ >= ahead_begin_ && position_ - ahead_begin_ < ahead_size_;
        if (is_ahead || left < kReadAhead) {
            got = read_ahead(to + done, left);
        } else {
            const ssize_t moved = ::pread(descriptor_, to + done, left, position_);
            if (moved < 0 && errno == EINTR) continue;
            got = moved > 0 ? static_cast<std::uint32_t>(moved) : 0;
        }
        if (got == 0) break;
        done += got;
        position_ += got;
    }
    return static_cast<std::int32_t>(done);
}

std::uint32_t kx_disk_file::read_ahead(std::byte* to, std::uint32_t count) {
    if (position_ < ahead_begin_ || position_ - ahead_begin_ >= ahead_size_) {
        ssize_t got = 0;
        do {
            got = ::pread(descriptor_, ahead_.data(), ahead_.size(), position_);
        } while (got < 0 && errno == EINTR);
        ahead_begin_ = position_;
        ahead_size_ = got > 0 ? static_cast<std::uint32_t>(got) : 0;
    }
    const std::uint32_t from = position_ - ahead_begin_;
    count = std::min(count, ahead_size_ - from);
    std::memcpy(to, ahead_.data() + from, count);
    return count;
}

std::int32_t kx_disk_file::write(const void* bytes, std::uint32_t count) {
    ahead_size_ = 0;
    count = std::min({count, kLargestMove, kLargestPosition - position_});
    const auto* const from = static_cast<const std::byte*>(bytes);
    std::uint32_t done = 0;
    while (done < count) {
        const ssize_t moved = ::pwrite(descriptor_, from + done, count - done, position_);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) break;
        done += static_cast<std::uint32_t>(moved);
        position_ += static_cast<std::uint32_t>(moved);
    }
    size_ = std::max(size_, position_);
    return static_cast<std::int32_t>(done);
}

std::uint32_t kx_disk_file::seek(std::uint32_t position) {
    position_ = position;
    return position_;
}

void kx_disk_file::flush() {
    ::fsync(descriptor_);
}

void* kx_disk_file::map(std::uint32_t offset, std::uint32_t length, std::uint32_t mode) {
    if (mapping_ != nullptr || length == 0) return nullptr;
    const bool writable = (mode & KX_FILE_WRITE) != 0;
    const std::uint64_t end = std::uint64_t{offset} + length;
    if (end > kLargestPosition) return nullptr;
    if (end > size_) {
        // A page past the end of the file would be a fault at the first touch.
        if (!writable || ::ftruncate(descriptor_, static_cast<off_t>(end)) != 0) return nullptr;
        size_ = static_cast<std::uint32_t>(end);
    }
    ahead_size_ = 0;
    const auto page = static_cast<std::uint32_t>(::sysconf(_SC_PAGESIZE));
    const std::uint32_t into_page = offset % page;
    const int protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const pages = ::mmap(nullptr, std::size_t{length} + into_page, protection, MAP_SHARED,
                               descriptor_, offset - into_page);
    if (pages == MAP_FAILED) return nullptr;
    mapping_ = pages;
    mapping_size_ = std::size_t{length} + into_page;
    mapped_ = static_cast<std::byte*>(pages) + into_page;
    return mapped_;
}

bool kx_disk_file::unmap(void* bytes, std::uint32_t /*length*/) {
    if (bytes == nullptr || bytes != mapped_) return false;
    if (::munmap(mapping_, mapping_size_) != 0) return false;
    mapping_ = mapped_ = nullptr;
    mapping_size_ = 0;
    ahead_size_ = 0;
    return true;
}

}  // namespace vorrim

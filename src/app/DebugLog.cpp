#include "app/DebugLog.h"

#include <utility>

#include "base/file/kx_disk_file.h"

namespace vorrim {

namespace {

// Reading as well, so that a pipe in its place, which nobody reads, is not waited for.
constexpr std::uint32_t kMode = KX_FILE_READ | KX_FILE_WRITE;

}  // namespace

DebugLog::DebugLog(std::unique_ptr<kx_file> file) : file_(std::move(file)) {}

std::unique_ptr<DebugLog> DebugLog::open() {
    std::unique_ptr<kx_file> file = kx_open_file(kFile, kMode);
    if (!file) return nullptr;
    return std::make_unique<DebugLog>(std::move(file));
}

bool DebugLog::reopen() {
    std::unique_ptr<kx_file> file = kx_open_file(kFile, kMode);
    if (!file) return false;
    file->seek(file->size());
    const kx_guard hold(lock_);
    file_.swap(file);
    return true;
}

std::int32_t DebugLog::read(void* buffer, std::uint32_t count) {
    const kx_guard hold(lock_);
    return file_->read(buffer, count);
}

std::int32_t DebugLog::write(const void* bytes, std::uint32_t count) {
    const kx_guard hold(lock_);
    return file_->write(bytes, count);
}

std::uint32_t DebugLog::seek(std::uint32_t position) {
    const kx_guard hold(lock_);
    return file_->seek(position);
}

std::uint32_t DebugLog::size() const {
    const kx_guard hold(lock_);
    return file_->size();
}

std::uint32_t DebugLog::tell() const {
    const kx_guard hold(lock_);
    return file_->tell();
}

}  // namespace vorrim

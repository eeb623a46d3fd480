#pragma once
// Files on disk: opened as streams, or replaced as a whole.
//
// Positions are 32 bits wide; of a longer file the first 4 GiB can be reached.
// Threads: none inside; streams are their owner's.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/file/kx_file.h"
#include "base/file/kx_open_mode.h"

namespace vorrim {

// Null when the file cannot be opened. Mode KX_FILE_READ alone wants an existing file; any other
// makes a missing one, and KX_FILE_CREATE empties an existing one. Folders cannot be opened.
[[nodiscard]] std::unique_ptr<kx_file> kx_open_file(const std::string& name, std::uint32_t mode);

// Replaces the content of a file, or makes it, so that a reader, a crash or a full disk finds
// either the old content or the new one, whole: `fill` writes to memory, the bytes go to "NAME.new"
// and to the disk, and that file takes the place of NAME. Through a symbolic link its target is
// replaced.
//
// False, and the file as it was, when `fill` says false or the system refuses a step. What `fill`
// raises leaves as it was raised, and nothing has been touched.
[[nodiscard]] bool replace_file(const std::string& name, const std::function<bool(kx_file&)>& fill);

class kx_disk_file final : public kx_file {
public:
    // Takes the descriptor over. `size` is what the file has now.
    kx_disk_file(int descriptor, std::uint32_t size) noexcept
        : descriptor_(descriptor), size_(size) {}
    ~kx_disk_file() override;
    kx_disk_file(const kx_disk_file&) = delete;
    kx_disk_file& operator=(const kx_disk_file&) = delete;

    // What the system refuses shows as a short count.
    std::int32_t read(void* buffer, std::uint32_t count) override;
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    std::uint32_t seek(std::uint32_t position) override;
    [[nodiscard]] std::uint32_t size() const override { return size_; }
    [[nodiscard]] std::uint32_t tell() const override { return position_; }
    // To the disk, as far as the system can tell.
    void flush() override;

    // One mapping at a time. Null for a second one, for no bytes, for bytes past the end of the
    // file unless `mode` has KX_FILE_WRITE, which makes them, and where the system refuses.
    [[nodiscard]] void* map(std::uint32_t offset, std::uint32_t length,
                            std::uint32_t mode) override;
    // False unless it is the open mapping.
    bool unmap(void* bytes, std::uint32_t length) override;

private:
    // Small reads are served from here: the decoders ask for single bytes.
    static constexpr std::uint32_t kReadAhead = 4096;

    std::uint32_t read_ahead(std::byte* to, std::uint32_t count);

    int descriptor_;
    std::uint32_t position_ = 0;
    std::uint32_t size_;

    std::array<std::byte, kReadAhead> ahead_;
    std::uint32_t ahead_begin_ = 0;  // position of the first byte in `ahead_`
    std::uint32_t ahead_size_ = 0;

    void* mapping_ = nullptr;  // where the mapped pages begin, at or before the bytes asked for
    std::size_t mapping_size_ = 0;
    void* mapped_ = nullptr;  // what `map` returned
};

}  // namespace vorrim

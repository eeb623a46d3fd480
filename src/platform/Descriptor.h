#pragma once
// A file descriptor that closes itself, and a write of many bytes to one.
//
// Threads: none inside.

#include <cerrno>
#include <cstddef>
#include <span>
#include <unistd.h>
#include <utility>

namespace vorrim {

class Descriptor final {
public:
    // Takes it over; a negative one is none.
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] bool open() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] int get() const noexcept { return descriptor_; }
    // False also for bytes that a file system reports lost only now.
    bool close() noexcept {
        const int descriptor = std::exchange(descriptor_, -1);
        return descriptor >= 0 && ::close(descriptor) == 0;
    }

private:
    int descriptor_;
};

// False when the system refuses to take them all; some may then be written.
[[nodiscard]] inline bool write_all(int descriptor, std::span<const std::byte> bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t moved = ::write(descriptor, bytes.data(), bytes.size());
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(moved));
    }
    return true;
}

}  // namespace vorrim

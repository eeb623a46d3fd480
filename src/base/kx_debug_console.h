#pragma once
// The stream on which the library talks to its developers: the console in console mode, else the
// debugger channel. And the process-wide diagnostic stream, which points at it, or elsewhere.
//
// Threads: writes of several threads come whole up to 1023 bytes. The diagnostic stream is set at
// start-up and only read afterwards.

#include <atomic>
#include <cstddef>

#include "base/file/kx_file.h"

namespace vorrim {

// Texts: what follows a NUL byte in one write is not shown. It has no size and no position.
class kx_debug_console final : public kx_file {
public:
    // A longer write goes out one byte at a time.
    static constexpr std::size_t kLongestPiece = 1023;

    void set_console_mode(bool on) noexcept { console_mode_.store(on); }

    // From standard input; waits for it.
    std::int32_t read(void* buffer, std::uint32_t count) override;
    // Always returns `count`.
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    std::uint32_t seek(std::uint32_t position) override;
    [[nodiscard]] std::uint32_t size() const override { return 0; }
    [[nodiscard]] std::uint32_t tell() const override { return 0; }

private:
    std::atomic<bool> console_mode_{false};
};

// The one of the process.
[[nodiscard]] kx_debug_console& debug_console() noexcept;

// Where warnings and alerts are printed: standard output until another is set.
[[nodiscard]] kx_file& kx_debug_stream() noexcept;
// Null sets standard output again. The caller keeps the stream alive until another is set.
void kx_set_debug_stream(kx_file* stream) noexcept;

}  // namespace vorrim

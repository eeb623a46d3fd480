#pragma once
// A stream over memory: every encoder writes into one, every decoder reads from one.
//
//     [ bytes ...................... | ........ room ........ ]
//              ^ position            ^ size                   ^ capacity
//
// It is made in one of three ways:
//
//     kx_memory_file(growth)      owns its bytes; empty, grows in steps of `growth` bytes
//     kx_memory_file(span)        over the caller's bytes, all of them content; never grows
//     kx_memory_file::reading(s)  over the caller's bytes, for reading only: writing moves 0 bytes
//
// Ownership   A stream moves and never copies. Borrowed bytes must outlive the stream, and so must
//             whoever owns the bytes behind a span that it returns; writing may move owned bytes.
// Errors      `take` raises "readAll error"; growth that memory does not allow, "out of memory".
// Threads     None inside.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

#include "base/file/kx_file.h"

namespace vorrim {

class kx_memory_file final : public kx_file {
public:
    explicit kx_memory_file(std::uint32_t growth) noexcept : growth_(growth), kind_(Kind::owning) {}
    // A longer span than 4 GiB is cut, as are all counts here.
    explicit kx_memory_file(std::span<std::byte> bytes) noexcept;
    [[nodiscard]] static kx_memory_file reading(std::span<const std::byte> bytes) noexcept;

    ~kx_memory_file() override;
    kx_memory_file(kx_memory_file&& other) noexcept { swap(other); }
    // Attaches this stream to what the other had; its own bytes are freed if it owned any.
    kx_memory_file& operator=(kx_memory_file&& other) noexcept {
        kx_memory_file taken(std::move(other));
        swap(taken);
        return *this;
    }
    kx_memory_file(const kx_memory_file&) = delete;
    kx_memory_file& operator=(const kx_memory_file&) = delete;

    // Cut to what is left up to the size.
    std::int32_t read(void* buffer, std::uint32_t count) override;
    // Grows as needed, or is cut to the room where the stream does not grow.
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    // Past the capacity it grows, or goes to the capacity where it does not. Content skipped over
    // is zero. The size rises to the position.
    std::uint32_t seek(std::uint32_t position) override;
    [[nodiscard]] std::uint32_t size() const override { return size_; }
    [[nodiscard]] std::uint32_t tell() const override { return position_; }
    // Null when the range is not within the capacity, or to be written in bytes only for reading.
    [[nodiscard]] void* map(std::uint32_t offset, std::uint32_t length,
                            std::uint32_t mode) override;
    bool unmap(void* bytes, std::uint32_t length) override;

    // Another stream over the same bytes, at the same position, its size this one's size. It does
    // not own them and does not grow: one growing stream to a buffer.
    [[nodiscard]] kx_memory_file clone() const noexcept;

    // What has been written, what lies before the position, what lies between the two.
    [[nodiscard]] std::span<const std::byte> contents() const noexcept { return {data_, size_}; }
    [[nodiscard]] std::span<const std::byte> written() const noexcept { return {data_, position_}; }
    [[nodiscard]] std::uint32_t remaining() const noexcept { return size_ - position_; }
    // The bytes a reader sees next, without moving.
    [[nodiscard]] std::span<const std::byte> rest() const noexcept {
        return {data_ + position_, remaining()};
    }

    // The next `count` bytes in place, and moves past them. Valid until the stream is written to or
    // attached anew.
    [[nodiscard]] std::span<const std::byte> take(std::uint32_t count) {
        if (count > remaining()) [[unlikely]]
            raise_short("readAll error");
        return {advance(count), count};
    }

    // Empties the stream and keeps its buffer.
    void clear() noexcept { position_ = size_ = 0; }
    // In the steps of the growth; the buffer underneath may be larger.
    [[nodiscard]] std::uint32_t capacity() const noexcept { return capacity_; }
    // For patching what has been written, up to the size. Not for a stream only for reading.
    [[nodiscard]] std::byte* data() noexcept { return data_; }

    // The primitives stand on the three below.
    // Moves past `count` bytes that the caller knows to be there; returns where they begin.
    const std::byte* advance(std::uint32_t count) noexcept {
        const std::byte* const from = data_ + position_;
        position_ += count;
        return from;
    }
    // Where the next `count` bytes may be written, and moves past them; null when they do not fit
    // in a stream that does not grow.
    std::byte* extend(std::uint32_t count) {
        if (count > room()) [[unlikely]] {
            if (!grow(count)) return nullptr;
        }
        std::byte* const to = data_ + position_;
        position_ += count;
        if (position_ > size_) size_ = position_;
        return to;
    }
    // Moves to the end, as a reader does that finds too little, and raises `text`.
    [[noreturn]] void raise_short(const char* text);

private:
    enum class Kind : std::uint8_t { owning, fixed, reading };

    kx_memory_file(const std::byte* data, std::uint32_t size, Kind kind) noexcept;

    [[nodiscard]] std::uint32_t room() const noexcept {
        return kind_ == Kind::reading ? 0 : capacity_ - position_;
    }
    // Makes room for `count` bytes at the position. False, and nothing changed, where it cannot.
    bool grow(std::uint64_t count);
    void swap(kx_memory_file& other) noexcept;

    std::byte* data_ = nullptr;
    std::uint32_t capacity_ = 0;
    std::uint32_t position_ = 0;
    std::uint32_t growth_ = 0;
    std::uint32_t size_ = 0;
    std::uint32_t allocated_ = 0;  // at least the capacity; 0 for borrowed bytes
    Kind kind_ = Kind::fixed;
};

}  // namespace vorrim

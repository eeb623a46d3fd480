#pragma once
// One framed message, on its way in or on its way out.
//
//     [ E3 | length u32 | opcode | body ............ ]
//       header: 5 bytes   payload: length bytes, 1 to kMaxPayload
//                         └─ body(): written by builders, read by decoders
//
// A builder writes the opcode and the fields into the body, calls finish() unless the estimate was
// exact, and hands the packet to a connection. Receiving, steps take what the stream has until one
// says done; the body then stands at the opcode.
//
// Ownership   A packet owns its bytes. It moves and never copies unasked (clone).
// Threads     None inside: a packet belongs to one thread at a time. A finished one may be shared.
// Errors      Moving bytes never raises for what the peer does: a step returns Progress. Writing to
//             the body and reading from it raise kx_err as every stream does.
// Limits      An announced length of 0 or above the maximum fails before anything is allocated;
//             below it memory grows with the bytes that came.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/file/kx_file.h"
#include "base/file/kx_memory_file.h"

namespace vorrim {

// pending: call again when the socket is ready. After failed the connection should close.
enum class Progress : std::uint8_t { pending = 0, done = 1, failed = 2 };

inline constexpr std::uint32_t kMaxPayload = 16U * 1024 * 1024;
inline constexpr std::uint32_t kHeaderSize = 5;  // marker and length

class Packet final {
public:
    // What the bytes at the front of a stream amount to, for readers that need no packet.
    struct Frame {
        enum class State : std::uint8_t { incomplete, bad, complete };
        State state = State::incomplete;
        std::uint32_t payload_size = 0;  // known, and within the limits, once the header is there
    };

    // Receives.
    Packet() noexcept;
    // Sends. The payload has the estimated length until finish() says otherwise; what the builder
    // leaves of it unwritten goes out as zero bytes.
    explicit Packet(std::uint32_t payload_estimate);

    Packet(Packet&&) noexcept = default;
    Packet& operator=(Packet&&) noexcept = default;
    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;

    [[nodiscard]] kx_memory_file& body() noexcept { return body_; }

    // The payload ends where the body stands.
    void finish() noexcept;

    // A packet to send with the same payload, nothing of it sent yet.
    [[nodiscard]] Packet clone() const;

    // Back to empty, ready to receive the next message; the memory is released.
    void reset() noexcept;

    // Takes what the stream has, never blocks. `count` is set to the bytes taken by this step,
    // header included, also when the step fails.
    [[nodiscard]] Progress receive(kx_file& from, std::uint32_t& count);

    // Gives what the stream takes, never blocks. `count` as above. A finished packet may be shared
    // only by senders that do not use this operation: it counts what has gone out.
    [[nodiscard]] Progress send(kx_file& to, std::uint32_t& count);

    // Judges the bytes from a frame's start on: incomplete until the whole frame is there, bad
    // (from the fifth byte on) when the marker or the length is wrong.
    [[nodiscard]] static Frame frame(std::span<const std::byte> bytes,
                                     std::uint32_t max_payload = kMaxPayload) noexcept;

    // Whether a header, whole or in part, is bad for its length alone.
    [[nodiscard]] static bool is_too_long(std::span<const std::byte> header,
                                          std::uint32_t max_payload) noexcept;

    // Longest payload that receive() accepts; never more than kMaxPayload.
    void set_max_payload(std::uint32_t limit) noexcept {
        max_payload_ = std::min(limit, kMaxPayload);
    }

    [[nodiscard]] std::uint32_t payload_size() const noexcept { return size_; }
    [[nodiscard]] std::span<const std::byte, kHeaderSize> header() const noexcept {
        return header_;
    }
    // What goes out, or what has come in completely.
    [[nodiscard]] std::span<const std::byte> payload() const noexcept {
        const std::span<const std::byte> written = body_.contents();
        return written.first(std::min<std::size_t>(size_, written.size()));
    }
    // No byte received or sent since construction or reset.
    [[nodiscard]] bool empty() const noexcept { return header_progress_ == 0; }

private:
    void set_size(std::uint32_t size) noexcept;
    [[nodiscard]] Progress receive_header(kx_file& from, std::uint32_t& count);
    [[nodiscard]] Progress receive_payload(kx_file& from, std::uint32_t& count);

    std::array<std::byte, kHeaderSize> header_{};
    std::uint8_t header_progress_ = 0;
    std::uint32_t size_ = 0;
    std::uint32_t body_progress_ = 0;
    std::uint32_t max_payload_ = kMaxPayload;
    kx_memory_file body_;
};

}  // namespace vorrim

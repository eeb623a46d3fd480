#include "meta/Packet.h"

#include <algorithm>

#include "base/file/primitives.h"
#include "meta/Opcodes.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kGrowthStep = 1024;   // of a body that outgrows its estimate
constexpr std::uint32_t kFirstWindow = 4096;  // memory given to a payload before any of it came
constexpr std::uint32_t kLargestTransfer = 0x0FFFFFFF;
constexpr std::size_t kLengthAt = 1;  // in the header

// The direction of a transfer does not matter to how its result is read: -1 is an error, 0 nothing.
struct Moved {
    Progress progress;
    std::uint32_t count;
};

Moved moved(std::int32_t result) noexcept {
    if (result < 0) return {Progress::failed, 0};
    return {Progress::pending, static_cast<std::uint32_t>(result)};
}

}  // namespace

Packet::Packet() noexcept : body_(kGrowthStep) {}

Packet::Packet(std::uint32_t payload_estimate) : body_(kGrowthStep) {
    header_[0] = std::byte{kPacketMarker};
    set_size(payload_estimate);
    body_.seek(payload_estimate);
    body_.seek(0);
}

void Packet::set_size(std::uint32_t size) noexcept {
    size_ = size;
    store_32(&header_[kLengthAt], size);
}

void Packet::finish() noexcept {
    set_size(body_.tell());
}

Packet Packet::clone() const {
    Packet copy(size_);
    write_bytes(copy.body_, payload());
    return copy;
}

void Packet::reset() noexcept {
    header_ = {};
    header_progress_ = 0;
    size_ = 0;
    body_progress_ = 0;
    body_ = kx_memory_file(kGrowthStep);
}

Packet::Frame Packet::frame(std::span<const std::byte> bytes, std::uint32_t max_payload) noexcept {
    if (bytes.size() < kHeaderSize) return {};
    const std::uint32_t length = load_32(&bytes[kLengthAt]);
    if (bytes[0] != std::byte{kPacketMarker} || length == 0 || length > max_payload) {
        return {Frame::State::bad, 0};
    }
    const bool whole = bytes.size() - kHeaderSize >= length;
    return {whole ? Frame::State::complete : Frame::State::incomplete, length};
}

bool Packet::is_too_long(std::span<const std::byte> header, std::uint32_t max_payload) noexcept {
    return header.size() >= kHeaderSize && header[0] == std::byte{kPacketMarker} &&
           load_32(&header[kLengthAt]) > max_payload;
}

Progress Packet::receive(kx_file& from, std::uint32_t& count) {
    count = 0;
    if (header_progress_ < kHeaderSize) {
        const Progress header = receive_header(from, count);
        if (header != Progress::done) return header;
    }
    return receive_payload(from, count);
}

Progress Packet::receive_header(kx_file& from, std::uint32_t& count) {
    const auto [progress, got] =
        moved(from.read(&header_[header_progress_], kHeaderSize - header_progress_));
    if (progress == Progress::failed) return progress;
    count += got;
    header_progress_ = static_cast<std::uint8_t>(header_progress_ + got);
    if (header_progress_ < kHeaderSize) return Progress::pending;

    const Frame announced = frame(header_, max_payload_);
    if (announced.state == Frame::State::bad) return Progress::failed;
    size_ = announced.payload_size;
    return Progress::done;
}

// The window is the part of the payload that there is memory for. Only a window that has been
// filled grows, to twice its size; a peer that announces much and sends little holds little.
Progress Packet::receive_payload(kx_file& from, std::uint32_t& count) {
    if (size_ == 0) return Progress::failed;  // a step after one that failed
    while (body_progress_ < size_) {
        std::uint32_t window = body_.size();
        if (body_progress_ == window) {
            window = std::min(size_, window + std::max(kFirstWindow, window));
            body_.seek(window);
        }
        const std::uint32_t chunk = std::min(window - body_progress_, kLargestTransfer);
        const auto [progress, got] = moved(from.read(body_.data() + body_progress_, chunk));
        if (progress == Progress::failed) return progress;
        count += got;
        body_progress_ += got;
        if (got < chunk) return Progress::pending;
    }
    body_.seek(0);
    return Progress::done;
}

Progress Packet::send(kx_file& to, std::uint32_t& count) {
    count = 0;
    if (header_progress_ < kHeaderSize) {
        const auto [progress, gone] =
            moved(to.write(&header_[header_progress_], kHeaderSize - header_progress_));
        if (progress == Progress::failed) return progress;
        count = gone;
        header_progress_ = static_cast<std::uint8_t>(header_progress_ + gone);
        if (header_progress_ < kHeaderSize) return Progress::pending;
    }
    const std::span<const std::byte> rest = payload().subspan(body_progress_);
    if (rest.empty()) return Progress::pending;
    const auto size =
        static_cast<std::uint32_t>(std::min<std::size_t>(rest.size(), kLargestTransfer));
    const auto [progress, gone] = moved(to.write(rest.data(), size));
    if (progress == Progress::failed) return progress;
    count += gone;
    body_progress_ += gone;
    return body_progress_ == size_ ? Progress::done : Progress::pending;
}

}  // namespace vorrim

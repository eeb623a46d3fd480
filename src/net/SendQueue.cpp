#include "net/SendQueue.h"

#include <array>
#include <span>
#include <utility>

namespace vorrim {

namespace {

constexpr std::size_t kPieceBytes = 16 * 1024;  // own bytes gathered in one piece
constexpr std::size_t kPiecesPerWrite = 64;     // what one gathered write takes
constexpr std::size_t kSpareBuffers = 32;       // kept by a thread for its next pieces

// Buffers that a thread has sent and will soon need again, so that a reply allocates nothing, and
// giving one back even less: it happens where memory may have run out.
thread_local std::array<std::vector<std::byte>, kSpareBuffers> spare_buffers;
thread_local std::size_t spare_count = 0;

std::vector<std::byte> take_buffer() {
    if (spare_count > 0) return std::move(spare_buffers[--spare_count]);
    std::vector<std::byte> buffer;
    buffer.reserve(kPieceBytes);
    return buffer;
}

void give_back(std::vector<std::byte>&& buffer) noexcept {
    if (buffer.capacity() != kPieceBytes || spare_count >= kSpareBuffers) return;
    buffer.clear();
    spare_buffers[spare_count++] = std::move(buffer);
}

void append_bytes(std::vector<std::byte>& to, std::span<const std::byte> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

iovec piece_of(std::span<const std::byte> bytes) noexcept {
    return {const_cast<std::byte*>(bytes.data()), bytes.size()};
}

}  // namespace

std::size_t SendQueue::Piece::size() const noexcept {
    return shared ? kHeaderSize + shared->payload().size() : bytes.size();
}

std::size_t SendQueue::append(const Packet& packet) {
    const std::size_t size = kHeaderSize + packet.payload().size();
    const kx_guard hold(lock_);
    if (pieces_.empty() || pieces_.back().shared ||
        pieces_.back().bytes.capacity() - pieces_.back().bytes.size() < size) {
        Piece& fresh = pieces_.emplace_back();
        if (size <= kPieceBytes) {
            fresh.bytes = take_buffer();
        } else {
            fresh.bytes.reserve(size);
        }
    }
    std::vector<std::byte>& tail = pieces_.back().bytes;
    append_bytes(tail, packet.header());
    append_bytes(tail, packet.payload());
    return waiting_ += size;
}

std::size_t SendQueue::append(std::shared_ptr<const Packet> packet) {
    const kx_guard hold(lock_);
    waiting_ += kHeaderSize + packet->payload().size();
    pieces_.emplace_back().shared = std::move(packet);
    return waiting_;
}

void SendQueue::release_front() {
    Piece& front = pieces_[front_];
    if (!front.shared) give_back(std::move(front.bytes));
    front.shared.reset();
    offset_ = 0;
    // A queue that is never quite empty must not keep what it has sent.
    if (++front_ * 2 >= pieces_.size()) {
        pieces_.erase(pieces_.begin(), pieces_.begin() + static_cast<std::ptrdiff_t>(front_));
        front_ = 0;
    }
}

SendQueue::Flush SendQueue::flush(kx_net_socket& socket, std::uint32_t& count) {
    const kx_guard hold(lock_);
    while (!pieces_.empty()) {
        std::array<iovec, kPiecesPerWrite> vectors;
        std::size_t used = 0;
        std::size_t offered = 0;
        std::size_t skip = offset_;
        const auto offer = [&](std::span<const std::byte> bytes) {
            if (skip >= bytes.size()) {
                skip -= bytes.size();
                return;
            }
            vectors[used++] = piece_of(bytes.subspan(skip));
            offered += bytes.size() - skip;
            skip = 0;
        };
        for (std::size_t i = front_; i < pieces_.size() && used + 2 <= vectors.size(); ++i) {
            if (pieces_[i].shared) {
                offer(pieces_[i].shared->header());
                offer(pieces_[i].shared->payload());
            } else {
                offer(pieces_[i].bytes);
            }
        }

        const std::int32_t written = socket.write_gathered(std::span(vectors).first(used));
        if (written < 0) return Flush::failed;
        auto left = static_cast<std::size_t>(written);
        const bool all = left == offered;
        count += static_cast<std::uint32_t>(left);
        waiting_ -= left;
        while (left > 0) {
            const std::size_t rest = pieces_[front_].size() - offset_;
            if (left < rest) {
                offset_ += left;
                break;
            }
            left -= rest;
            release_front();
        }
        if (!all) return Flush::blocked;
    }
    return Flush::drained;
}

std::size_t SendQueue::waiting() const {
    const kx_guard hold(lock_);
    return waiting_;
}

}  // namespace vorrim

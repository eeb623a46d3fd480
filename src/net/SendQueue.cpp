#include "net/SendQueue.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace vorrim {

namespace {

constexpr std::size_t kPieceBytes = 16 * 1024;  // own bytes gathered in one piece
constexpr std::size_t kLargestCopy = 256;       // a packet of so many bytes is not worth sharing
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

void SendQueue::free_spare_memory() noexcept {
    while (spare_count > 0)
        std::vector<std::byte>().swap(spare_buffers[--spare_count]);
}

// Our own bytes at the end of the queue, with room for `size` more. The first piece is a whole
// buffer, which a peer that reads gives back at once; a piece further behind grows with what it
// holds, or whoever reads nothing would be kept a buffer for each line between two shared packets.
std::vector<std::byte>& SendQueue::tail(std::size_t size) {
    if (!pieces_.empty() && !pieces_.back().shared) {
        std::vector<std::byte>& bytes = pieces_.back().bytes;
        const std::size_t needed = bytes.size() + size;
        if (needed <= bytes.capacity()) return bytes;
        if (needed <= kPieceBytes) {
            bytes.reserve(std::min(kPieceBytes, std::max(needed, 2 * bytes.capacity())));
            return bytes;
        }
    }
    std::vector<std::byte> fresh;
    if (pieces_.empty() && size <= kPieceBytes) {
        fresh = take_buffer();
    } else {
        fresh.reserve(size);
    }
    pieces_.emplace_back().bytes = std::move(fresh);  // with memory for it, or not at all
    return pieces_.back().bytes;
}

std::size_t SendQueue::add_waiting(std::size_t size) {
    return waiting_.fetch_add(size, std::memory_order_relaxed) + size;
}

std::size_t SendQueue::append(const Packet& packet) {
    const std::size_t size = kHeaderSize + packet.payload().size();
    const kx_guard hold(lock_);
    std::vector<std::byte>& to = tail(size);
    append_bytes(to, packet.header());
    append_bytes(to, packet.payload());
    return add_waiting(size);
}

std::size_t SendQueue::append(std::span<const std::byte> packets) {
    const kx_guard hold(lock_);
    append_bytes(tail(packets.size()), packets);
    return add_waiting(packets.size());
}

std::size_t SendQueue::append(std::shared_ptr<const Packet> packet) {
    const std::size_t size = kHeaderSize + packet->payload().size();
    if (size <= kLargestCopy) return append(*packet);
    const kx_guard hold(lock_);
    pieces_.emplace_back().shared = std::move(packet);
    return add_waiting(size);
}

void SendQueue::release_front() {
    Piece& front = pieces_[front_];
    if (!front.shared) give_back(std::move(front.bytes));
    front.shared.reset();
    offset_ = 0;
    ++front_;
    // Also a queue that is never empty forgets what it has sent.
    if (front_ < pieces_.size() && (front_ < kPiecesPerWrite || front_ < pieces_.size() / 2))
        return;
    pieces_.erase(pieces_.begin(), pieces_.begin() + static_cast<std::ptrdiff_t>(front_));
    front_ = 0;
    if (pieces_.empty() && pieces_.capacity() > kPiecesPerWrite) pieces_.shrink_to_fit();
}

void SendQueue::release(std::size_t written) {
    waiting_.fetch_sub(written, std::memory_order_relaxed);
    while (written > 0) {
        const std::size_t rest = pieces_[front_].size() - offset_;
        if (written < rest) {
            offset_ += written;
            break;
        }
        written -= rest;
        release_front();
    }
}

SendQueue::Flush SendQueue::flush(kx_net_socket& socket, std::span<const std::byte> behind,
                                  std::uint32_t& count) {
    // Whoever appends from here on gives the connection another turn.
    if (behind.empty() && waiting() == 0) return Flush::drained;
    const kx_guard hold(lock_);
    if (!behind.empty()) {
        const bool alone = pieces_.empty();
        if (alone) {
            const iovec piece = piece_of(behind);
            const std::int32_t written = socket.write_gathered(std::span(&piece, 1));
            if (written < 0) return Flush::failed;
            count += static_cast<std::uint32_t>(written);
            behind = behind.subspan(static_cast<std::size_t>(written));
            if (behind.empty()) return Flush::drained;
        }
        append_bytes(tail(behind.size()), behind);
        add_waiting(behind.size());
        if (alone) return Flush::blocked;
    }
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
        count += static_cast<std::uint32_t>(written);
        release(static_cast<std::size_t>(written));
        if (static_cast<std::size_t>(written) != offered) return Flush::blocked;
    }
    return Flush::drained;
}

}  // namespace vorrim

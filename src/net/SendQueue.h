#pragma once
// What a connection still has to send, in order.
//
//     append ──►  [ bytes of many small packets ][ a shared packet ][ bytes ... ]  ──►  flush
//                   ^ offset: sent so far                              one gathered write
//
// Small packets are copied behind one another, so that the replies of a turn leave as one piece; a
// larger packet for many receivers is shared by all their queues and never copied.
//
// Threads: any thread may append; the connection's worker flushes. The lock is the last in the
// server's lock order.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "meta/Packet.h"
#include "net/kx_net_socket.h"

namespace vorrim {

class SendQueue final {
public:
    enum class Flush {
        drained,  // nothing is left
        blocked,  // the socket takes no more now
        failed,   // the connection is dead
    };

    SendQueue() = default;
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;

    // Each returns the bytes that now wait.
    std::size_t append(const Packet& packet);
    std::size_t append(std::shared_ptr<const Packet> packet);
    // Whole packets, one behind the other.
    std::size_t append(std::span<const std::byte> packets);

    // Writes until the queue is empty or the socket is full; adds the bytes written to `count`.
    // `behind` are whole packets that follow the queue: what the socket does not take of them is
    // queued, and nothing of them is copied when it takes all.
    [[nodiscard]] Flush flush(kx_net_socket& socket, std::span<const std::byte> behind,
                              std::uint32_t& count);

    // Any thread; what others append meanwhile may be missing.
    [[nodiscard]] std::size_t waiting() const noexcept {
        return waiting_.load(std::memory_order_relaxed);
    }

    // Frees the buffers that the calling thread has kept for its next pieces.
    static void free_spare_memory() noexcept;

private:
    // One piece of the queue: either bytes of our own or a shared packet.
    struct Piece {
        std::vector<std::byte> bytes;
        std::shared_ptr<const Packet> shared;

        [[nodiscard]] std::size_t size() const noexcept;
    };

    [[nodiscard]] std::vector<std::byte>& tail(std::size_t size) REQUIRES(lock_);
    std::size_t add_waiting(std::size_t size) REQUIRES(lock_);
    void release_front() REQUIRES(lock_);
    void release(std::size_t written) REQUIRES(lock_);

    mutable kx_critical_section lock_;
    std::vector<Piece> pieces_ GUARDED_BY(lock_);
    std::size_t front_ GUARDED_BY(lock_) = 0;   // the first piece not yet sent whole
    std::size_t offset_ GUARDED_BY(lock_) = 0;  // bytes of it that are gone
    std::atomic<std::size_t> waiting_{0};       // written under the lock
};

}  // namespace vorrim

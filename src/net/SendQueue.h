#pragma once
// What a connection still has to send, in order.
//
//     append ──►  [ bytes of many small packets ][ a shared packet ][ bytes ... ]  ──►  flush
//                   ^ offset: sent so far                              one gathered write
//
// Small packets are copied behind one another, so that the replies of a turn leave as one piece; a
// packet for many receivers is shared by all their queues and never copied.
//
// Threads: any thread may append; the connection's worker flushes. The lock is the last in the
// server's lock order.

#include <cstddef>
#include <cstdint>
#include <memory>
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

    // Both return the bytes that now wait.
    std::size_t append(const Packet& packet);
    std::size_t append(std::shared_ptr<const Packet> packet);

    // Writes until the queue is empty or the socket is full; adds the bytes written to `count`.
    [[nodiscard]] Flush flush(kx_net_socket& socket, std::uint32_t& count);

    [[nodiscard]] std::size_t waiting() const;

private:
    // One piece of the queue: either bytes of our own or a shared packet.
    struct Piece {
        std::vector<std::byte> bytes;
        std::shared_ptr<const Packet> shared;

        [[nodiscard]] std::size_t size() const noexcept;
    };

    void release_front() REQUIRES(lock_);

    mutable kx_critical_section lock_;
    std::vector<Piece> pieces_ GUARDED_BY(lock_);
    std::size_t front_ GUARDED_BY(lock_) = 0;   // the first piece not yet sent whole
    std::size_t offset_ GUARDED_BY(lock_) = 0;  // bytes of it that are gone
    std::size_t waiting_ GUARDED_BY(lock_) = 0;
};

}  // namespace vorrim

#pragma once
// A framed TCP connection: packets in, packets out.
//
//     bytes ──► receive ──► Packet ──► handle_message(opcode, payload)
//                                            │ send(reply)
//     socket ◄── one gathered write ◄── send queue
//
// A turn takes what has arrived, up to a budget of messages, and hands every complete packet to the
// handler, in order; the replies of the turn leave together. What is left over waits for the next
// turn, so that one busy peer never starves its neighbours. Nothing more is taken from a peer that
// does not read its replies.
//
// Threads: `send`, `close` and the counters may be used by any thread that keeps the connection
// from being destroyed (it holds the lock of a table that the connection is in). Everything else
// belongs to its worker.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "meta/Packet.h"
#include "net/SendQueue.h"
#include "net/Task.h"

namespace vorrim {

class Connection : public Task {
public:
    Connection(std::unique_ptr<kx_net_socket> socket, socketPool& pool);

    [[nodiscard]] Turn doTask(socketPool& pool) override;

    // Any thread. The packet is copied into the send queue.
    void send(const Packet& packet);
    // Any thread. The packet is shared with the queues of its other receivers.
    void send(std::shared_ptr<const Packet> packet);

    // The identifier that diagnostics name; 0 unless the derived class has one.
    [[nodiscard]] std::uint32_t identifier() const noexcept { return identifier_.load(); }
    [[nodiscard]] std::uint32_t bytes_sent() const noexcept { return sent_.load(); }
    [[nodiscard]] std::uint32_t bytes_received() const noexcept { return received_.load(); }

protected:
    enum class Verdict { keep, close };

    // One complete packet. The payload stream stands behind the opcode and ends with the packet; it
    // is valid during the call. A kx_err that escapes closes the connection.
    [[nodiscard]] virtual Verdict handle_message(std::uint8_t opcode, kx_memory_file& payload);

    // Between the two no further message is handled, however many have arrived.
    void pause() noexcept { paused_ = true; }
    void resume();

    void set_identifier(std::uint32_t identifier) noexcept { identifier_.store(identifier); }

private:
    enum class Step { go_on, stop, failed };

    [[nodiscard]] Step take_backlog();
    [[nodiscard]] Step take_socket();
    [[nodiscard]] Step handle_bytes(std::span<const std::byte>& bytes);
    [[nodiscard]] Step handle_packet(std::span<const std::byte> payload);
    [[nodiscard]] bool may_handle() const;
    [[nodiscard]] bool flush();
    void after_append(std::size_t waiting);

    Packet incoming_;                 // a packet that came only in part
    std::vector<std::byte> backlog_;  // bytes received and not yet looked at
    std::size_t backlog_begin_ = 0;
    unsigned budget_ = 0;  // messages left in this turn
    bool paused_ = false;
    bool in_turn_ = false;
    bool blocked_ = false;  // waits for room to write

    SendQueue queue_;
    std::atomic<std::uint32_t> identifier_{0};
    std::atomic<std::uint32_t> sent_{0};
    std::atomic<std::uint32_t> received_{0};
};

}  // namespace vorrim

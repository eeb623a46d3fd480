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

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"
#include "net/LimitLog.h"
#include "net/RequestBuckets.h"
#include "net/SendQueue.h"
#include "net/Task.h"

namespace vorrim {

class Connection : public Task {
public:
    Connection(std::unique_ptr<kx_net_socket> socket, socketPool& pool);
    ~Connection() override;

    [[nodiscard]] Turn doTask(socketPool& pool) override;
    [[nodiscard]] Turn onDeadline() final;

    // The address at the other end, in identifier form; 0 when it was gone before it was accepted.
    // Any thread.
    [[nodiscard]] std::uint32_t peer() const noexcept { return peer_; }
    // The door has let it in as one of its address's connections: it leaves the gate at its end.
    void hasPassedGate() noexcept { passed_gate_ = true; }

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

    // Packets at the front of `bytes` that are better answered together than one by one: handles at
    // most `most` of them, exactly as handle_message would, and moves `bytes` behind them. Returns
    // how many.
    [[nodiscard]] virtual std::size_t handle_run(std::span<const std::byte>& /*bytes*/,
                                                 std::size_t /*most*/) {
        return 0;
    }

    // Between the two no further message is handled, however many have arrived.
    void pause() noexcept { paused_ = true; }
    void resume();

    // The answer to the message being handled takes more than one turn: carry_on is called, for a
    // step of bounded length each time, until it says that it is done. No further message is
    // handled meanwhile.
    void take_turns();
    [[nodiscard]] virtual bool carry_on() { return true; }

    // The message being handled counts as several more in the budget of the turn.
    void weigh(unsigned messages) noexcept { budget_ -= std::min(budget_, messages); }

    // A deadline of the derived class's own; kNoDeadline takes it back. Own worker only.
    void setAlarm(TimePoint moment);
    // It has passed.
    [[nodiscard]] virtual Turn onAlarm() { return Turn::wait; }

    // The peer is not exempt from limits.
    [[nodiscard]] bool limited() const noexcept { return limited_; }
    // Packets may have their full length from now on.
    void allowLongPackets() noexcept { max_payload_ = kMaxPayload; }
    // Counts a request. Who asks too fast is not read for a while after it; who goes on like that
    // is closed.
    [[nodiscard]] Verdict spend(Request kind);

    // What is sent during its life answers the peer, outside of a turn: it counts as a reply.
    class [[nodiscard]] Answering {
    public:
        explicit Answering(Connection& connection) noexcept
            : connection_(connection), before_(connection.in_turn_) {
            connection_.begin_reply();
        }
        ~Answering() { connection_.in_turn_ = before_; }
        Answering(const Answering&) = delete;
        Answering& operator=(const Answering&) = delete;

    private:
        Connection& connection_;
        const bool before_;
    };

    // A reply to the packet being handled, written in place behind those before it; nothing else
    // may be sent while it is open. One that is not finished was never there. It leaves at the end
    // of the turn, behind what other threads have sent until then: only for what has no place among
    // that, such as what a table held when it was asked.
    class [[nodiscard]] Reply {
    public:
        Reply(Connection& connection, Opcode opcode);
        ~Reply();
        Reply(const Reply&) = delete;
        Reply& operator=(const Reply&) = delete;

        // Stands behind the opcode at first.
        [[nodiscard]] kx_memory_file& body() noexcept { return out_; }
        // The reply ends where the body stands.
        void finish();

    private:
        Connection& connection_;
        kx_memory_file& out_;
        const std::uint32_t begin_;
        bool finished_ = false;
    };

    void set_identifier(std::uint32_t identifier) noexcept { identifier_.store(identifier); }

private:
    enum class Step { go_on, stop, failed };

    // What only a connection needs that is out of the ordinary: its packets come in pieces or
    // faster than they are handled, it does not read, asks too fast, waits for an alarm. Most never
    // are.
    struct Aside {
        Packet incoming;                 // a packet that came only in part
        std::vector<std::byte> backlog;  // bytes received and not yet looked at
        std::size_t backlog_begin = 0;
        TimePoint packet_due = kNoDeadline;
        TimePoint send_due = kNoDeadline;
        TimePoint slow_until = kNoDeadline;
        TimePoint alarm = kNoDeadline;
        TimePoint slow_since = kNoDeadline;  // slowed down again and again since then
        TimePoint slowed_last = kNoDeadline;
    };

    [[nodiscard]] Step take_backlog();
    [[nodiscard]] Step take_socket();
    [[nodiscard]] Step handle_bytes(std::span<const std::byte>& bytes);
    [[nodiscard]] Step handle_packet(std::span<const std::byte> payload);
    [[nodiscard]] Step refuse_frame(std::span<const std::byte> header);
    [[nodiscard]] bool may_handle() const;
    [[nodiscard]] bool flush();
    void queue_replies();
    void note_reply(std::size_t size) noexcept;
    void after_append(std::size_t size, std::size_t waiting);
    void begin_reply() noexcept;
    void note_send(bool blocked, bool moved);
    void keep_time();
    void arm();
    void first_packet_came();
    [[nodiscard]] Aside& aside();
    [[nodiscard]] bool has_part() const noexcept { return aside_ && !aside_->incoming.empty(); }
    [[nodiscard]] bool has_backlog() const noexcept { return aside_ && !aside_->backlog.empty(); }
    void count(Limit limit);

    unsigned budget_ = 0;  // messages left in this turn
    bool paused_ = false;
    bool carries_on_ = false;
    bool in_turn_ = false;
    bool gathers_ = false;  // it may have replies in place
    bool blocked_ = false;  // waits for room to write
    bool slowed_ = false;   // asks too fast: nothing is read until `slow_until`
    bool spoken_ = false;   // a first packet has come
    bool limited_;
    bool passed_gate_ = false;
    std::uint32_t peer_;
    std::uint32_t max_payload_ = kMaxPayload;
    std::uint32_t reply_ = 0;  // bytes of the reply being made
    // The longest reply in the queue, or of those that were in it since it was last empty.
    std::atomic<std::uint32_t> longest_reply_{0};
    RequestBuckets buckets_;
    std::unique_ptr<Aside> aside_;

    SendQueue queue_;
    std::atomic<std::uint32_t> identifier_{0};
    std::atomic<std::uint32_t> sent_{0};
    std::atomic<std::uint32_t> received_{0};
};

}  // namespace vorrim

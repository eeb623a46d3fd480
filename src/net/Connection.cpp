#include "net/Connection.h"

#include <new>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "net/PoolShare.h"
#include "net/kx_socket_set.h"

namespace vorrim {

namespace {

// One turn: enough to share a system call among pipelined requests, small enough that the
// neighbours of a busy peer wait for microseconds.
constexpr unsigned kMessagesPerTurn = 64;
// With this much unsent, a peer's further requests wait until it has read its replies.
constexpr std::size_t kReplyBound = 1024 * 1024;
// Whoever does not read while others send to it is closed at this bound: a whole reply may be in
// flight beside a bound's worth of messages from others.
constexpr std::size_t kQueueBound = kReplyBound + kMaxPayload;

}  // namespace

Connection::Connection(std::unique_ptr<kx_net_socket> socket, socketPool& pool)
    : Task(std::move(socket), pool) {}

Connection::Verdict Connection::handle_message(std::uint8_t opcode, kx_memory_file& /*payload*/) {
    current_output().printVerbose("Unknown msg from Connection: %d\n", opcode);
    return Verdict::keep;
}

void Connection::send(const Packet& packet) {
    after_append(queue_.append(packet));
}

void Connection::send(std::shared_ptr<const Packet> packet) {
    after_append(queue_.append(std::move(packet)));
}

void Connection::after_append(std::size_t waiting) {
    if (waiting > kQueueBound) {
        close();
        return;
    }
    // In its own turn a connection sends at the end of the turn anyway.
    if (PoolShare::current() == share() && share() != nullptr && in_turn_) return;
    post();
}

void Connection::resume() {
    paused_ = false;
    post();
}

bool Connection::may_handle() const {
    return !paused_ && budget_ > 0 && queue_.waiting() <= kReplyBound;
}

bool Connection::flush() {
    std::uint32_t count = 0;
    const SendQueue::Flush result = queue_.flush(*socket(), count);
    sent_.fetch_add(count, std::memory_order_relaxed);
    if (result == SendQueue::Flush::failed) return false;
    const bool blocked = result == SendQueue::Flush::blocked;
    if (blocked) wantWritable();
    blocked_ = blocked;
    return true;
}

Turn Connection::doTask(socketPool& /*pool*/) {
    if (closing() || (flags_ & kException) != 0) return Turn::finished;
    flags_ &= ~static_cast<std::uint32_t>(kWritable);
    budget_ = kMessagesPerTurn;
    in_turn_ = true;
    Step step = Step::failed;
    try {
        step = take_backlog();
        if (step == Step::go_on) step = take_socket();
    } catch (const kx_err&) {
        current_output().printVerbose("Exception in Connection::doTask %d\n",
                                      static_cast<int>(identifier()));
        step = Step::failed;
    } catch (const std::bad_alloc&) {
        // A request too large for the memory that is left ends its own connection only.
        current_output().printVerbose("Exception in Connection::doTask %d\n",
                                      static_cast<int>(identifier()));
        step = Step::failed;
    }
    in_turn_ = false;
    // What was answered before the end came still goes out, as far as the socket takes it.
    const bool sent = flush();
    if (step == Step::failed || !sent || closing()) return Turn::finished;
    if (paused_ || blocked_) return Turn::wait;
    const bool more = backlog_begin_ < backlog_.size() || (flags_ & kReadable) != 0;
    return more ? Turn::again : Turn::wait;
}

Connection::Step Connection::take_backlog() {
    if (backlog_.empty()) return Step::go_on;
    std::span<const std::byte> rest = std::span(backlog_).subspan(backlog_begin_);
    const Step step = handle_bytes(rest);
    backlog_begin_ = backlog_.size() - rest.size();
    if (rest.empty()) {
        backlog_ = {};
        backlog_begin_ = 0;
    }
    return step;
}

Connection::Step Connection::take_socket() {
    const std::span<std::byte> scratch = PoolShare::current()->scratch();
    while ((flags_ & kReadable) != 0) {
        if (!may_handle()) return Step::stop;
        const std::int32_t count =
            socket()->read(scratch.data(), static_cast<std::uint32_t>(scratch.size()));
        if (count < 0) return Step::failed;
        received_.fetch_add(static_cast<std::uint32_t>(count), std::memory_order_relaxed);
        // Less than asked for means that the socket is empty, unless the peer's end follows.
        if (static_cast<std::size_t>(count) < scratch.size() && (flags_ & kPeerEnded) == 0) {
            flags_ &= ~static_cast<std::uint32_t>(kReadable);
        }
        std::span<const std::byte> rest = scratch.first(static_cast<std::size_t>(count));
        const Step step = handle_bytes(rest);
        if (!rest.empty()) backlog_.assign(rest.begin(), rest.end());
        if (step != Step::go_on) return step;
        // A receive that filled the scratch is a turn's worth of bytes.
        if (static_cast<std::size_t>(count) == scratch.size()) return Step::stop;
    }
    return Step::go_on;
}

// Takes packets from the front of `bytes` and leaves there what this turn may not handle any more.
Connection::Step Connection::handle_bytes(std::span<const std::byte>& bytes) {
    while (!bytes.empty()) {
        if (!may_handle()) return Step::stop;
        if (incoming_.empty()) {
            const Packet::Frame frame = Packet::frame(bytes);
            if (frame.state == Packet::Frame::State::bad) return Step::failed;
            if (frame.state == Packet::Frame::State::complete) {
                const auto payload = bytes.subspan(kHeaderSize, frame.payload_size);
                bytes = bytes.subspan(kHeaderSize + frame.payload_size);
                if (handle_packet(payload) == Step::failed) return Step::failed;
                continue;
            }
        }
        kx_memory_file stream = kx_memory_file::reading(bytes);
        std::uint32_t count = 0;
        Progress progress = Progress::pending;
        do {
            progress = incoming_.receive(stream, count);
        } while (progress == Progress::pending && count > 0);
        bytes = bytes.subspan(stream.tell());
        if (progress == Progress::failed) return Step::failed;
        if (progress == Progress::done) {
            const Step step = handle_packet(incoming_.payload());
            incoming_.reset();
            if (step == Step::failed) return Step::failed;
        }
    }
    return Step::go_on;
}

Connection::Step Connection::handle_packet(std::span<const std::byte> payload) {
    --budget_;
    kx_memory_file stream = kx_memory_file::reading(payload);
    const std::uint8_t opcode = read_8(stream);
    return handle_message(opcode, stream) == Verdict::keep ? Step::go_on : Step::failed;
}

}  // namespace vorrim

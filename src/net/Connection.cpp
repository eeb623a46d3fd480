#include "net/Connection.h"

#include <algorithm>
#include <new>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "net/PoolShare.h"
#include "net/kx_socket_set.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

// One turn: enough to share a system call among pipelined requests, small enough that the
// neighbours of a busy peer wait for microseconds.
constexpr unsigned kMessagesPerTurn = 64;
constexpr std::size_t kBytesOfAMessage = 256;  // a longer one counts as several
// Whoever does not read while others send to it is closed with this much unsent beside the longest
// reply in flight.
constexpr std::size_t kUnreadBound = 1024 * 1024;
// With this much unsent, a peer's further requests wait until it has read its replies: that leaves
// as much room for what others send.
constexpr std::size_t kReplyBound = kUnreadBound / 2;
// After this long without having been slowed down, somebody who asked too fast starts afresh.
constexpr std::chrono::seconds kForgiveness{60};

std::uint32_t peer_of(const kx_net_socket* socket) {
    const auto address = socket != nullptr ? socket->peer_address() : std::nullopt;
    return address ? address->value() : 0;
}

constexpr Limit limit_of(Request kind) noexcept {
    return static_cast<Limit>(static_cast<std::size_t>(Limit::logins) +
                              static_cast<std::size_t>(kind));
}
static_assert(limit_of(Request::callback) == Limit::callbacks);

}  // namespace

Connection::Connection(std::unique_ptr<kx_net_socket> socket, socketPool& pool)
    : Task(std::move(socket), pool), peer_(peer_of(Task::socket())) {
    const Limits& limits = pool.limits();
    limited_ = !limits.exempt.contains(peer_);
    if (!limited_) return;
    if (limits.strangers) max_payload_ = kMaxPayloadOfStrangers;
    buckets_.fill(limits.request_rates, pool.clock().now());
}

Connection::~Connection() {
    if (passed_gate_) pool().limits().addresses.leave(peer_);
}

Connection::Verdict Connection::handle_message(std::uint8_t opcode, kx_memory_file& /*payload*/) {
    current_output().printVerbose("Unknown msg from Connection: %d\n", opcode);
    return Verdict::keep;
}

// ---- sending ----

Connection::Reply::Reply(Connection& connection, Opcode opcode)
    : connection_(connection), out_(connection.share()->replies()), begin_(out_.tell()) {
    write_8(out_, kPacketMarker);
    write_32(out_, 0);  // the length, known at the end
    write_8(out_, to_byte(opcode));
}

Connection::Reply::~Reply() {
    if (!finished_) out_.seek(begin_);
}

void Connection::Reply::finish() {
    finished_ = true;
    const std::uint32_t size = out_.tell() - begin_;
    store_32(out_.data() + begin_ + sizeof kPacketMarker, size - kHeaderSize);
    connection_.note_reply(size);
}

void Connection::note_reply(std::size_t size) noexcept {
    reply_ += static_cast<std::uint32_t>(size);
    if (reply_ > longest_reply_.load(std::memory_order_relaxed)) {
        longest_reply_.store(reply_, std::memory_order_relaxed);
    }
}

// What is sent under the lock of a room or a table keeps its place among what others send under it,
// and so goes to the queue at once, behind the replies in place that came before.
void Connection::queue_replies() {
    if (PoolShare::current() != share() || share() == nullptr || !gathers_) return;
    kx_memory_file& replies = share()->replies();
    if (replies.tell() == 0) return;
    queue_.append(replies.written());
    share()->clear_replies();
}

void Connection::send(const Packet& packet) {
    queue_replies();
    after_append(kHeaderSize + packet.payload().size(), queue_.append(packet));
}

void Connection::send(std::shared_ptr<const Packet> packet) {
    queue_replies();
    const std::size_t size = kHeaderSize + packet->payload().size();
    after_append(size, queue_.append(std::move(packet)));
}

void Connection::after_append(std::size_t size, std::size_t waiting) {
    // In its own turn a connection sends at the end of the turn anyway.
    if (PoolShare::current() == share() && share() != nullptr && in_turn_) {
        note_reply(size);
        return;
    }
    const std::size_t bound = limited_
                                  ? kUnreadBound + longest_reply_.load(std::memory_order_relaxed)
                                  : kUnreadBound + kMaxPayload;
    if (waiting > bound) {
        if (!closing()) count(Limit::send_queue);
        close();
        return;
    }
    post();
}

void Connection::begin_reply() noexcept {
    in_turn_ = true;
    reply_ = 0;
}

void Connection::resume() {
    paused_ = false;
    post();
}

void Connection::take_turns() {
    carries_on_ = true;
    share()->join_long_work(*this);
}

bool Connection::may_handle() const {
    return !paused_ && !carries_on_ && !slowed_ && budget_ > 0 &&
           queue_.waiting() + share()->replies().tell() <= kReplyBound;
}

bool Connection::flush() {
    std::uint32_t count = 0;
    kx_memory_file& replies = share()->replies();
    SendQueue::Flush result = SendQueue::Flush::failed;
    try {
        result = queue_.flush(*socket(), replies.written(), count);
    } catch (const std::bad_alloc&) {
        // What cannot be kept is missing from the stream: that is the connection's end.
    }
    share()->clear_replies();
    sent_.fetch_add(count, std::memory_order_relaxed);
    if (result == SendQueue::Flush::failed) return false;
    const bool blocked = result == SendQueue::Flush::blocked;
    if (blocked) {
        wantWritable();
    } else if (longest_reply_.load(std::memory_order_relaxed) != 0) {
        longest_reply_.store(0, std::memory_order_relaxed);
    }
    note_send(blocked, count > 0);
    blocked_ = blocked;
    return true;
}

Turn Connection::doTask(socketPool& /*pool*/) {
    if (closing() || (flags_ & kException) != 0) return Turn::finished;
    flags_ &= ~static_cast<std::uint32_t>(kWritable);
    budget_ = kMessagesPerTurn;
    in_turn_ = true;
    gathers_ = true;
    Step step = Step::failed;
    try {
        if (carries_on_ && share()->may_take_long_turn(*this)) {
            begin_reply();
            if (carry_on())
                carries_on_ = false;
            else
                share()->join_long_work(*this);
        }
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
    gathers_ = false;
    // What was answered before the end came still goes out, as far as the socket takes it.
    const bool sent = flush();
    if (step == Step::failed || !sent || closing()) return Turn::finished;
    if (limited_) keep_time();
    if (carries_on_ || paused_ || blocked_ || slowed_) return Turn::wait;
    const bool more = has_backlog() || (flags_ & kReadable) != 0;
    return more ? Turn::at_leisure : Turn::wait;
}

Connection::Step Connection::take_backlog() {
    if (!has_backlog()) return Step::go_on;
    std::vector<std::byte>& backlog = aside_->backlog;
    std::span<const std::byte> rest = std::span(backlog).subspan(aside_->backlog_begin);
    const Step step = handle_bytes(rest);
    aside_->backlog_begin = backlog.size() - rest.size();
    if (rest.empty()) {
        backlog = {};
        aside_->backlog_begin = 0;
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
        if (!rest.empty()) aside().backlog.assign(rest.begin(), rest.end());
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
        if (!has_part()) {
            begin_reply();
            if (const std::size_t handled = spoken_ ? handle_run(bytes, budget_) : 0) {
                budget_ -= static_cast<unsigned>(handled);
                continue;
            }
            const Packet::Frame frame = Packet::frame(bytes, max_payload_);
            if (frame.state == Packet::Frame::State::bad) return refuse_frame(bytes);
            if (frame.state == Packet::Frame::State::complete) {
                const auto payload = bytes.subspan(kHeaderSize, frame.payload_size);
                bytes = bytes.subspan(kHeaderSize + frame.payload_size);
                if (handle_packet(payload) == Step::failed) return Step::failed;
                continue;
            }
        }
        Packet& incoming = aside().incoming;
        incoming.set_max_payload(max_payload_);
        kx_memory_file stream = kx_memory_file::reading(bytes);
        std::uint32_t count = 0;
        Progress progress = Progress::pending;
        do {
            progress = incoming.receive(stream, count);
        } while (progress == Progress::pending && count > 0);
        bytes = bytes.subspan(stream.tell());
        if (progress == Progress::failed) return refuse_frame(incoming.header());
        if (progress == Progress::done) {
            aside_->packet_due = kNoDeadline;
            const Step step = handle_packet(incoming.payload());
            incoming.reset();
            if (step == Step::failed) return Step::failed;
        }
    }
    return Step::go_on;
}

Connection::Step Connection::handle_packet(std::span<const std::byte> payload) {
    budget_ -= static_cast<unsigned>(
        std::min<std::size_t>(budget_, 1 + payload.size() / kBytesOfAMessage));
    if (!spoken_) first_packet_came();
    begin_reply();
    kx_memory_file stream = kx_memory_file::reading(payload);
    const std::uint8_t opcode = read_8(stream);
    return handle_message(opcode, stream) == Verdict::keep ? Step::go_on : Step::failed;
}

Connection::Step Connection::refuse_frame(std::span<const std::byte> header) {
    if (limited_ && Packet::is_too_long(header, max_payload_)) count(Limit::packet_size);
    return Step::failed;
}

// ---- limits ----

void Connection::count(Limit limit) {
    pool().limits().log.count(limit);
}

Connection::Aside& Connection::aside() {
    if (!aside_) {
        aside_ = std::make_unique<Aside>();
        if (!spoken_) aside_->packet_due = deadline();
    }
    return *aside_;
}

void Connection::setAlarm(TimePoint moment) {
    aside().alarm = moment;
    arm();
}

Connection::Verdict Connection::spend(Request kind) {
    if (!limited_) return Verdict::keep;
    const Limits& limits = pool().limits();
    const std::chrono::milliseconds wait =
        buckets_.spend(kind, limits.request_rates, [this] { return share()->now(); });
    if (wait == std::chrono::milliseconds{}) return Verdict::keep;
    count(limit_of(kind));
    const TimePoint now = share()->now();
    Aside& own = aside();
    if (own.slowed_last == kNoDeadline || now - own.slowed_last > wait + kForgiveness) {
        own.slow_since = now;
    }
    own.slowed_last = now;
    if (limits.flood > Limits::Seconds{} && now - own.slow_since >= limits.flood) {
        count(Limit::flood);
        return Verdict::close;
    }
    own.slow_until = now + wait;
    slowed_ = true;
    return Verdict::keep;
}

void Connection::first_packet_came() {
    spoken_ = true;
    if (aside_) {
        aside_->packet_due = kNoDeadline;
    } else if (deadline() != kNoDeadline) {
        setDeadline(kNoDeadline);
    }
}

void Connection::note_send(bool blocked, bool moved) {
    if (!blocked) {
        if (aside_) aside_->send_due = kNoDeadline;
        return;
    }
    const Limits::Seconds limit = pool().limits().stalled_send;
    if (!limited_ || limit == Limits::Seconds{}) return;
    if (moved || !blocked_) aside().send_due = share()->now() + limit;
}

// The end of a turn: deadlines for what it has left unfinished. Those that no longer apply are not
// taken back but looked at when they pass, since most do not apply for long.
void Connection::keep_time() {
    const Limits& limits = pool().limits();
    if (!spoken_ && limits.first_packet > Limits::Seconds{}) {
        if (aside_) {
            if (aside_->packet_due == kNoDeadline)
                aside_->packet_due = share()->now() + limits.first_packet;
            arm();
        } else if (deadline() == kNoDeadline) {
            setDeadline(share()->now() + limits.first_packet);
        }
        return;
    }
    const bool partial = has_part();
    if (!partial && !aside_) return;
    Aside& own = aside();
    if (!partial) {
        own.packet_due = kNoDeadline;
    } else if (own.packet_due == kNoDeadline && limits.packet > Limits::Seconds{}) {
        own.packet_due = share()->now() + limits.packet;
    }
    arm();
}

void Connection::arm() {
    const TimePoint next =
        std::min({aside_->packet_due, aside_->send_due, aside_->slow_until, aside_->alarm});
    if (next < deadline()) setDeadline(next);
}

Turn Connection::onDeadline() {
    const TimePoint now = share()->now();
    if (!aside_) {
        if (spoken_) return Turn::wait;
        count(Limit::first_packet);
        return Turn::finished;
    }
    Aside& own = *aside_;
    Turn turn = Turn::wait;
    if (own.alarm <= now) {
        own.alarm = kNoDeadline;
        turn = onAlarm();
        if (turn == Turn::finished) return turn;
    }
    if (own.send_due <= now) {
        count(Limit::send_stall);
        return Turn::finished;
    }
    if (own.slow_until <= now) {
        // What came in part before the pause has its whole time again.
        own.slow_until = own.packet_due = kNoDeadline;
        slowed_ = false;
        turn = Turn::again;
    }
    if (own.packet_due <= now) {
        if (!slowed_ && !paused_ && !carries_on_) {
            count(spoken_ ? Limit::packet_time : Limit::first_packet);
            return Turn::finished;
        }
        // It is not the peer who keeps it waiting.
        own.packet_due = now + pool().limits().packet;
    }
    arm();
    return turn;
}

}  // namespace vorrim

#include "net/UDPDoor.h"

#include <span>

#include "base/Output.h"
#include "base/Rollback.h"
#include "net/PoolShare.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

constexpr std::size_t kBatch = 64;  // datagrams taken by one system call
constexpr int kWorkPerTurn = 512;   // in datagrams; then the worker's other tasks have their turn
constexpr std::uint32_t kAnswerGrowth = 2048;
constexpr std::size_t kAnswerBytes = 256 * 1024;  // unsent answers gathered before they are sent

}  // namespace

UDPDoor::UDPDoor(socketPool& pool, std::uint16_t port)
    : Task(nullptr, pool),
      port_(port),
      room_(kBatch * kDatagramBytes),
      slots_(kBatch),
      out_(kAnswerGrowth) {}

void UDPDoor::open(std::unique_ptr<UDPDoor> door, socketPool& pool, int proxy_wait_ms) {
    auto socket = pool.net().listen(door->port_, proxy_wait_ms, SocketType::datagram);
    if (!socket) {
        current_output().printError("ERROR: couldn't create UDPDoor\n");
        return;
    }
    door->setSocket(std::move(socket));
    pool.add(std::move(door));
}

// What is withheld is counted.
bool UDPDoor::withhold(Limit limit) const {
    Limits& limits = pool().limits();
    limits.log.count(limit);
    return !limits.datagrams.only_counts();
}

bool UDPDoor::exempt(std::uint32_t address) const noexcept {
    return pool().limits().exempt.contains(address);
}

bool UDPDoor::may_answer() {
    Limits& limits = pool().limits();
    return exempt(sender()) || limits.datagrams.bytes().has_room(sender(), share()->now()) ||
           !withhold(Limit::datagram_bytes);
}

bool UDPDoor::may_send(std::uint32_t address, std::uint32_t bytes) {
    Limits& limits = pool().limits();
    // A stranger who names an exempt address is a stranger still.
    return (exempt(sender()) && exempt(address)) ||
           limits.datagrams.bytes().take(address, bytes, share()->now()) ||
           !withhold(Limit::datagram_bytes);
}

void UDPDoor::reply() {
    if (may_send(sender(), static_cast<std::uint32_t>(out_.written().size()))) queue_answer();
    out_.clear();
}

void UDPDoor::reply_status() {
    Limits& limits = pool().limits();
    if (exempt(sender()) || limits.datagrams.statuses().take(sender(), 1, share()->now()) ||
        !withhold(Limit::datagram_status)) {
        queue_answer();
    }
    out_.clear();
}

void UDPDoor::queue_answer() {
    const auto written = out_.written();
    answer_ends_.emplace_back(answers_.size() + written.size(), sender_);
    Rollback named([this] { answer_ends_.pop_back(); });
    answers_.insert(answers_.end(), written.begin(), written.end());
    named.keep();
    if (answers_.size() >= kAnswerBytes) send_answers();
}

void UDPDoor::send_answers() {
    if (answer_ends_.empty()) return;
    std::vector<DatagramSlot> slots;
    slots.reserve(answer_ends_.size());
    std::size_t begin = 0;
    for (const auto& [end, to] : answer_ends_) {
        slots.push_back({std::span(answers_).subspan(begin, end - begin), to});
        begin = end;
    }
    socket()->send_batch(slots);
    answers_.clear();
    answer_ends_.clear();
}

void UDPDoor::receive() {
    for (std::size_t i = 0; i < kBatch; ++i) {
        slots_[i].bytes = std::span(room_).subspan(i * kDatagramBytes, kDatagramBytes);
    }
    received_ = socket()->receive_batch(slots_);
    handled_ = 0;
    if (received_ < kBatch) flags_ = 0;  // nothing was left behind
}

void UDPDoor::report_broken() {
    current_output().printVerbose("*** Exception in UDPDoor\n");
}

void UDPDoor::handle(const DatagramSlot& datagram) {
    if (datagram.bytes.empty()) return;  // nothing was received, so nothing is said
    sender_ = datagram.peer;
    kx_memory_file in = kx_memory_file::reading(datagram.bytes);
    attempt([&] { handle_datagram(in); });
}

void UDPDoor::handle_some() {
    while (handled_ < received_ && budget_ > 0 && unfinished() < kMostUnfinished) {
        --budget_;
        handle(slots_[handled_++]);
    }
    send_answers();
}

Turn UDPDoor::doTask(socketPool& /*pool*/) {
    if (closing()) return Turn::finished;
    budget_ = kWorkPerTurn;
    if (stands_in_line_ && share()->may_take_long_turn(*this)) {
        stands_in_line_ = false;
        carry_on();
        send_answers();
    }
    bool more = true;
    while (more && budget_ > 0 && unfinished() < kMostUnfinished) {
        if (handled_ == received_) {
            // An error on a datagram socket tells of one lost answer; the port itself is well.
            more = (flags_ & (kReadable | kException)) != 0;
            if (more) receive();
        }
        handle_some();
    }
    if (unfinished() > 0 && !stands_in_line_) {
        stands_in_line_ = true;
        share()->join_long_work(*this);
    }
    // With as much unfinished as may be, the line brings the next turn.
    return more && unfinished() < kMostUnfinished ? Turn::again : Turn::wait;
}

}  // namespace vorrim

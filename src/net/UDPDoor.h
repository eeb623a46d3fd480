#pragma once
// The datagram endpoint: takes datagrams in batches, hands each to the handler, and sends the
// answers in batches.
//
//     recvmmsg ──► [datagram][datagram]... ──► handle_datagram ──► reply()
//                                                                    └──► [answers] ──► sendmmsg
//
// No place that is not exempt gets more than so many bytes a second (net/DatagramLimiter.h),
// whoever seems to ask for them.
//
// Threads: its worker's only.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "base/kx_err.h"
#include "net/LimitLog.h"
#include "net/Task.h"
#include "net/kx_ip_address.h"

namespace vorrim {

class UDPDoor : public Task {
public:
    // The longest datagram that is taken; what is longer is cut.
    static constexpr std::size_t kDatagramBytes = 3072;

    // Opens the port and gives the door to the pool, or says that it could not and lets it go.
    static void open(std::unique_ptr<UDPDoor> door, socketPool& pool, int proxy_wait_ms);

    [[nodiscard]] Turn doTask(socketPool& pool) override;

protected:
    UDPDoor(socketPool& pool, std::uint16_t port);

    // One datagram; the stream ends where the datagram ended. Reading past it raises kx_err, which
    // drops the datagram.
    virtual void handle_datagram(kx_memory_file& in) = 0;

    // Work that datagrams have left behind because it takes more than one turn: how many have, and
    // a step of bounded length of one of them. With kMostUnfinished no further datagram is handled.
    static constexpr std::size_t kMostUnfinished = 64;
    [[nodiscard]] virtual std::size_t unfinished() const { return 0; }
    virtual void carry_on() {}
    // The sender of the datagram being handled; carry_on says whose it goes on with.
    [[nodiscard]] const kx_ip_address& peer() const noexcept { return sender_; }
    void set_peer(const kx_ip_address& peer) { sender_ = peer; }

    // Where a handler writes an answer, empty at the start; `reply` queues what was written for
    // the sender of the datagram being handled, and empties it for the next answer.
    [[nodiscard]] kx_memory_file& out() noexcept { return out_; }
    void reply();
    // The same for a status answer, which has a rate of its own and no part in the bytes.
    void reply_status();

    // The sender of the datagram being handled, in identifier form.
    [[nodiscard]] std::uint32_t sender() const noexcept { return sender_.value(); }
    // Whether a peer of this address has no limits.
    [[nodiscard]] bool exempt(std::uint32_t address) const noexcept;
    // Whether an answer of some length to the sender would be sent at all: whoever has had too much
    // need not be worked for.
    [[nodiscard]] bool may_answer();
    // The same for something of that many bytes which the handler causes to be sent to `address`,
    // the sender's or another; then it counts as sent.
    [[nodiscard]] bool may_send(std::uint32_t address, std::uint32_t bytes);
    // What was asked is as much work as that many other datagrams: the turn ends earlier.
    void count_work(int datagrams) noexcept { budget_ -= datagrams; }
    // Whether the turn has room for more of it.
    [[nodiscard]] bool work_left() const noexcept { return budget_ > 0; }
    // What a datagram's work raises ends that work only.
    template <class Work>
    void attempt(Work work) {
        out_.clear();
        try {
            work();
        } catch (const kx_err&) {
            report_broken();
        } catch (const std::bad_alloc&) {
            // An answer too large for the memory that is left is lost, as datagrams may be.
            report_broken();
        }
    }

private:
    void receive();
    void handle(const DatagramSlot& datagram);
    void handle_some();
    static void report_broken();
    void queue_answer();
    [[nodiscard]] bool withhold(Limit limit) const;
    void send_answers();

    std::uint16_t port_;
    std::vector<std::byte> room_;      // one slot of kDatagramBytes after the other
    std::vector<DatagramSlot> slots_;  // the datagrams of the batch
    std::size_t received_ = 0;         // how many came
    std::size_t handled_ = 0;          // how many of them are done with
    bool stands_in_line_ = false;      // for unfinished work
    int budget_ = 0;                   // work left for this turn, in datagrams
    kx_memory_file out_;
    kx_ip_address sender_;            // of the datagram being handled
    std::vector<std::byte> answers_;  // answers of the batch, one behind the other
    std::vector<std::pair<std::size_t, kx_ip_address>> answer_ends_;
};

}  // namespace vorrim

#pragma once
// The datagram endpoint: takes datagrams in batches, hands each to the handler, and sends the
// answers in batches.
//
//     recvmmsg ──► [datagram][datagram]...  ──► handle_datagram ──► reply() ──► [answers] ──►
//     sendmmsg
//
// Threads: its worker's only.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "net/Task.h"

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

    // Where a handler writes an answer, empty at the start; `reply` queues what was written for
    // the sender of the datagram being handled, and empties it for the next answer.
    [[nodiscard]] kx_memory_file& out() noexcept { return out_; }
    void reply();

private:
    void send_answers();

    std::uint16_t port_;
    std::vector<std::byte> room_;      // one slot of kDatagramBytes after the other
    std::vector<DatagramSlot> slots_;  // the datagrams of the batch
    kx_memory_file out_;
    kx_ip_address sender_;            // of the datagram being handled
    std::vector<std::byte> answers_;  // answers of the batch, one behind the other
    std::vector<std::pair<std::size_t, kx_ip_address>> answer_ends_;
};

}  // namespace vorrim

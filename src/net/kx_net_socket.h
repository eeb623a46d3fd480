#pragma once
// A socket as the rest of the server sees it: a byte stream with socket operations added.
//
//     read / write    count moved (> 0), 0 = nothing can be moved now, -1 = ended or failed
//
// Ownership: whoever receives a socket from an operation owns it; destroying it closes it.
// Threads: one thread at a time, the worker that runs its owner.
// Errors: nothing here raises; factories return null, transfers return counts.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <sys/uio.h>

#include "base/file/kx_file.h"
#include "net/kx_ip_address.h"

namespace vorrim {

enum class SocketType : std::uint8_t { datagram = 0, stream = 1 };

// How an accept ended.
enum class AcceptResult {
    accepted,
    drained,    // nobody is waiting
    retry,      // the waiting connection vanished; ask again
    exhausted,  // no descriptor or memory left: pause
    failed,
};

// One datagram of a batch. For receiving, `bytes` is the room offered and is cut to what came.
struct DatagramSlot {
    std::span<std::byte> bytes;
    kx_ip_address peer;
};

class kx_net_socket : public kx_file {
public:
    // Told the share of the timeout that has passed, between waits of at most 100 ms. False breaks
    // the wait off.
    using WaitProgress = std::function<bool(float)>;

    // One gathered write of several pieces; results as `write`.
    [[nodiscard]] virtual std::int32_t write_gathered(std::span<const iovec> pieces) = 0;

    // Takes one waiting connection; the new socket does not block.
    [[nodiscard]] virtual AcceptResult accept(std::unique_ptr<kx_net_socket>& accepted) = 0;

    [[nodiscard]] virtual std::int32_t recv_from(void* buffer, std::uint32_t count,
                                                 kx_ip_address& sender) = 0;
    virtual std::int32_t send_to(const void* bytes, std::uint32_t count,
                                 const kx_ip_address& to) = 0;
    // Many datagrams in one system call. Returns how many slots were filled, from the front.
    [[nodiscard]] virtual std::size_t receive_batch(std::span<DatagramSlot> slots) = 0;
    // Sends all that the system takes; a datagram it refuses is lost, as datagrams may be.
    virtual void send_batch(std::span<const DatagramSlot> slots) = 0;

    // Waits on this socket alone for Readiness flags; a negative timeout (ms) waits without limit.
    // Without `progress` the result is the flags found ready, with it 1 or 0.
    [[nodiscard]] virtual std::uint32_t wait_ready(std::uint32_t flags, int timeout_ms,
                                                   const WaitProgress& progress = {}) = 0;

    virtual bool close() = 0;  // true when this call closed it
    virtual void set_blocking(bool blocking) = 0;
    // The outcome of a non-blocking connect that has ended: true when the connection was made, also
    // when the peer has dropped it since. To be asked once.
    [[nodiscard]] virtual bool connected() const = 0;
    [[nodiscard]] virtual std::optional<kx_ip_address> local_address() const = 0;
    [[nodiscard]] virtual std::optional<kx_ip_address> peer_address() const = 0;
    // What a readiness set watches.
    [[nodiscard]] virtual int handle() const noexcept = 0;
};

}  // namespace vorrim

#pragma once
// What a negotiation needs of its connection to the proxy. A test answers with bytes of its own.
//
// Errors: none raise. Threads: none inside.

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorrim {

class kx_proxy_stream {
public:
    virtual ~kx_proxy_stream() = default;

    // True as soon as the connection is ready, false when it is not within the time (ms; 0 does not
    // wait, less has no limit) or the wait was broken off.
    [[nodiscard]] virtual bool wait_writable(int timeout_ms) = 0;
    [[nodiscard]] virtual bool wait_readable(int timeout_ms) = 0;

    // The bytes moved, 0 or less when there were none.
    [[nodiscard]] virtual std::int32_t write(std::span<const std::byte> bytes) = 0;
    [[nodiscard]] virtual std::int32_t read(std::span<std::byte> room) = 0;

protected:
    kx_proxy_stream() = default;
    kx_proxy_stream(const kx_proxy_stream&) = default;
    kx_proxy_stream& operator=(const kx_proxy_stream&) = default;
};

}  // namespace vorrim

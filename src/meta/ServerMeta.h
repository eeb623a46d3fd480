#pragma once
// The record of a known server: its address stands in the id, its client port in the port.
//
//     disk      [ address u32 | port u16 | tag count u32 | tags ]      (no hash)
//
// After decoding and copying, a server record is normalised: address and port agree with the tags
// IP and Port, and the counters ping, users and files are there and 0.
//
// Threads     The ping history may be read and set by any thread at any time. Everything else is
//             protected by the list's lock; address and port do not change while a record is in a
//             list.

#include <atomic>
#include <cstdint>
#include <string_view>

#include "meta/Meta.h"

namespace vorrim {

class ServerMeta final : public Meta {
public:
    ServerMeta() = default;

    // Pings sent to the server since it was last heard from. On disk it travels in a tag.
    [[nodiscard]] std::uint32_t history() const noexcept { return history_.load(); }
    void setHistory(std::uint32_t pings) noexcept { history_.store(pings); }
    void addPing() noexcept { history_.fetch_add(1); }

    // Whether it has ever been heard from at its own address, since this process began.
    [[nodiscard]] bool hasAnswered() const noexcept { return answered_.load(); }
    void setAnswered() noexcept { answered_.store(true); }

    // Address from dotted text, and port, into the fields and the tags IP and Port. False when the
    // address is 0, as it is for a text that is none.
    [[nodiscard]] bool setAddress(std::string_view address, std::uint16_t port);

    [[nodiscard]] bool fromNetwork(kx_file& from) override;
    // Writes the history's tag with the present value. The record itself stays as it is, so that
    // others may read it meanwhile.
    [[nodiscard]] bool toDisk(kx_file& to) const override;
    [[nodiscard]] bool fromDisk(kx_file& from) override;
    void copyFrom(const Meta& other) override;

private:
    void normalise();

    std::atomic<std::uint32_t> history_{0};
    std::atomic<bool> answered_{false};
};

}  // namespace vorrim

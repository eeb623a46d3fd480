#pragma once
// How the network calls a client: by its IPv4 address when the server can connect back to it (a
// high identifier), otherwise by a small number that the server hands out (a low identifier).
//
//     0          not logged in
//     1 .. FFFFFF   low                 FFFFFF itself is the limit that the two range tests
//     > FFFFFF      high: an address    of the protocol treat differently; hence two questions
//
// An address in a u32 has its first number in the lowest byte. Plain values; any thread.

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorrim {

inline constexpr std::uint32_t kHighestLowId = 0xFFFFFF;

class ClientId {
public:
    explicit constexpr ClientId(std::uint32_t value = 0) noexcept : value_(value) {}

    [[nodiscard]] constexpr std::uint32_t value() const noexcept { return value_; }

    // High: the client can be reached from outside.
    [[nodiscard]] constexpr bool exceeds_low_range() const noexcept {
        return value_ > kHighestLowId;
    }
    // Low, by the test that excludes the limit itself.
    [[nodiscard]] constexpr bool below_low_limit() const noexcept { return value_ < kHighestLowId; }
    // Came from the counter and goes back to it.
    [[nodiscard]] constexpr bool recyclable() const noexcept {
        return value_ != 0 && value_ < kHighestLowId;
    }

    friend constexpr bool operator==(ClientId, ClientId) noexcept = default;
    friend constexpr auto operator<=>(ClientId, ClientId) noexcept = default;

private:
    std::uint32_t value_;
};

static_assert(sizeof(ClientId) == sizeof(std::uint32_t));

// "1.2.3.4" for the address whose bytes, lowest first, are 1, 2, 3 and 4.
[[nodiscard]] std::string ipToText(std::uint32_t ip);

// Reads four decimal numbers joined by dots; each may carry a sign and leading white space, and
// counts with its low eight bits. What follows the fourth is ignored. 0 when there are not four.
[[nodiscard]] std::uint32_t textToIp(std::string_view text) noexcept;

}  // namespace vorrim

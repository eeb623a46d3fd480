// What proxies answer, in pieces of any length, and the text that names them.

#include <algorithm>

#include "base/proxy/kx_proxy_entry.h"
#include "base/proxy/kx_proxy_negotiation.h"
#include "base/proxy/kx_proxy_replies.h"
#include "fuzz/Input.h"
#include "tests/base/ManualClock.h"

namespace {

using namespace vorrim;

// Gives what the input has, a piece for each wait, and takes whatever is said to it.
class Proxy final : public kx_proxy_stream {
public:
    explicit Proxy(fuzz::Input& input) : input_(input) {}

    bool wait_writable(int) override { return input_.u8() != 0xFF; }
    bool wait_readable(int) override {
        if (input_.empty()) return false;
        if (piece_.empty()) piece_ = input_.piece(1U + input_.u8());
        return true;
    }
    std::int32_t write(std::span<const std::byte> bytes) override {
        return static_cast<std::int32_t>(bytes.size());
    }
    std::int32_t read(std::span<std::byte> room) override {
        const std::size_t count = std::min(room.size(), piece_.size());
        std::copy_n(piece_.begin(), count, room.begin());
        piece_ = piece_.subspan(count);
        return static_cast<std::int32_t>(count);
    }

private:
    fuzz::Input& input_;
    std::span<const std::byte> piece_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t choice = input.u8();
    kx_proxy_settings settings{.type = static_cast<kx_proxy_type>(choice % 4), .port = 1080};
    if ((choice & 0x10U) != 0) settings.user = fuzz::as_text(input.piece(input.u8()));
    if ((choice & 0x20U) != 0) settings.password = fuzz::as_text(input.piece(input.u8()));
    kx_proxy_target target{.endpoint = {.address = {}, .port = 4661}};
    if ((choice & 0x40U) != 0) target.name = fuzz::as_text(input.piece(input.u8()));

    kx_proxy_table table(0, kProxyTableStep);
    kx_add_proxy_entries(table, fuzz::as_text(input.rest()), "SOCKSV5");
    static_cast<void>(kx_find_proxy_entry(table, "https"));
    static_cast<void>(kx_http_granted(fuzz::as_text(input.rest())));
    static_cast<void>(kx_http_header_complete(fuzz::as_text(input.rest())));
    static_cast<void>(kx_socks4_granted(input.rest()));
    static_cast<void>(kx_socks5_granted(input.rest()));

    const auto command = (choice & 0x80U) != 0 ? kx_proxy_command::bind : kx_proxy_command::connect;
    kx_proxy_negotiation negotiation(settings, target, command);
    Proxy proxy(input);
    const ManualClock clock;
    const kx_time_left left(clock, 1000);
    kx_proxy_outcome outcome = negotiation.run(proxy, left);
    if (outcome == kx_proxy_outcome::answered) outcome = negotiation.run(proxy, left);
    const kx_proxy_state end = negotiation.state();
    fuzz::must(end == kx_proxy_state::failed || end == kx_proxy_state::established ||
               end == kx_proxy_state::bound || outcome == kx_proxy_outcome::answered);
    if (end == kx_proxy_state::failed) fuzz::must(outcome == kx_proxy_outcome::failed);
    static_cast<void>(kx_printed(negotiation.target()));
    return 0;
}

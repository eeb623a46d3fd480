#include "base/proxy/kx_proxy_negotiation.h"

#include <utility>

#include "base/proxy/kx_proxy_replies.h"

namespace vorrim {

namespace {

using State = kx_proxy_state;

constexpr std::uint16_t kBindPort = 0;  // any

State first_state(kx_proxy_type type) noexcept {
    switch (type) {
        case kx_proxy_type::https:
            return State::https_request;
        case kx_proxy_type::socks4:
            return State::socks4_request;
        case kx_proxy_type::socks5:
            return State::socks5_greeting;
        case kx_proxy_type::none:
            break;
    }
    return State::failed;
}

// In one write; a proxy that does not take a message whole will not understand the rest of it.
State send(kx_proxy_stream& proxy, const kx_proxy_message& message, State next) {
    if (!message) return State::failed;
    const std::span<const std::byte> bytes = message->contents();
    return proxy.write(bytes) == static_cast<std::int32_t>(bytes.size()) ? next : State::failed;
}

}  // namespace

kx_proxy_negotiation::kx_proxy_negotiation(const kx_proxy_settings& settings,
                                           kx_proxy_target target, kx_proxy_command command)
    : state_(first_state(settings.type)),
      command_(command),
      target_(std::move(target)),
      user_(settings.user),
      password_(settings.password) {
    if (command_ == kx_proxy_command::bind) target_.endpoint.port = kBindPort;
}

kx_proxy_outcome kx_proxy_negotiation::run(kx_proxy_stream& proxy, const kx_time_left& left) {
    for (;;) {
        switch (state_) {
            case State::failed:
                return kx_proxy_outcome::failed;
            case State::established:
                return kx_proxy_outcome::established;
            case State::bound:
                return kx_proxy_outcome::peer_arrived;
            default:
                break;
        }
        const bool last_word = state_ == State::socks4_reply || state_ == State::socks5_reply;
        state_ = step(proxy, left());
        if (last_word && state_ != State::failed) return kx_proxy_outcome::answered;
    }
}

State kx_proxy_negotiation::step(kx_proxy_stream& proxy, int left_ms) {
    switch (state_) {
        case State::https_request:
            if (!proxy.wait_writable(left_ms)) return State::failed;
            return send(proxy, kx_https_request(target_, user_, password_), State::https_reply);
        case State::https_reply:
            if (!proxy.wait_readable(left_ms)) return State::failed;
            return take_https_reply(proxy);

        case State::socks4_request:
            if (!proxy.wait_writable(left_ms)) return State::failed;
            return send(proxy, kx_socks4_request(command_, target_), State::socks4_reply);
        case State::socks4_reply:
            return take_endpoint(kx_socks4_granted(receive(proxy, kSocks4ReplySize, left_ms)),
                                 State::socks4_second_reply);
        case State::socks4_second_reply:
            return kx_socks4_granted(receive(proxy, kSocks4ReplySize, left_ms)) ? State::bound
                                                                                : State::failed;

        case State::socks5_greeting:
            if (!proxy.wait_writable(left_ms)) return State::failed;
            return send(proxy, kx_socks5_greeting(), State::socks5_method_reply);
        case State::socks5_method_reply:
            return take_method(proxy, receive(proxy, kSocks5ShortReplySize, left_ms));
        case State::socks5_authentication_reply:
            return kx_socks5_authenticated(receive(proxy, kSocks5ShortReplySize, left_ms))
                       ? State::socks5_request
                       : State::failed;
        case State::socks5_request:
            return send(proxy, kx_socks5_request(command_, target_), State::socks5_reply);
        case State::socks5_reply:
            return take_endpoint(kx_socks5_granted(receive(proxy, kSocks5ReplySize, left_ms)),
                                 State::socks5_second_reply);
        case State::socks5_second_reply: {
            const std::span<const std::byte> reply = receive(proxy, kSocks5ReplySize, left_ms);
            return reply.size() == kSocks5ReplySize && kx_socks5_granted(reply) ? State::bound
                                                                                : State::failed;
        }

        case State::bound:
        case State::failed:
        case State::established:
            break;
    }
    return state_;
}

State kx_proxy_negotiation::take_https_reply(kx_proxy_stream& proxy) {
    fill_ = 0;
    const auto header = [this] {
        return std::string_view(reinterpret_cast<const char*>(reply_.data()), fill_);
    };
    // Byte by byte: what comes behind the header is already the other side's.
    do {
        if (fill_ == kReplyRoom - 1 || proxy.read(std::span(reply_).subspan(fill_, 1)) != 1) {
            return State::failed;
        }
        ++fill_;
        if (kx_http_header_complete(header())) {
            return kx_http_granted(header()) ? State::established : State::failed;
        }
    } while (proxy.wait_readable(0));
    return State::failed;
}

State kx_proxy_negotiation::take_method(kx_proxy_stream& proxy, std::span<const std::byte> reply) {
    const std::optional<kx_socks5_method> method = kx_socks5_chosen_method(reply);
    if (!method) return State::failed;
    if (*method == kx_socks5_method::none) return State::socks5_request;
    return send(proxy, kx_socks5_credentials(user_, password_), State::socks5_authentication_reply);
}

State kx_proxy_negotiation::take_endpoint(const std::optional<kx_proxy_endpoint>& endpoint,
                                          State second_reply) {
    if (!endpoint) return State::failed;
    target_.endpoint = *endpoint;
    return command_ == kx_proxy_command::bind ? second_reply : State::established;
}

std::span<const std::byte> kx_proxy_negotiation::receive(kx_proxy_stream& proxy, std::uint32_t size,
                                                         int left_ms) {
    fill_ = 0;
    if (!proxy.wait_readable(left_ms)) return {};
    const std::int32_t count = proxy.read(std::span(reply_).first(size));
    fill_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return std::span(reply_).first(fill_);
}

}  // namespace vorrim

#include "AdminSession.h"

#include <array>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

#include "Failure.h"
#include "Records.h"
#include "Text.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "meta/ClientId.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"

namespace vorrim::cli {

namespace {

constexpr std::string_view kValid = "Valid";
constexpr std::string_view kUnknownCommand = "Unrecognized command. type ? for help";

constexpr bool kNever = false;

constexpr std::uint32_t kCountSize = 2;  // of a text in a packet

bool fits(std::string_view text) {
    return text.size() < kNoTextLength;
}

Packet packet_of(Opcode opcode, std::initializer_list<std::string_view> texts) {
    std::uint32_t size = 1;
    for (const std::string_view text : texts)
        size += kCountSize + static_cast<std::uint32_t>(text.size());
    Packet packet(size);
    write_8(packet.body(), to_byte(opcode));
    for (const std::string_view text : texts)
        write_string(text, packet.body());
    packet.finish();
    return packet;
}

std::string_view without_line_end(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    return text;
}

}  // namespace

AdminSession::AdminSession(const Context& context, const AdminAccount& account,
                           const Interrupt& interrupt,
                           std::function<void(const std::string& text)> show)
    : interrupt_(interrupt),
      timeout_(context.options.timeout),
      show_(std::move(show)),
      session_(context.net, Server{context.options.host, context.options.admin_port}, timeout_,
               SessionEvents{.text = [this](const std::string& text) { receive(text); }}) {
    if (!fits(account.name) || !fits(account.password))
        throw Failure("this name or password is too long");
    try {
        session_.send(packet_of(Opcode::CONT_LOGIN, {account.name, account.password}));
        if (!wait_for(logged_in_, Patience::fixed,
                      "no answer to the login " + within(timeout_) +
                          "; after wrong passwords a server makes its administrators "
                          "wait (--timeout)"))
            throw Failure("interrupted");
    } catch (const Closed&) {
        throw Failure(
            "the server refuses this login: name or password is wrong, remote control is off, or "
            "another administrator is connected");
    }
}

void AdminSession::receive(const std::string& text) {
    spoken_ = true;
    const std::string_view line = without_line_end(text);
    if (!logged_in_ && line == kValid) {
        logged_in_ = true;
    } else if (!end_of_reply_.empty() && line == end_of_reply_) {
        complete_ = true;
    } else {
        if (line == kUnknownCommand) unknown_ = true;
        if (!leaving_) show_(std::string(line));
    }
}

bool AdminSession::wait_for(const bool& done, Patience patience, const std::string& failure) {
    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + timeout_;
    while (!done) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) throw Failure(failure);
        std::array<pollfd, 2> watched = {pollfd{interrupt_.handle(), POLLIN, 0},
                                         pollfd{session_.handle(), POLLIN, 0}};
        (void)::poll(watched.data(), watched.size(), static_cast<int>(left.count()));
        if (watched[0].revents != 0) return false;
        session_.handle_arrived();
        if (std::exchange(spoken_, false) && patience == Patience::renewed)
            deadline = Clock::now() + timeout_;
    }
    return true;
}

void AdminSession::send_line(std::string_view line) {
    if (!fits(line)) throw Failure("this line is too long");
    session_.send(packet_of(Opcode::CONT_COMMAND, {line}));
}

AdminSession::Reply AdminSession::run(std::string_view line) {
    constexpr std::uint64_t kAddresses = 0xFF000000;  // those above the low identifiers
    const ClientId address(
        static_cast<std::uint32_t>(kHighestLowId + 1 + random_.below(kAddresses)));
    end_of_reply_ = "IP: " + dotted(address);
    complete_ = unknown_ = false;
    send_line(line);
    send_line("ip " + std::to_string(static_cast<std::int32_t>(address.value())));
    const bool complete = wait_for(complete_, Patience::renewed,
                                   "the server's reply is not complete " + within(timeout_));
    end_of_reply_.clear();
    if (!complete) return Reply::interrupted;
    return unknown_ ? Reply::unknown_command : Reply::complete;
}

bool AdminSession::stop() {
    session_.send(Opcode::CONT_STOP);
    try {
        return wait_for(kNever, Patience::fixed,
                        "the server has not stopped " + within(timeout_) +
                            "; its own console may be waiting for a line (--timeout)");
    } catch (const Closed&) {
        return true;
    }
}

void AdminSession::leave() noexcept {
    leaving_ = true;
    ::shutdown(session_.handle(), SHUT_WR);
    try {
        (void)wait_for(kNever, Patience::fixed, "");
    } catch (const Failure&) {
        // It has closed, or it takes too long: nothing more is wanted of it.
    } catch (const kx_err&) {
        // Nor does it matter what it has said last.
    }
}

}  // namespace vorrim::cli

#pragma once
// Someone at the administration door.

#include <string>
#include <string_view>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {

class Administrator final {
public:
    // Connected, not logged in.
    explicit Administrator(const ServerProcess& server, Address from = next_address())
        : connection_(server.ports().admin(), from) {}
    // Connected and logged in; throws WireFailure when the server does not say that it is valid.
    Administrator(const ServerProcess& server, std::string_view name, std::string_view password)
        : Administrator(server) {
        send_login(name, password);
        if (const std::string answer = receive(); answer != "Valid\n")
            throw WireFailure("the answer to a login is " + answer);
    }

    void send_login(std::string_view name, std::string_view password) const {
        connection_.send(Bytes().u8(0x64).text(name).text(password));
    }
    void send_command(std::string_view line) const {
        connection_.send(Bytes().u8(0x66).text(line));
    }
    void send_stop() const { connection_.send(Bytes().u8(0x65)); }

    // The text of the next message.
    [[nodiscard]] std::string receive() const { return message_in(connection_.receive()); }
    // The first message that a command brings.
    [[nodiscard]] std::string ask(std::string_view line) const {
        send_command(line);
        return receive();
    }

    [[nodiscard]] const WireClient& connection() const { return connection_; }

private:
    WireClient connection_;
};

}  // namespace vorrim::wire

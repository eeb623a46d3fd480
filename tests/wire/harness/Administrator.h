#pragma once
// Someone at the administration door.

#include <string>
#include <string_view>

#include "tests/wire/harness/Bytes.h"
#include "tests/wire/harness/ServerProcess.h"
#include "tests/wire/harness/Socket.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {

class Administrator final {
public:
    // Connected, not logged in.
    explicit Administrator(const ServerProcess& server, Address from = next_address());
    // Connected and logged in; throws WireFailure when the server does not say that it is valid.
    Administrator(const ServerProcess& server, std::string_view name, std::string_view password);

    void send_login(std::string_view name, std::string_view password) const;
    void send_command(std::string_view line) const;
    void send_stop() const;

    // The text of the next message.
    [[nodiscard]] std::string receive() const;
    // The texts up to the one that begins so, which is the last of them.
    [[nodiscard]] std::string receive_until(std::string_view beginning) const;
    // The first message that a command brings.
    [[nodiscard]] std::string ask(std::string_view line) const;

    [[nodiscard]] const WireClient& connection() const { return connection_; }

private:
    WireClient connection_;
};

}  // namespace vorrim::wire

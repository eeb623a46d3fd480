#pragma once
// A remote administrator's connection.
//
//     login ──► waits its turn when the address has guessed too often ──► holds the output
//     then    stop, command lines ──►      ◄── every message that the server prints
//
// Nothing but a login does anything before a good login; a bad one ends the connection, as does a
// second one while somebody holds the output, the same administrator included.
//
// Threads: those of a Connection. Messages come from any thread, until the destructor has given the
// output back.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "net/Connection.h"
#include "net/LoginThrottle.h"
#include "net/RemoteConsole.h"

namespace vorrim {

class Controller final : public Connection, private MessageReceiver {
public:
    // How long somebody may be connected without a login; one that is made to wait does not count.
    static constexpr std::chrono::seconds kLoginPatience{60};

    // Console and throttle must outlive the connection.
    Controller(std::unique_ptr<kx_net_socket> socket, socketPool& pool, RemoteConsole& console,
               LoginThrottle& throttle);
    ~Controller() override;

    [[nodiscard]] Turn doTask(socketPool& pool) override;

private:
    struct Credentials {
        std::string name;
        std::string password;
    };

    [[nodiscard]] Verdict handle_message(std::uint8_t opcode, kx_memory_file& payload) override;
    [[nodiscard]] Turn onAlarm() override;
    void receive(std::string_view text) override;

    [[nodiscard]] Verdict begin_login(kx_memory_file& payload);
    [[nodiscard]] Verdict finish_login(const Credentials& given);
    [[nodiscard]] static Verdict refuse_login();

    RemoteConsole& console_;
    LoginThrottle& throttle_;
    std::optional<Credentials> waiting_;  // of a login that is made to wait
    bool begun_ = false;                  // had a turn
    bool logged_in_ = false;
};

}  // namespace vorrim

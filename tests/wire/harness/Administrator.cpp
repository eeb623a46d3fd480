#include "tests/wire/harness/Administrator.h"

#include "tests/wire/harness/Reader.h"

namespace vorrim::wire {

namespace {

constexpr std::uint32_t kLogin = 0x64;
constexpr std::uint32_t kStop = 0x65;
constexpr std::uint32_t kCommand = 0x66;
constexpr std::uint32_t kMessage = 0x38;

}  // namespace

Administrator::Administrator(const ServerProcess& server, Address from)
    : connection_(server.ports().admin(), from) {}

Administrator::Administrator(const ServerProcess& server, std::string_view name,
                             std::string_view password)
    : Administrator(server) {
    send_login(name, password);
    if (const std::string answer = receive(); answer != "Valid\n")
        throw WireFailure("the answer to a login is " + answer);
}

void Administrator::send_login(std::string_view name, std::string_view password) const {
    connection_.send(Bytes().u8(kLogin).text(name).text(password));
}

void Administrator::send_command(std::string_view line) const {
    connection_.send(Bytes().u8(kCommand).text(line));
}

void Administrator::send_stop() const {
    connection_.send(Bytes().u8(kStop));
}

std::string Administrator::receive() const {
    Reader reader(connection_.receive());
    reader.expect_u8(kMessage, "the opcode of a message");
    std::string text = reader.text();
    reader.expect_end();
    return text;
}

std::string Administrator::receive_until(std::string_view beginning) const {
    std::string all;
    for (;;) {
        const std::string text = receive();
        all += text + '\n';
        if (text.starts_with(beginning)) return all;
    }
}

std::string Administrator::ask(std::string_view line) const {
    send_command(line);
    return receive();
}

}  // namespace vorrim::wire

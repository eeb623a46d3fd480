#include "net/Controller.h"

#include <new>
#include <utility>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kTextOverhead = 3;  // opcode and count of a text packet

}  // namespace

Controller::Controller(std::unique_ptr<kx_net_socket> socket, socketPool& pool,
                       RemoteConsole& console, LoginThrottle& throttle)
    : Connection(std::move(socket), pool), console_(console), throttle_(throttle) {
    if (limited()) pool.limits().strange_administrators.fetch_add(1);
}

Controller::~Controller() {
    if (limited()) pool().limits().strange_administrators.fetch_sub(1);
    console_.releaseOutput(*this);
}

Turn Controller::doTask(socketPool& pool) {
    if (!std::exchange(begun_, true)) setAlarm(pool.clock().now() + kLoginPatience);
    const Turn turn = Connection::doTask(pool);
    // Before the socket is closed: whoever sees the end of an administrator finds the output free.
    if (turn == Turn::finished) console_.releaseOutput(*this);
    return turn;
}

void Controller::receive(std::string_view text) {
    Packet packet(static_cast<std::uint32_t>(text.size()) + kTextOverhead);
    write_8(packet.body(), to_byte(Opcode::OP_SERVER_MESSAGE));
    write_string(text, packet.body());
    send(packet);
}

Connection::Verdict Controller::handle_message(std::uint8_t opcode, kx_memory_file& payload) {
    switch (static_cast<Opcode>(opcode)) {
        case Opcode::CONT_LOGIN:
            return begin_login(payload);
        case Opcode::CONT_STOP:
            if (logged_in_) console_.stop();
            return Verdict::keep;
        case Opcode::CONT_COMMAND:
            if (logged_in_) console_.execute(read_string(payload).view());
            return Verdict::keep;
        default:
            return Connection::handle_message(opcode, payload);
    }
}

Connection::Verdict Controller::begin_login(kx_memory_file& payload) {
    const kx_string name = read_string(payload);
    const kx_string password = read_string(payload);
    current_output().printVerbose("CONT_LOGIN: %s, %s\n", name.c_str(), password.c_str());
    Credentials given{std::string(name.view()), std::string(password.view())};
    const auto moment = throttle_.admit(peer());
    if (!moment) return refuse_login();
    if (*moment <= pool().clock().now()) return finish_login(given);
    waiting_ = std::move(given);
    pause();
    setAlarm(*moment);
    return Verdict::keep;
}

Turn Controller::onAlarm() {
    const std::optional<Credentials> given = std::exchange(waiting_, std::nullopt);
    try {
        if (!given || finish_login(*given) == Verdict::close) return Turn::finished;
        resume();
        return Turn::wait;
    } catch (const std::bad_alloc&) {
        return Turn::finished;  // or it would wait for ever, and may hold the output
    }
}

Connection::Verdict Controller::refuse_login() {
    current_output().printVerbose("Not Valid\n");
    return Verdict::close;
}

Connection::Verdict Controller::finish_login(const Credentials& given) {
    using Login = RemoteConsole::Login;
    const Login login = console_.login(given.name, given.password, *this);
    if (login == Login::wrong) {
        throttle_.failed(peer());
    } else {
        throttle_.succeeded(peer());  // busy or not: this is no guess
    }
    if (login != Login::good) return refuse_login();
    current_output().printVerbose("Valid\n");
    logged_in_ = true;
    allowLongPackets();
    setAlarm(kNoDeadline);
    return Verdict::keep;
}

}  // namespace vorrim

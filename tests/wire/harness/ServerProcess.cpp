#include "tests/wire/harness/ServerProcess.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <signal.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/wire/harness/Bytes.h"
#include "tests/wire/harness/Datagram.h"

namespace vorrim::wire {

namespace {

constexpr int kExitStatus = 1;  // of every ordinary end

// Below the ports that the system hands out by itself, so that no client of a test sits on one.
constexpr std::uint16_t kFirstBlock = 20000;
constexpr std::uint16_t kBlocks = 1500;
constexpr std::uint16_t kBlockSize = 8;

// A name in the abstract namespace: gone with its holder, whatever becomes of it.
std::optional<Socket> claim(std::uint16_t port) {
    Socket mark(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::string name = "vorrim-wire-" + std::to_string(port);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(name, address.sun_path + 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (::bind(mark.descriptor(), reinterpret_cast<const sockaddr*>(&address), length) != 0)
        return std::nullopt;
    return mark;
}

bool is_free(int type, std::uint16_t port) {
    const Socket probe = Socket::open(type);
    const int on = 1;
    if (type == SOCK_STREAM)
        ::setsockopt(probe.descriptor(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    return probe.try_bind(Address(0, 0, 0, 0), port);
}

std::string settings_file(const ServerProcess::Setup& setup, const PortBlock& ports) {
    std::string text = setup.ini.value_or("[server]\n" + setup.settings +
                                          "\nport={port}\nadminPort={adminPort}\n"
                                          "thisIP=127.0.0.1\n");
    const auto put = [&text](std::string_view place, std::uint16_t port) {
        for (auto at = text.find(place); at != std::string::npos; at = text.find(place))
            text.replace(at, place.size(), std::to_string(port));
    };
    put("{port}", ports.client());
    put("{adminPort}", ports.admin());
    return text;
}

// Between fork and exec: ends the process when the system refuses.
void limit(__rlimit_resource_t resource, rlim_t most) {
    const rlimit both{most, most};
    if (most != 0 && ::setrlimit(resource, &both) != 0) ::_exit(126);
}

std::string tail(const std::string& text) {
    constexpr std::size_t kShown = 4000;
    return text.size() <= kShown ? text : "..." + text.substr(text.size() - kShown);
}

}  // namespace

PortBlock::PortBlock() {
    const auto start = static_cast<std::uint32_t>(::getpid()) * 7U;
    for (std::uint32_t i = 0; i < kBlocks; ++i) {
        client_ = static_cast<std::uint16_t>(kFirstBlock + (start + i) % kBlocks * kBlockSize);
        std::optional<Socket> mark = claim(client_);
        if (mark && is_free(SOCK_STREAM, client_) && is_free(SOCK_STREAM, admin()) &&
            is_free(SOCK_DGRAM, udp())) {
            claim_ = std::move(*mark);
            return;
        }
    }
    throw WireFailure("no free ports");
}

ServerProcess::ServerProcess(std::string_view settings)
    : ServerProcess(Setup{.settings = std::string(settings)}) {}

ServerProcess::ServerProcess(const Setup& setup)
    : ports_(setup.ports ? setup.ports : std::make_shared<PortBlock>()),
      folder_(setup.folder ? setup.folder : std::make_shared<ScratchFolder>()) {
    if (setup.with_ini) folder_->write("vorrim.ini", settings_file(setup, *ports_));
    start(setup);
    try {
        wait_until_ready(setup.ready);
    } catch (const WireFailure& failure) {
        const std::string said = output() + errors();
        if (!exit_) stop(SIGKILL);
        throw WireFailure(std::string(failure.what()) + "\nThe server said:\n" + tail(said));
    }
}

void ServerProcess::start(const Setup& setup) {
    int input[2] = {-1, -1};
    if (::pipe2(input, O_CLOEXEC) != 0) throw WireFailure("no pipe");
    const Socket reading(input[0]);
    Socket writing(input[1]);
    const std::string folder = folder_->path().string();
    const std::string out = (captured_.path() / "output").string();
    const std::string err = (captured_.path() / "errors").string();
    const pid_t parent = ::getpid();
    const char* const other = std::getenv("VORRIM_SERVER");
    const char* const binary = other != nullptr ? other : VORRIM_BINARY;

    pid_ = ::fork();
    if (pid_ == 0) {
        // Between fork and exec only what is safe after a fork.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent || ::chdir(folder.c_str()) != 0) ::_exit(126);
        limit(RLIMIT_NOFILE, setup.descriptors);
        limit(RLIMIT_AS, setup.address_space);
        limit(RLIMIT_FSIZE, setup.largest_file);
        const int flags = O_WRONLY | O_CREAT | O_APPEND;
        ::dup2(setup.standard_input_open ? reading.descriptor() : ::open("/dev/null", O_RDONLY), 0);
        ::dup2(::open(out.c_str(), flags, 0600), 1);
        ::dup2(::open(err.c_str(), flags, 0600), 2);
        if (setup.terminal != nullptr) setup.terminal->take();
        if (!setup.standard_input_there) ::close(0);
        ::execl(binary, "vorrim", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    if (pid_ < 0) throw WireFailure("no process");
    if (setup.standard_input_open) standard_input_ = std::move(writing);
}

void ServerProcess::wait_until_ready(Ready ready) {
    const auto must_run = [this] {
        if (!running())
            throw WireFailure("the server ended at start-up with " + std::to_string(*exit_));
    };
    if (ready == Ready::answering) {
        const Datagram probe(*this);
        wait_until("a first status datagram is answered", [&] {
            must_run();
            return probe.answers();
        });
    } else if (ready == Ready::accepting) {
        wait_until("a first connection is accepted", [&] {
            must_run();
            const Socket probe = Socket::open(SOCK_STREAM);
            const sockaddr_in door = endpoint(kLocalhost, ports_->client());
            return ::connect(probe.descriptor(), reinterpret_cast<const sockaddr*>(&door),
                             sizeof door) == 0;
        });
    }
}

ServerProcess::~ServerProcess() {
    if (!exit_) {
        try {
            if (!running())
                ADD_FAILURE() << "The server had ended by itself with " << *exit_;
            else if (const int status = stop(SIGTERM); status != kExitStatus)
                ADD_FAILURE() << "The server left with " << status;
        } catch (const WireFailure& failure) {
            ADD_FAILURE() << failure.what();
            if (!exit_) stop(SIGKILL);
        }
    }
    const std::string errors = this->errors();
    if (errors.find("Sanitizer") != std::string::npos ||
        errors.find("runtime error:") != std::string::npos)
        ADD_FAILURE() << "A sanitizer spoke up in the server";
    if (::testing::Test::HasFailure())
        std::cout << "--- server output\n"
                  << tail(output()) << "--- server errors\n"
                  << tail(errors) << "---\n";
}

std::string ServerProcess::output() const {
    return captured_.read("output");
}
std::string ServerProcess::errors() const {
    return captured_.read("errors");
}

void ServerProcess::wait_for_output(std::string_view text) const {
    wait_until("the server prints \"" + std::string(text) + '"',
               [&] { return output().find(text) != std::string::npos; });
}

void ServerProcess::type(std::string_view text) const {
    if (::write(standard_input_.descriptor(), text.data(), text.size()) !=
        static_cast<ssize_t>(text.size()))
        throw WireFailure("the server's standard input takes no more");
}

Status ServerProcess::status() const {
    return Datagram(*this).status();
}

void ServerProcess::wait_for_status(const Status& wanted) const {
    const Datagram asker(*this);
    Status last;
    try {
        wait_until("the status", [&] { return (last = asker.status()) == wanted; });
    } catch (const WireFailure&) {
        throw WireFailure("the status stays at " + std::to_string(last.users) + " users and " +
                          std::to_string(last.files) + " files");
    }
}

void ServerProcess::wait_for_users(std::uint32_t wanted) const {
    const Datagram asker(*this);
    wait_until(std::to_string(wanted) + " users", [&] { return asker.status().users == wanted; });
}

std::chrono::milliseconds ServerProcess::processor_time() const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/stat");
    const std::string stat{std::istreambuf_iterator<char>(file), {}};
    // The name in parentheses may hold anything; user and system time are fields 14 and 15.
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    constexpr int kBefore = 11;
    std::string skipped;
    for (int i = 0; i < kBefore; ++i)
        fields >> skipped;
    std::int64_t user = 0;
    std::int64_t system = 0;
    if (!(fields >> user >> system)) throw WireFailure("no processor time of the server");
    constexpr std::int64_t kMilliseconds = 1000;
    return std::chrono::milliseconds((user + system) * kMilliseconds / ::sysconf(_SC_CLK_TCK));
}

bool ServerProcess::running() {
    int status = 0;
    if (!exit_ && ::waitpid(pid_, &status, WNOHANG) == pid_) note_end(status);
    return !exit_;
}

void ServerProcess::signal(int number) const {
    ::kill(pid_, number);
}

int ServerProcess::stop(int signal) {
    if (running()) {
        ::kill(pid_, signal);
        wait_until("the server ends", [this] { return !running(); });
    }
    return *exit_;
}

void ServerProcess::note_end(int wait_status) {
    exit_ = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -WTERMSIG(wait_status);
}

}  // namespace vorrim::wire

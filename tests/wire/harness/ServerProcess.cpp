#include "tests/wire/harness/ServerProcess.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <signal.h>
#include <thread>
#include <unistd.h>

#include "tests/wire/harness/Datagram.h"

namespace vorrim::wire {

namespace {

// Below the ports that the system hands out by itself, so that no client of a test sits on one.
constexpr std::uint16_t kFirstBlock = 20000;
constexpr std::uint16_t kBlocks = 1500;
constexpr std::uint16_t kBlockSize = 8;

bool is_free(int type, std::uint16_t port) {
    const Socket probe = Socket::open(type);
    if (type == SOCK_STREAM) probe.set(SOL_SOCKET, SO_REUSEADDR, 1);
    return probe.try_bind(kAnyAddress, port);
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
        claim_ = Socket::open(SOCK_STREAM);
        if (claim_.try_bind(kAnyAddress, static_cast<std::uint16_t>(client_ + kBlockSize - 1)) &&
            is_free(SOCK_STREAM, client_) && is_free(SOCK_STREAM, admin()) &&
            is_free(SOCK_DGRAM, udp()))
            return;
    }
    throw WireFailure("no free ports");
}

ServerProcess::ServerProcess(const Setup& setup)
    : ports_(setup.ports ? setup.ports : std::make_shared<PortBlock>()),
      folder_(setup.folder ? setup.folder : std::make_shared<ScratchFolder>()) {
    if (setup.with_ini)
        folder_->write("vorrim.ini", "[server]\n" + setup.settings +
                                         "\nport=" + std::to_string(ports_->client()) +
                                         "\nadminPort=" + std::to_string(ports_->admin()) +
                                         "\nthisIP=127.0.0.1\n");
    start_server(setup);
    if (setup.ready == Ready::at_once) return;
    try {
        const Datagram probe(*this);
        wait_until("the server is ready", [&] {
            if (!running()) throw WireFailure("it ended with " + std::to_string(exit()));
            return setup.ready == Ready::accepting ? connects(kLocalhost, ports_->client())
                                                   : probe.answers();
        });
        if (setup.ready == Ready::prompting && setup.terminal == nullptr)
            wait_for_output("(type '?' for help)\n\n> ");
    } catch (const WireFailure& failure) {
        throw WireFailure(failure.what() + ("\nThe server said:\n" + tail(output() + errors())));
    }
}

void ServerProcess::start_server(const Setup& setup) {
    int input[2] = {-1, -1};
    if (::pipe2(input, O_CLOEXEC) != 0) throw WireFailure("no pipe");
    const Socket reading(input[0]);
    Socket writing(input[1]);
    const char* const other = std::getenv("VORRIM_SERVER");
    start({other != nullptr ? other : VORRIM_BINARY},
          {.terminal = setup.terminal, .prepare = [&] {
               if (::chdir(folder_->path().c_str()) != 0) ::_exit(126);
               if (setup.limit && ::setrlimit(setup.limit->first, &setup.limit->second) != 0)
                   ::_exit(126);
               if (setup.input == Input::missing) ::close(0);
               if (setup.terminal == nullptr && setup.input == Input::open)
                   ::dup2(reading.descriptor(), 0);
           }});
    if (setup.input == Input::open) standard_input_ = std::move(writing);
}

ServerProcess::~ServerProcess() {
    constexpr int kOrderly = 1;
    if (!end_seen()) {
        try {
            EXPECT_TRUE(running()) << "The server has ended by itself";
            EXPECT_EQ(stop(SIGTERM), kOrderly);
        } catch (const WireFailure& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
    const std::string errors = this->errors();
    EXPECT_EQ(errors.find("Sanitizer"), std::string::npos);
    EXPECT_EQ(errors.find("runtime error:"), std::string::npos);
    if (::testing::Test::HasFailure())
        std::cout << "--- server output\n"
                  << tail(output()) << "--- server errors\n"
                  << tail(errors) << "---\n";
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

void ServerProcess::wait_until_idle() const {
#ifdef __SANITIZE_THREAD__
    constexpr std::uint64_t kSwitchesOfOthers = 5;  // its own thread looks around every 100 ms
#else
    constexpr std::uint64_t kSwitchesOfOthers = 0;
#endif
    bool running = false;
    // How often the threads have given up a processor.
    const auto count_switches = [&] {
        std::uint64_t switches = 0;
        running = false;
        const std::string threads = "/proc/" + std::to_string(pid()) + "/task";
        for (const auto& thread : std::filesystem::directory_iterator(threads)) {
            std::ifstream status(thread.path() / "status");
            for (std::string line; std::getline(status, line);) {
                if (line.find("ctxt_switches:") != std::string::npos)
                    switches += std::stoull(line.substr(line.find(':') + 1));
                if (line.starts_with("State:") && line.find("running") != std::string::npos)
                    running = true;
            }
        }
        return switches;
    };
    std::uint64_t before = count_switches();
    wait_until("the server is idle", [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const std::uint64_t now = count_switches();
        return now - std::exchange(before, now) <= kSwitchesOfOthers && !running;
    });
}

}  // namespace vorrim::wire

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

#include "app/DescriptorLimit.h"
#include "app/Server.h"
#include "base/kx_err.h"
#include "platform/message_box.h"
#include "tests/app/support.h"

namespace vorrim {
namespace {

// A network in which every port is taken.
class NoPorts final : public kx_net_protocol {
public:
    [[nodiscard]] const char* name() const noexcept override { return "none"; }
    [[nodiscard]] std::unique_ptr<kx_socket_set> create_socket_set() override {
        return real_.create_socket_set();
    }
    [[nodiscard]] std::unique_ptr<kx_net_address> resolve(std::string_view) override {
        return nullptr;
    }
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect(const kx_net_address&, SocketType,
                                                         ConnectMode) override {
        return nullptr;
    }
    [[nodiscard]] kx_host_info local_host_info() override { return {"host", {}, addresses}; }
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address& local, int,
                                                           SocketType type) override {
        asked +=
            (type == SocketType::stream ? "tcp " : "udp ") + std::to_string(local.get_port()) + ' ';
        return nullptr;
    }

    std::vector<kx_ip_address> addresses{kx_ip_address(0x04030201, 0), kx_ip_address(5, 0)};
    std::string asked;

private:
    kx_tcpip_protocol real_;
};

class NoOperator final : public ConsoleInput {
public:
    [[nodiscard]] Event readLine(std::string_view, std::size_t, std::string&) override {
        return Event::stopped;
    }
    [[nodiscard]] Event wait() override { return Event::stopped; }
    void wake() noexcept override {}
};

class ServerTest : public ::testing::Test {
protected:
    std::unique_ptr<Server> make() {
        console_.emplace("console", console_sink(STDOUT_FILENO));
        return std::make_unique<Server>(net_, system_clock(), Random(1), operator_, *console_);
    }
    // What was shown since the capture began.
    std::string shown() {
        console_.reset();
        return ::testing::internal::GetCapturedStdout();
    }

    ScratchFolder folder_;
    NoPorts net_;
    NoOperator operator_;
    std::optional<OutputWriter> console_;
};

TEST_F(ServerTest, RunsOnWithoutThePortsThatItDoesNotGet) {
    ScratchFolder::write("vorrim.ini", "[server]\nport=65534\nthreads=2\n");
    ::testing::internal::CaptureStdout();
    {
        const auto server = make();
        server->start("vorrim.ini");
        server->stop();
    }
    const std::string taken =
        "Can't Listen for connections. Please adjust your proxy settings in the options tab.\n";
    EXPECT_EQ(shown(), "currentDir=" + folder_.path() +
                           "\nWelcome to Vorrim server v16.36.\nUsing IP: 1.2.3.4\n\n" + taken +
                           taken + "ERROR: couldn't create UDPDoor\n");
    EXPECT_EQ(net_.asked, "tcp 4663 tcp 65534 udp 2 ");
}

TEST_F(ServerTest, ServersLiveSideBySideAndCanBeDroppedWhileTheyRun) {
    ScratchFolder::write("vorrim.ini", "[server]\nconsole=false\nthreads=1\n");
    ::testing::internal::CaptureStdout();
    const Output* const before = &current_output();
    {
        const auto one = make();
        const auto two =
            std::make_unique<Server>(net_, system_clock(), Random(2), operator_, *console_);
        one->start("vorrim.ini");
        two->start("vorrim.ini");
    }
    EXPECT_EQ(&current_output(), before);
    shown();
}

TEST_F(ServerTest, BoxesReachTheLogWhenItIsOn) {
    ScratchFolder::write("vorrim.ini", "[server]\nconsole=false\nlogFile=true\nthreads=0\n");
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    auto server = make();
    message_box("Alert", "too early", MessageBoxButtons::ok);
    server->start("vorrim.ini");
    message_box("Alert", "a text", MessageBoxButtons::ok);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Alert: too early\nAlert: a text\n");
    server.reset();
    shown();
    const std::string log = ScratchFolder::read("log");
    EXPECT_EQ(log.find("too early"), std::string::npos);
    EXPECT_TRUE(log.ends_with("\nAlert: a text\n")) << log;
}

TEST_F(ServerTest, SaysWhenTheSystemAllowsTooFewDescriptors) {
    ScratchFolder::write("vorrim.ini", "[server]\nmaxClients=2147483647\nthreads=0\n");
    ::testing::internal::CaptureStdout();
    auto server = make();
    server->start("vorrim.ini");
    server.reset();
    const std::string said = shown();
    EXPECT_NE(said.find("\nThe system allows " + std::to_string(raiseDescriptorLimit()) + " open"),
              std::string::npos)
        << said;
    EXPECT_LT(descriptorsNeeded(600, 5), 1024U);
}

}  // namespace
}  // namespace vorrim

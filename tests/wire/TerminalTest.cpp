// The operator at a terminal: the line that is being typed, and what becomes of the terminal.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

class AtTerminal : public ::testing::Test {
protected:
    AtTerminal() { terminal_.wait_for("(type '?' for help)\r\n\r\n> "); }
    void TearDown() override {
        EXPECT_EQ(server_.stop(SIGTERM), 1);
        EXPECT_TRUE(terminal_.as_it_was());
    }

    Terminal terminal_;
    ServerProcess server_{
        ServerProcess::Setup{.settings = "verbose=true\nadminName=ru", .terminal = &terminal_}};
};

TEST_F(AtTerminal, ALineThatIsBeingTypedSurvivesMessagesOfOthers) {
    const WireClient client(server_);
    terminal_.type("vx");
    terminal_.wait_for("vx");
    terminal_.type("\x7f");  // backspace
    client.send(hex("17"));
    client.expect_nothing();
    terminal_.wait_for(
        "\r\x1b[J"
        "Unknown msg from Connection: 23\r\n> v");
    client.send(hex("17"));
    terminal_.wait_for(
        "\r\x1b[J"
        "Unknown msg from Connection: 23\r\n> v");
    terminal_.type("o\r");
    terminal_.wait_for("AdminName: (null)\r\n");
    terminal_.wait_for("\r\n> ");
    terminal_.type("\x1b[A");  // the latest line
    terminal_.wait_for("vo");
    terminal_.type("\r");
    terminal_.wait_for("AdminName: (null)\r\n");
    terminal_.type("q\r");
    terminal_.wait_for("Are you sure you want to exit?(y or n): \r\n");
    terminal_.type("y\r");
    static_cast<void>(server_.exit());
}

TEST_F(AtTerminal, NoTextFromOutsideSteersIt) {
    const WireClient client = WireClient::low(server_, "an\x1b[2J\x07 \xC2\x9B client");
    terminal_.type("vc\r");
    terminal_.wait_for("an?[2J? ? client\r\n");
    EXPECT_EQ(terminal_.shown().find("\x1b[2J"), std::string::npos);
}

TEST_F(AtTerminal, TheEndOfTheInputIsAQuietWaitAndASignalGivesTheTerminalBack) {
    terminal_.type("\x04");
    wait_until("the terminal is given back", [&] { return terminal_.as_it_was(); });
    server_.wait_until_idle();
    EXPECT_EQ(server_.status(), (Status{0, 0}));
}

TEST_F(AtTerminal, CtrlCInTheMiddleOfALineStopsItInOrder) {
    terminal_.type("half a li");
    terminal_.wait_for("half a li");
    wait_until("the editor has the terminal", [&] { return !terminal_.as_it_was(); });
    terminal_.type("\x03");
    static_cast<void>(server_.exit());
    EXPECT_EQ(server_.folder()->read("serverList.met").size(), 5U);
}

TEST_F(AtTerminal, ATerminalThatIsStoppedStopsNothing) {
    terminal_.type("\x13");  // Ctrl-S
    const WireClient client(server_);
    for (int i = 0; i < 2000; ++i)
        client.send(hex("17"));
    client.expect_nothing();
}

TEST(Terminals, TheEndOfTheTerminalIsAStopInOrder) {
    Terminal terminal;
    ServerProcess server(ServerProcess::Setup{.terminal = &terminal});
    terminal.wait_for("> ");
    terminal.type("half");
    terminal.wait_for("half");
    terminal.close();
    EXPECT_EQ(server.exit(), 1);
    EXPECT_EQ(server.folder()->read("serverList.met").size(), 5U);
}

}  // namespace
}  // namespace vorrim::wire

// The operator at a pipe and at a terminal: what is typed, what the console shows, how the server
// ends, and what becomes of the terminal.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

// What the console shows after its first prompt.
std::string session(const ServerProcess& server) {
    const std::string output = server.output();
    const std::string prompt = "for help)\n\n> ";
    return output.substr(output.find(prompt) + prompt.size());
}

// Types the lines, answers the question at the end, and returns what was shown meanwhile.
std::string run(ServerProcess& server, const std::string& lines) {
    server.type(lines + "q\ny\n");
    EXPECT_EQ(server.exit(), 1);
    const std::string shown = session(server);
    const std::string end = "> Are you sure you want to exit?(y or n): \n";
    EXPECT_TRUE(shown.ends_with(end)) << shown;
    return shown.substr(0, shown.size() - end.size());
}

TEST(Console, EveryCommandAnswersByteForByte) {
    // The port is a number of sixteen bits, whatever the settings say.
    const auto ports = std::make_shared<PortBlock>();
    ServerProcess server({.settings = "port=" + std::to_string(0x10000 + ports->client()) +
                                      "\nminVersion=10\nadminName=root\nseedIP=1.2.3.4\n"
                                      "seedPort=99\nthreads=2",
                          .ports = ports});
    const WireClient anna = WireClient::high(server, "anna", Address(127, 9, 8, 7));
    const WireClient bert = WireClient::low(server, "bert", Address(127, 9, 8, 6));
    const WireClient nobody(server);
    bert.publish({file(hash_of(1), "a"), file(hash_of(2), "b")});
    server.wait_for_users(3);

    server.type("m hello, everybody\nm\nm,  as it stands \n");
    for (const WireClient* client : {&anna, &bert, &nobody})
        for (const char* text : {"hello, everybody", "", "  as it stands "})
            EXPECT_EQ(client->receive(), Bytes().u8(0x38).text(text));

    const std::string header = "Num\tName\t\tIP\t\tPort\t\tPingCount\n";
    const std::string tests =
        " HashTable32 test:\n kx_strtok test:\n stristr test:\n MetaTag test:\n BoolArray test:\n";
    const std::string rest = "Port: " + std::to_string(server.ports().client()) +
                             "\nWorkers: 2\nMaxClients: 600\nVersions Allowed: 10 - 2000\n";
    const std::string shown = run(server,
                                  "vc\nvf\nvo\nvs\n"
                                  "pass root secret\nvo\npass\nvo\n"
                                  "g\n"
                                  "wel 2 and goodbye\nwel 1 good day\nwel\n"
                                  "test\nfree\n"
                                  "ip\nip 1\nip 117967231\nip 77\nip x\n"
                                  "d\nd 77\nd 1\n"
                                  "q\nno\n"
                                  "\nhelp\nQ\nvcx\nvc;g\n ,\tvf\t1\n");
    EXPECT_EQ(shown,
              "> > "
              "> Num\tID\tName\n(1)\t127.9.8.7\tanna\n(2)\t1.0.0.0\tbert\n(3)\t0.0.0.0\t(null)\n> "
              "> "
              "AdminName: (null)\nAdminPass: (null)\n" +
                  rest + "> " + header + "(1)\t(null)\t1.2.3.4\t99\t0\nWorking:\n" + header +
                  "> "
                  "> AdminName: root\nAdminPass: secret\n" +
                  rest + "> > AdminName: \nAdminPass: \n" + rest +
                  "> Users: 3\t\tFiles: 2\n"
                  "> > > (1) good day\n(2) and goodbye\n"
                  "> " +
                  tests +
                  "go.\n"
                  "> Minimizing the heap.\n"
                  "> Need Client ID\n> IP: 127.9.8.6\n> IP: 127.9.8.7\n> No such client\n> "
                  "> Need Client ID\n> No such client\n> Client Disconnected.\n"
                  "> Are you sure you want to exit?(y or n): \n"
                  "> Unrecognized command. type ? for help\n\n"
                  "> Unrecognized command. type ? for help\n\n"
                  "> Unrecognized command. type ? for help\n\n"
                  "> Unrecognized command. type ? for help\n\n"
                  "> Unrecognized command. type ? for help\n\n> ");
    for (const WireClient* client : {&anna, &bert, &nobody})
        client->expect_closed();
}

TEST(Console, ALineThatIsTooLongLosesItsRest) {
    ServerProcess server;
    const WireClient client(server);
    server.wait_for_users(1);
    const std::string text(252, 't');
    using namespace std::string_literals;
    server.type("m " + text + "q\nm " + std::string(100'000, 'u') + "\nm a NUL\0ends it\n"s);
    EXPECT_EQ(client.receive(), Bytes().u8(0x38).text(text));
    EXPECT_EQ(client.receive(), Bytes().u8(0x38).text(std::string(252, 'u')));
    EXPECT_EQ(client.receive(), Bytes().u8(0x38).text("a NUL"));
    EXPECT_EQ(run(server, ""), "> > ");
}

TEST(Console, ASignalStopsItWhileTheOperatorIsTypingOrAQuestionWaits) {
    for (const auto& [typed, shown] :
         {std::pair{"half a li", ""},
          std::pair{"q\n", "Are you sure you want to exit?(y or n): \n"}})
        for (const int signal : {SIGTERM, SIGINT}) {
            ServerProcess server;
            server.type(typed);
            server.wait_for_output(shown);
            EXPECT_EQ(server.stop(signal), 1);
            EXPECT_EQ(session(server), shown);
            EXPECT_EQ(server.folder()->read("serverList.met").size(), 5U);
        }
}

TEST(Console, TheEndOfTheLinesIsNoCommandButAQuietWait) {
    using Input = ServerProcess::Input;
    for (const Input input : {Input::open, Input::at_its_end, Input::missing}) {
        ServerProcess server({.input = input});
        std::string shown;
        if (input == Input::open) {
            // A last line without its end counts, but nobody answers it.
            shown = "Users: 0\t\tFiles: 0\n> Are you sure you want to exit?(y or n): \n";
            server.type("g\nq");
            server.end_input();
        }
        server.wait_for_output(shown);
        server.wait_until_idle();
        EXPECT_EQ(server.status(), (Status{0, 0}));
        EXPECT_EQ(server.stop(SIGTERM), 1);
        EXPECT_EQ(session(server), shown);
    }
}

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

TEST_F(AtTerminal, ATabIsACharacterLikeOthersAndABrokenOneTakesNoOtherWithIt) {
    const WireClient client(server_);
    server_.wait_for_users(1);
    for (const auto& [typed, sent] :
         {std::pair("\ta\tb", "a\tb"), std::pair(" \xE9t\xC3\xC3\xA9 caf\xE9", "t\xC3\xA9 caf")}) {
        terminal_.type("m" + std::string(typed) + '\r');
        EXPECT_EQ(client.receive(), Bytes().u8(0x38).text(sent));
        terminal_.wait_for("\r\n> ");  // typed earlier, the terminal would show it, not the editor
    }
    terminal_.type("m" + std::string(10, '\t') + "reaches the second row");
    terminal_.wait_for("second row");
    client.send(hex("17"));
    terminal_.wait_for(
        "\r\x1b[1A\x1b[J"
        "Unknown msg from Connection: 23\r\n> m\r\nreaches");
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
    ServerProcess server({.terminal = &terminal});
    terminal.wait_for("> ");
    terminal.type("half");
    terminal.wait_for("half");
    terminal.close();
    EXPECT_EQ(server.exit(), 1);
    EXPECT_EQ(server.folder()->read("serverList.met").size(), 5U);
}

}  // namespace
}  // namespace vorrim::wire

// Remote administration over the real port.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

const std::string kAccount = "adminName=root\nadminPass=open sesame\n";
constexpr const char* kName = "root";
constexpr const char* kPassword = "open sesame";
constexpr const char* kNobodyIsThere = "Users: 0\t\tFiles: 0";

// A server with an account.
class Admin : public ::testing::Test {
protected:
    void wait_until_the_console_speaks_again(const std::string& users) {
        wait_until("the console speaks again", [&] {
            server_.type("g\n");
            return server_.output().ends_with("Users: " + users + "\t\tFiles: 0\n> ");
        });
    }

    ServerProcess server_{kAccount};
};

TEST_F(Admin, TheServerSpeaksToItsAdministratorInsteadOfTheConsole) {
    server_.type("g\n");
    server_.wait_for_output(kNobodyIsThere + std::string("\n> "));
    const std::string before = server_.output();
    {
        const Administrator admin(server_);
        admin.send_login(kName, kPassword);
        EXPECT_EQ(admin.connection().receive_packet(),
                  hex("E3 09 00 00 00 38 06 00 56 61 6C 69 64 0A"));
        const WireClient client = WireClient::low(server_, "anna");
        EXPECT_EQ(admin.receive(), "ID=1 \n");  // unasked, and verbose is off
        EXPECT_EQ(admin.ask("g"), "Users: 1\t\tFiles: 0");
        admin.send_command("wel 1 " + std::string(400, 'w'));
        EXPECT_EQ(admin.ask("wel"), "(1) " + std::string(251, 'w'));
        admin.send_command("m hello");
        EXPECT_EQ(client.receive(), Bytes().u8(0x38).text("hello"));
        server_.signal(SIGHUP);
        EXPECT_EQ(admin.receive(), "Log files opened again");
        EXPECT_EQ(admin.receive(), "Settings read again: 1 welcome lines, 0 filters");
        // What the operator types is executed, and its output goes the same way.
        server_.type("g\n");
        EXPECT_EQ(admin.receive(), "Users: 1\t\tFiles: 0");
        server_.wait_for_output(before + "> ");
        EXPECT_EQ(server_.output(), before + "> ");
    }
    wait_until_the_console_speaks_again("0");
}

TEST_F(Admin, BeforeALoginNothingHasAnEffectAndTheConnectionStays) {
    const Administrator admin(server_);
    admin.send_stop();
    admin.send_command("wel 1 changed");
    for (const char* packet : {"00", "01", "38", "63", "67", "FF", "66", "66 FF FF"})
        admin.connection().send(hex(packet));
    admin.send_login(kName, kPassword);
    EXPECT_EQ(admin.receive(), "Valid\n");
    EXPECT_EQ(admin.ask("wel"), "(1) server version 16.36");
    // A stop would be noticed behind a line.
    for (int i = 0; i < 2; ++i) {
        server_.type("g\n");
        EXPECT_EQ(admin.receive(), kNobodyIsThere);
    }
}

TEST(AdminDoor, AfterALoginCommandsMayBeLongWhoeverSendsThem) {
    const ServerProcess server(kAccount + "limitExempt=");
    const Administrator admin(server, kName, kPassword);
    EXPECT_EQ(admin.ask(std::string(60'000, 'x')), "Unrecognized command. type ? for help\n");
}

TEST_F(Admin, AWrongLoginEndsTheConnection) {
    const auto login = [](std::string_view name, std::string_view password) {
        return hex("64").text(name).text(password);
    };
    for (const Bytes& wrong :
         {login("root", "open"), login("root", "open sesames"), login("root", ""),
          login("Root", kPassword), login("roo", kPassword), login("rootroot", kPassword),
          login("", ""), login(std::string(60'000, 'n'), "x"), hex("64 FF FF")}) {
        SCOPED_TRACE(::testing::PrintToString(wrong));
        const Administrator admin(server_);
        admin.connection().send(wrong);
        admin.connection().expect_closed();
    }
    const Administrator admin(server_, kName, kPassword);
}

TEST(AdminDoor, WithoutAnAccountNobodyGetsInUntilTheOperatorMakesOne) {
    const ServerProcess server("adminName=root");
    const Administrator early(server);
    early.send_login("root", "");
    early.connection().expect_closed();
    server.type("pass root secret\ng\n");
    server.wait_for_output("Users: ");
    const Administrator admin(server, "root", "secret");
    admin.send_command("pass");
    EXPECT_EQ(admin.ask("g"), kNobodyIsThere);  // whoever is in stays in
}

TEST_F(Admin, OfTwoAtTheSameMomentOneGetsIn) {
    for (int round = 0; round < 4; ++round) {
        std::vector<Administrator> rivals;
        for (int i = 0; i < 2; ++i)
            rivals.emplace_back(server_);
        for (const Administrator& rival : rivals)
            rival.send_login(kName, kPassword);
        int in = 0;
        for (const Administrator& rival : rivals)
            in += rival.connection().receive_or_end() == hex("38").text("Valid\n") ? 1 : 0;
        EXPECT_EQ(in, 1);
        // Whoever sees its end finds the output free.
        for (const Administrator& rival : rivals) {
            rival.connection().end_sending();
            while (rival.connection().receive_or_end())
                continue;  // what the other's login has brought
        }
    }
}

TEST(AdminDoor, AQuestionFromAfarIsAnsweredAtTheServersConsole) {
    for (const bool console : {true, false}) {
        using Ready = ServerProcess::Ready;
        ServerProcess server({.settings = kAccount + (console ? "" : "console=false"),
                              .ready = console ? Ready::prompting : Ready::answering});
        const Administrator admin(server, kName, kPassword);
        EXPECT_EQ(admin.ask("q"), "Are you sure you want to exit?(y or n): ");
        EXPECT_EQ(admin.ask("g"), kNobodyIsThere);  // nobody waits for the answer
        server.type("n\n");
        EXPECT_EQ(admin.ask("q"), "Are you sure you want to exit?(y or n): ");
        EXPECT_TRUE(server.running());
        if (console)
            server.type("yes\n");
        else
            admin.send_stop();  // nobody waits for a line, only for an answer
        EXPECT_EQ(server.exit(), 1);
    }
}

TEST(AdminDoor, TheDoorCanBeKeptToOneAddress) {
    const ServerProcess bound(kAccount + "adminBind=127.7.7.7");
    EXPECT_FALSE(connects(kLocalhost, bound.ports().admin()));
    EXPECT_TRUE(connects(Address(127, 7, 7, 7), bound.ports().admin()));
    EXPECT_TRUE(connects(Address(127, 7, 7, 7), bound.ports().client()));
    const ServerProcess typo(kAccount + "adminBind=local host");
    EXPECT_TRUE(connects(kLocalhost, typo.ports().admin()));
    EXPECT_FALSE(connects(Address(127, 7, 7, 7), typo.ports().admin()));
}

TEST_F(Admin, WhoGuessesWaitsAndNobodyElseDoes) {
    const Address guesser = next_address();
    for (int i = 0; i < 5; ++i) {
        const Administrator admin(server_, guesser);
        admin.send_login(kName, "guess " + std::to_string(i));
        admin.connection().expect_closed();
    }
    const auto start = std::chrono::steady_clock::now();
    const Administrator slow(server_, guesser);
    slow.send_login(kName, kPassword);
    server_.wait_for_output("Administrator logins slowed down: 1, the latest from " +
                            guesser.text() + "\n");
    {
        const Administrator other(server_, kName, kPassword);
        EXPECT_EQ(other.ask("g"), kNobodyIsThere);
    }
    EXPECT_EQ(slow.receive(), "Valid\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(Admin, OneWhoVanishesUnderAFloodOfMessagesLeavesTheServerAlone) {
    for (int round = 0; round < 3; ++round) {
        std::vector<WireClient> clients = strangers(server_, 8);
        {
            Administrator admin(server_, kName, kPassword);
            for (int i = 0; i < 200; ++i) {
                for (const WireClient& client : clients)
                    client.send(hex("17"));  // each brings a line of chatter
                admin.send_command("?");
            }
            if (round == 0) {
                for (const WireClient& client : clients)
                    client.expect_nothing();
            }
        }  // unread messages turn the end into a reset
        for (const WireClient& client : clients)
            client.expect_nothing();
        wait_until_the_console_speaks_again("8");
        clients.clear();
        server_.wait_for_users(0);
    }
}

}  // namespace
}  // namespace vorrim::wire

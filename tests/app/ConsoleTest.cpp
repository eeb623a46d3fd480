// The console: its commands against real tables, its lines from a script.
#include <atomic>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "app/Console.h"
#include "app/ServerConsole.h"
#include "base/Random.h"
#include "client/ClientConnection.h"
#include "client/ClientService.h"
#include "tests/app/support.h"
#include "tests/net/NotingNetwork.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

// Gives the lines of a script, then what comes after them.
class ScriptedInput final : public ConsoleInput {
public:
    Event readLine(std::string_view prompt, std::size_t limit, std::string& line) override {
        asked += std::string(prompt) + std::to_string(limit) + ' ';
        if (script.empty()) return after;
        line = script.front().substr(0, limit);
        script.pop_front();
        return Event::line;
    }
    Event wait() override {
        ++waits;
        if (on_wait) on_wait();
        if (!woken) return Event::stopped;
        woken = false;
        return Event::woken;
    }
    void wake() noexcept override { woken = true; }

    std::deque<std::string> script;
    Event after = Event::ended;
    std::function<void()> on_wait;
    std::string asked;
    int waits = 0;
    std::atomic<bool> woken{false};
};

class Receiver final : public MessageReceiver {
public:
    void receive(std::string_view text) override { texts += std::string(text) + '|'; }
    std::string texts;
};

class ConsoleTest : public PoolFixture {
protected:
    void SetUp() override { settings_.welcome.append("server version 16.36"); }
    void TearDown() override { pool_.delete_all(); }

    std::string run(std::string_view line) {
        output_.text.clear();
        console_.execute(line);
        return output_.text;
    }
    // A client that has logged in with a record of one tag. A socket pair has no addresses, so its
    // identifier is a low one.
    std::unique_ptr<kx_tcpip_socket> client(const std::unique_ptr<MetaTag>& tag = nullptr) {
        auto ends = make_pair();
        pool_.add(std::make_unique<ClientConnection>(std::move(ends[1]), pool_, service_));
        Meta record;
        if (tag) record.add(tag->clone());
        kx_memory_file payload(64);
        EXPECT_TRUE(record.toNetwork(payload));
        const auto bytes = payload.written();
        write_all(*ends[0],
                  frame_of("\x01" +
                           std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size())));
        settle();
        read_all(*ends[0]);
        return std::move(ends[0]);
    }

    ScratchFolder folder_;
    RecordingOutput output_;
    ScopedOutput current_{output_};
    ServerSettings settings_;
    NotingNetwork other_servers_;
    LimitLog limits_;
    ServerDirectory directory_{settings_, other_servers_, limits_};
    Random random_{1};
    ClientTable clients_{random_};
    FileIndex files_;
    RoomList rooms_;
    FrozenRecord record_ = FrozenRecord::from(Meta());
    ServiceSettings service_settings_;
    ClientService service_{service_settings_, record_,   clients_, files_, rooms_,
                           settings_.welcome, directory_};
    int sweeps_ = 0;
    ScriptedInput input_;
    ServerConsole console_{input_, settings_, service_, directory_, [this] { ++sweeps_; }, random_};
};

const char kUnrecognized[] = "Unrecognized command. type ? for help\n\n";

TEST_F(ConsoleTest, TheHelpIsTheWholeList) {
    EXPECT_EQ(run("?"),
              "Commands: (optional arguments)\n"
              "m message\t: broadcast a message to all clients\n"
              "\tExample: m hello out there\n"
              "wel (# newMessage)\t: Change or view the welcome strings.\n"
              "q\t\t: quit\n"
              "vc\t\t: view all clients connected.\n"
              "vf\t\t: view all files published.\n"
              "vo\t\t: view the optional settings.\n"
              "vs\t\t: view known servers.\n"
              "g\t\t: get server stats\n"
              "ip #\t\t: get IP of the client ID\n"
              "d #\t\t: disconnect from client ID\n"
              "pass (name password)\t: sets the name and password to allow a remote controller\n"
              "\t\t of this client. If name ans password are left blank then the username\n"
              "\t\t and password are cleared and no remote control is allowed.\n"
              "\tExample: pass admin secret\n");
}

TEST_F(ConsoleTest, AWordNamesACommandExactlyAndSeparatorsEndIt) {
    for (const char* line : {"", " ", ",\t\n", "Q", "VC", "vcx", "?g", "help", "vc;g"})
        EXPECT_EQ(run(line), kUnrecognized) << line;
    for (const char* line : {"vc", "vc,and more", " ,\tvc\t1", "vc vs", "vc\n"})
        EXPECT_EQ(run(line), "Num\tID\tName\n") << line;
    EXPECT_EQ(run("vf"), "");
    EXPECT_EQ(run(std::string(70'000, 'x')), kUnrecognized);
}

TEST_F(ConsoleTest, ClientsAreListedInOrderOfArrivalWithTheirNames) {
    const std::vector<std::unique_ptr<kx_tcpip_socket>> peers = [this] {
        std::vector<std::unique_ptr<kx_tcpip_socket>> made;
        made.push_back(client(makeTagById(TagId::Name, TagText("one"))));
        made.push_back(client());
        made.push_back(client(makeTagById(TagId::Name, std::uint32_t{3})));  // a number for a name
        made.push_back(client(makeTagById(TagId::Name, TagText("100%n"))));
        return made;
    }();
    EXPECT_EQ(
        run("vc"),
        "Num\tID\tName\n"
        "(1)\t1.0.0.0\tone\n(2)\t2.0.0.0\t(null)\n(3)\t3.0.0.0\t(null)\n(4)\t4.0.0.0\t100%n\n");
    EXPECT_EQ(run("g"), "Users: 4\t\tFiles: 0\n");
}

TEST_F(ConsoleTest, TheWelcomeLinesAreListedReplacedAndAppended) {
    EXPECT_EQ(run("wel"), "(1) server version 16.36\n");
    EXPECT_EQ(run("wel 2 second  line"), "");
    EXPECT_EQ(run("wel 1,first, line"), "");
    EXPECT_EQ(run("wel -1 a negative number appends"), "");
    EXPECT_EQ(run("wel 0 nothing"), "");
    EXPECT_EQ(run("wel word nothing"), "");
    EXPECT_EQ(run("wel 2x replaced"), "");
    EXPECT_EQ(run("wel 99"), "");
    EXPECT_EQ(run("wel"), "(1) first, line\n(2) replaced\n(3) a negative number appends\n(4) \n");
}

TEST_F(ConsoleTest, ServersAreListedKnownOnesAndThenWorkingOnes) {
    settings_.publicServer = true;
    directory_.learn(0x04030201, 4661, Told::at_home);
    directory_.sweep();
    directory_.onHello(0x08070605, 65535, Told::at_home);
    ScratchFolder::write("serverList.met",
                         std::string("\x0E\x01\0\0\0\x7F\0\0\x01\x35\x12\x01\0\0\0"
                                     "\x02\x01\0\x01\x03\0abc",
                                     24));
    directory_.start();  // adds what the file holds
    const std::string header = "Num\tName\t\tIP\t\tPort\t\tPingCount\n";
    EXPECT_EQ(run("vs"), header +
                             "(1)\t(null)\t1.2.3.4\t4661\t1\n"
                             "(2)\t(null)\t5.6.7.8\t65535\t0\n"
                             "(3)\tabc\t127.0.0.1\t4661\t0\n"
                             "Working:\n" +
                             header + "(1)\t(null)\t5.6.7.8\t65535\t0\n");
}

TEST_F(ConsoleTest, IdentifiersAreTakenApart) {
    const auto peer = client();
    EXPECT_EQ(run("ip"), "Need Client ID\n");
    EXPECT_EQ(run("ip 0"), "");
    EXPECT_EQ(run("ip word"), "");
    EXPECT_EQ(run("ip 16777216"), "IP: 0.0.0.1\n");
    EXPECT_EQ(run("ip 16777215"), "No such client\n");
    EXPECT_EQ(run("ip -1"), "IP: 255.255.255.255\n");
    EXPECT_EQ(run("ip 16777343"), "IP: 127.0.0.1\n");
    EXPECT_EQ(run("ip 3232235777"), "IP: 1.1.168.192\n");
    EXPECT_EQ(run("ip 2"), "No such client\n");
    EXPECT_EQ(run("ip +2x"), "No such client\n");
    EXPECT_EQ(run("ip 1"), "IP: 0.0.0.0\n");  // a socket pair has no addresses
}

TEST_F(ConsoleTest, EachLineIsAskedForWithThePromptUntilTheOperatorAgreesToStop) {
    input_.script = {"g", "q", "no", "", "q", "Yes", "g"};
    console_.run(true);
    EXPECT_FALSE(console_.running());
    EXPECT_EQ(input_.asked, "> 254 > 254 81 > 254 > 254 81 ");
    EXPECT_EQ(input_.script.size(), 1U);
    EXPECT_EQ(output_.text, std::string("Enter commands at any time (type '?' for help)\n\n"
                                        "Users: 0\t\tFiles: 0\n"
                                        "Are you sure you want to exit?(y or n): \n") +
                                kUnrecognized + "Are you sure you want to exit?(y or n): \n");
}

TEST_F(ConsoleTest, AfterTheLastLineItWaitsQuietly) {
    input_.script = {"q"};  // and nobody to answer
    input_.on_wait = [this] {
        if (input_.waits == 2) input_.woken = true;
    };
    console_.run(true);
    EXPECT_FALSE(console_.running());
    EXPECT_EQ(input_.asked, "> 254 81 ");
    EXPECT_EQ(input_.waits, 3);
    // A question that comes now is answered with no.
    bool asked = false;
    input_.on_wait = [&] {
        if (!asked) run("q");
        asked = true;
    };
    ServerConsole late(
        input_, settings_, service_, directory_, [] {}, random_);
    input_.on_wait = [&] {
        if (!std::exchange(asked, true)) late.execute("q");
    };
    late.run(true);
    EXPECT_FALSE(input_.woken);
}

TEST_F(ConsoleTest, AStopFromAfarIsNoticedBehindTheLineThatIsWaitedForOrAtOnce) {
    input_.script = {"g", "g"};
    console_.stop();  // as if while the first line is waited for
    EXPECT_TRUE(input_.woken);
    console_.readAndExecute();
    EXPECT_EQ(output_.text, "Users: 0\t\tFiles: 0\n");
    console_.run(true);  // and no further line is read
    EXPECT_EQ(input_.script.size(), 1U);

    ServerConsole quiet(
        input_, settings_, service_, directory_, [] {}, random_);
    input_.woken = false;
    input_.on_wait = [&] { quiet.stop(); };
    input_.waits = 0;
    quiet.run(false);
    EXPECT_EQ(input_.waits, 1);
}

TEST_F(ConsoleTest, AQuestionFromAfarIsAnsweredHereEvenWithTheConsoleOff) {
    Receiver remote;
    console_.setRemoteCredentials("root", "secret");
    ASSERT_TRUE(console_.login("root", "secret", remote));
    input_.script = {"yes"};
    input_.on_wait = [this] { console_.execute("q"); };
    console_.run(false);
    EXPECT_EQ(remote.texts, "Are you sure you want to exit?(y or n): |");
    EXPECT_EQ(input_.asked, "81 ");
    EXPECT_FALSE(console_.running());
    console_.releaseOutput(remote);
}

TEST_F(ConsoleTest, ALoginNeedsBothTextsAndTheOutputToItself) {
    Receiver one;
    Receiver two;
    EXPECT_FALSE(console_.login("", "", one));
    console_.setRemoteCredentials("root", "secret");
    for (const auto& [name, password] :
         std::vector<std::pair<const char*, const char*>>{{"root", "secre"},
                                                          {"root", "secrets"},
                                                          {"root", "secretsecret"},
                                                          {"root", ""},
                                                          {"", "secret"},
                                                          {"Root", "secret"},
                                                          {"roo", "secret"},
                                                          {"rootroot", "secret"}})
        EXPECT_FALSE(console_.login(name, password, one)) << name << ' ' << password;
    EXPECT_TRUE(console_.login("root", "secret", one));
    EXPECT_FALSE(console_.login("root", "secret", two));
    console_.releaseOutput(two);
    run("g");
    EXPECT_EQ(one.texts, "Users: 0\t\tFiles: 0|");
    console_.releaseOutput(one);
    EXPECT_EQ(run("g"), "Users: 0\t\tFiles: 0\n");
    EXPECT_TRUE(console_.login("root", "secret", two));
    console_.releaseOutput(two);

    console_.setRemoteCredentials("", "");  // empty, but both given
    EXPECT_TRUE(console_.login("", "", one));
    console_.releaseOutput(one);
    run("pass");
    EXPECT_FALSE(console_.login("", "", one));
}

// Meant for the sanitizers: messages from many threads while administrators come and go.
TEST_F(ConsoleTest, MessagesOfAllThreadsSurviveAdministratorsThatComeAndGo) {
    console_.setRemoteCredentials("root", "secret");
    std::atomic<bool> over{false};
    std::atomic<int> printed{0};
    // Counts, because a std::string would need a lock of its own.
    class Counter final : public Output {
    public:
        void vprintLine(const char*, va_list) override { ++lines; }
        std::atomic<int> lines{0};
    };
    class CountingReceiver final : public MessageReceiver {
    public:
        void receive(std::string_view text) override { lines += text == "hello" ? 1 : 1000; }
        int lines = 0;
    };
    Counter local;
    const ScopedOutput current(local);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!over) {
                current_output().printLine("hello");
                ++printed;
            }
        });
    }
    std::atomic<int> remote{0};
    std::atomic<int> logins{0};
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!over) {
                const auto receiver = std::make_unique<CountingReceiver>();
                if (!console_.login("root", "secret", *receiver)) continue;
                ++logins;
                std::this_thread::yield();
                console_.releaseOutput(*receiver);
                remote += receiver->lines;
            }
        });
    }
    while (logins < 200)
        std::this_thread::yield();
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(local.lines + remote, printed);
    EXPECT_EQ(&current_output(), &local);
}

}  // namespace
}  // namespace vorrim

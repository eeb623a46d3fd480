// The console and its output, while administrators take it and give it back.
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "app/Console.h"
#include "net/Controller.h"
#include "net/LoginThrottle.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

class NoInput final : public ConsoleInput {
public:
    Event readLine(std::string_view, std::size_t, std::string&) override { return Event::ended; }
    Event wait() override { return Event::stopped; }
    void wake() noexcept override {}
};

class CountingReceiver final : public MessageReceiver {
public:
    void receive(std::string_view text) override { lines += text == "hello" ? 1 : 1000; }
    int lines = 0;
};

TEST(Console, ALoginNeedsBothTextsExactlyAndTheOutputToItself) {
    NoInput input;
    Console console(input);
    CountingReceiver one;
    CountingReceiver two;
    EXPECT_FALSE(console.login("", "", one));
    console.setRemoteCredentials("root", "secret");
    for (const auto& [name, password] :
         std::vector<std::pair<const char*, const char*>>{{"root", "secre"},
                                                          {"root", "secrets"},
                                                          {"root", "secretsecret"},
                                                          {"root", ""},
                                                          {"", "secret"},
                                                          {"Root", "secret"},
                                                          {"roo", "secret"},
                                                          {"rootroot", "secret"}})
        EXPECT_FALSE(console.login(name, password, one)) << name << ' ' << password;
    EXPECT_TRUE(console.login("root", "secret", one));
    EXPECT_FALSE(console.login("root", "secret", two));
    console.releaseOutput(two);  // which it does not hold
    EXPECT_FALSE(console.login("root", "secret", two));
    console.releaseOutput(one);
    console.setRemoteCredentials("", "");  // empty, but both given
    EXPECT_TRUE(console.login("", "", two));
    console.releaseOutput(two);
}

// Meant for the sanitizers: messages from many threads while administrators come and go.
TEST(Console, MessagesOfAllThreadsSurviveAdministratorsThatComeAndGo) {
    NoInput input;
    Console console(input);
    console.setRemoteCredentials("root", "secret");
    std::atomic<bool> over{false};
    std::atomic<int> printed{0};
    // Counts, because a std::string would need a lock of its own.
    class Counter final : public Output {
    public:
        void vprintLine(const char*, va_list) override { ++lines; }
        std::atomic<int> lines{0};
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
                if (!console.login("root", "secret", *receiver)) continue;
                ++logins;
                std::this_thread::yield();
                console.releaseOutput(*receiver);
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

class AdministratorTest : public PoolFixture {
protected:
    AdministratorTest() { console_.setRemoteCredentials("root", "secret"); }
    void TearDown() override { pool_.delete_all(); }

    std::unique_ptr<kx_tcpip_socket> connect() {
        auto ends = make_pair();
        pool_.add(std::make_unique<Controller>(std::move(ends[1]), pool_, console_, throttle_));
        settle();
        return std::move(ends[0]);
    }
    void log_in(kx_tcpip_socket& peer, const std::string& password) {
        const std::string count(1, static_cast<char>(password.size()));
        write_all(peer, frame_of(std::string("\x64\x04\0root", 7) + count + '\0' + password));
        settle();
    }
    bool is_closed(kx_tcpip_socket& peer) {
        bool closed = false;
        read_all(peer, &closed);
        return closed;
    }

    NoInput input_;
    Console console_{input_};
    LoginThrottle throttle_{clock_};
};

TEST_F(AdministratorTest, WhoNeverLogsInIsSentAwayAndWhoHasMayStay) {
    const auto idler = connect();
    const auto admin = connect();
    log_in(*admin, "secret");
    write_all(*idler, frame_of("\x65"));
    clock_.advance(Controller::kLoginPatience - std::chrono::milliseconds(1));
    settle();
    EXPECT_FALSE(is_closed(*idler));
    clock_.advance(std::chrono::milliseconds(1));
    settle();
    EXPECT_TRUE(is_closed(*idler));
    EXPECT_FALSE(is_closed(*admin));
}

TEST_F(AdministratorTest, OneWhoVanishesWhileItsLoginWaitsLeavesNothingBehind) {
    const Output* const before = &current_output();
    for (int i = 0; i < 5; ++i) {
        const auto guesser = connect();
        log_in(*guesser, "wrong");
        EXPECT_TRUE(is_closed(*guesser));
    }
    auto peer = connect();
    log_in(*peer, "secret");
    peer.reset();
    settle();
    clock_.advance(std::chrono::seconds(1));
    settle();
    EXPECT_EQ(&current_output(), before);
    EXPECT_EQ(share_.load(), 0U);
}

}  // namespace
}  // namespace vorrim

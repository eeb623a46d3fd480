// Administrators who do not log in, or vanish while they do, and commands that fail.
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>

#include "app/Console.h"
#include "base/kx_err.h"
#include "net/Controller.h"
#include "net/LoginThrottle.h"
#include "tests/base/RecordingOutput.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

// The operator's lines, one after the other.
class Script final : public ConsoleInput {
public:
    Event readLine(std::string_view, std::size_t, Wake, std::string& line) override {
        if (lines.empty()) return Event::stopped;
        line = lines.front();
        lines.pop_front();
        return Event::line;
    }
    Event wait() override { return Event::stopped; }
    void wake() noexcept override {}

    std::deque<std::string> lines;
};

class AdministratorTest : public PoolFixture {
protected:
    AdministratorTest() { console_.setRemoteCredentials("root", "secret"); }
    void TearDown() override { pool_.delete_all(); }

    Line& connect() {
        auto [socket, line] = net_.arrival(0);
        pool_.add(std::make_unique<Controller>(std::move(socket), pool_, console_, throttle_));
        settle();
        return *line;
    }
    // So many guesses that the next one has to wait.
    void guess() {
        for (int i = 0; i < 5; ++i) {
            Line& guesser = connect();
            log_in(guesser, "wrong");
            EXPECT_TRUE(guesser.closed);
        }
    }
    void log_in(Line& peer, const std::string& password) {
        const std::string count(1, static_cast<char>(password.size()));
        peer.bring(frame_of(std::string("\x64\x04\0root", 7) + count + '\0' + password));
        settle();
    }

    Script input_;
    Console console_{input_};
    LoginThrottle throttle_{clock_};
};

TEST_F(AdministratorTest, WhoNeverLogsInIsSentAwayAndWhoHasMayStay) {
    Line& idler = connect();
    Line& admin = connect();
    log_in(admin, "secret");
    idler.bring(frame_of("\x65"));
    clock_.advance(Controller::kLoginPatience - std::chrono::milliseconds(1));
    settle();
    EXPECT_FALSE(idler.closed);
    clock_.advance(std::chrono::milliseconds(1));
    settle();
    EXPECT_TRUE(idler.closed);
    EXPECT_FALSE(admin.closed);
}

TEST_F(AdministratorTest, OneWhoVanishesWhileItsLoginWaitsLeavesNothingBehind) {
    const Output* const before = &current_output();
    guess();
    Line& peer = connect();
    log_in(peer, "secret");
    peer.end();
    settle();
    clock_.advance(std::chrono::seconds(1));
    settle();
    EXPECT_EQ(&current_output(), before);
    EXPECT_EQ(share_.load(), 0U);
}

TEST_F(AdministratorTest, ARightPasswordBehindABusyOutputIsRefusedAndIsNoGuess) {
    RecordingOutput output;
    Line& admin = connect();
    log_in(admin, "secret");
    for (int i = 0; i < 6; ++i) {
        Line& second = connect();
        log_in(second, "secret");
        EXPECT_TRUE(second.closed);
        EXPECT_TRUE(second.written.empty());
    }
    admin.end();
    settle();
    Line& next = connect();
    log_in(next, "secret");
    EXPECT_NE(&current_output(), &output) << "it had to wait";
    next.end();
    settle();
}

TEST(Console, ACommandThatFailsSaysSoAndTheNextOneRuns) {
    class Failing final : public Console {
    public:
        explicit Failing(ConsoleInput& input) : Console(input) {
            addCommand("raise", [](std::string_view) { kx_error("lost"); });
            addCommand("grow", [](std::string_view) { throw std::bad_alloc(); });
            addCommand("go", [](std::string_view) { current_output().printLine("gone"); });
        }
    };
    RecordingOutput output;
    Script input;
    input.lines = {"raise", "grow", "go"};
    Failing console(input);
    console.run(true);
    EXPECT_TRUE(input.lines.empty());
    EXPECT_TRUE(
        output.take().ends_with("Command failed: lost\nCommand failed: out of memory\ngone\n"));
}

TEST_F(AdministratorTest, WhoSeesItsEndFindsTheOutputFree) {
    const Output* const before = &current_output();
    Line& admin = connect();
    log_in(admin, "secret");
    ASSERT_NE(&current_output(), before);
    const Output* at_the_end = nullptr;
    admin.when_closed = [&] { at_the_end = &current_output(); };
    admin.bring(frame_of("\x66"));  // a command without its text
    settle();
    EXPECT_EQ(at_the_end, before);
}

TEST_F(AdministratorTest, ALoginThatMayNotEvenWaitIsNotValidLikeAnyOther) {
    RecordingOutput output;
    output.set_verbose(true);
    guess();
    while (true) {
        static_cast<void>(output.take());
        Line& guesser = connect();
        log_in(guesser, "secret");
        if (guesser.closed) break;
    }
    EXPECT_EQ(output.take(), "V:CONT_LOGIN: root, secret\nV:Not Valid\n");
}

}  // namespace
}  // namespace vorrim

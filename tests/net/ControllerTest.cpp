// The administrator's connection against a console that only notes what it is told.
#include <string>
#include <vector>

#include "base/Output.h"
#include "net/ControlledOutput.h"
#include "net/Controller.h"
#include "net/LoginThrottle.h"
#include "tests/base/RecordingOutput.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

using std::chrono::milliseconds;

class NotingConsole final : public RemoteConsole {
public:
    bool login(std::string_view name, std::string_view password, MessageReceiver& holder) override {
        ++logins;
        if (holder_ != nullptr || name != "root" || password != "secret") return false;
        holder_ = &holder;
        saved_ = &current_output();
        output_.attach(holder, *saved_);
        set_current_output(&output_);
        return true;
    }
    void releaseOutput(MessageReceiver& holder) override {
        if (holder_ != &holder) return;
        holder_ = nullptr;
        set_current_output(saved_);
        output_.detach();
    }
    void execute(std::string_view line) override {
        lines.emplace_back(line);
        current_output().printLine("ran %s", lines.back().c_str());
    }
    void stop() override { ++stops; }

    int logins = 0;
    int stops = 0;
    std::vector<std::string> lines;
    ControlledOutput& output() { return output_; }

private:
    MessageReceiver* holder_ = nullptr;
    Output* saved_ = nullptr;
    ControlledOutput output_;
};

std::string counted(const std::string& text) {
    return {static_cast<char>(text.size() & 0xFF), static_cast<char>(text.size() >> 8)};
}

std::string message(const std::string& text) {
    return "\x38" + counted(text) + text;
}

Bytes login(const std::string& name, const std::string& password) {
    return frame_of("\x64" + counted(name) + name + counted(password) + password);
}

Bytes command(const std::string& line) {
    return frame_of("\x66" + counted(line) + line);
}

class ControllerTest : public PoolFixture {
protected:
    std::unique_ptr<kx_tcpip_socket> connect() {
        auto ends = make_pair();
        pool_.add(std::make_unique<Controller>(std::move(ends[1]), pool_, console_, throttle_));
        settle();
        return std::move(ends[0]);
    }
    Bytes exchange(kx_tcpip_socket& peer, const Bytes& bytes, bool* closed = nullptr) {
        write_all(peer, bytes);
        settle();
        return read_all(peer, closed);
    }
    bool is_closed(kx_tcpip_socket& peer) {
        bool closed = false;
        EXPECT_EQ(read_all(peer, &closed), Bytes());
        return closed;
    }
    void fail_a_login() {
        const auto peer = connect();
        exchange(*peer, login("root", "wrong"));
        EXPECT_TRUE(is_closed(*peer));
    }
    void TearDown() override {
        pool_.delete_all();
        EXPECT_EQ(&current_output(), &local_);
    }

    testing::RecordingOutput local_;  // what the server's own console would show
    ScopedOutput current_{local_};
    NotingConsole console_;
    LoginThrottle throttle_{clock_};
};

TEST_F(ControllerTest, NothingHasAnEffectBeforeAGoodLoginWhichOpensTheRest) {
    const auto peer = connect();
    local_.set_verbose(true);
    bool closed = false;
    for (const Bytes& packet : {frame_of("\x65"), command("g"), frame_of("\x01"), frame_of("\x38")})
        EXPECT_EQ(exchange(*peer, packet, &closed), Bytes());
    EXPECT_FALSE(closed);
    EXPECT_EQ(console_.stops, 0);
    EXPECT_TRUE(console_.lines.empty());
    const std::string said = "Unknown msg from Connection: 1\nUnknown msg from Connection: 56\n";
    EXPECT_EQ(local_.all(), said);

    local_.set_verbose(false);
    EXPECT_EQ(exchange(*peer, login("root", "secret")), frame_of(message("Valid\n")));
    EXPECT_EQ(exchange(*peer, command("m hello")), frame_of(message("ran m hello")));
    EXPECT_EQ(exchange(*peer, frame_of("\x65")), Bytes());
    EXPECT_EQ(console_.stops, 1);
    EXPECT_EQ(local_.all(), said);
}

TEST_F(ControllerTest, ABadLoginEndsTheConnection) {
    local_.set_verbose(true);
    const std::vector<Bytes> bad = {
        login("root", "Secret"),
        login("Root", "secret"),
        login("", ""),
        frame_of(std::string("\x64\xFF\xFF", 3)),                // a name of no possible length
        frame_of(std::string("\x64\x04\x00root\x02\x00s", 10)),  // ends within the password
        frame_of("\x64"),
    };
    for (const Bytes& packet : bad) {
        const auto peer = connect();
        bool closed = false;
        EXPECT_EQ(exchange(*peer, packet, &closed), Bytes());
        EXPECT_TRUE(closed);
    }
    EXPECT_EQ(console_.logins, 3);
    EXPECT_TRUE(local_.all().starts_with("CONT_LOGIN: root, Secret\nNot Valid\n")) << local_.all();
}

TEST_F(ControllerTest, ASecondAdministratorIsTurnedAwayAndTheFirstOneStays) {
    const auto first = connect();
    exchange(*first, login("root", "secret"));
    const auto second = connect();
    exchange(*second, login("root", "secret"));
    EXPECT_TRUE(is_closed(*second));
    read_all(*first);
    EXPECT_EQ(exchange(*first, command("g")), frame_of(message("ran g")));
    // The first one itself counts as somebody, too.
    exchange(*first, login("root", "secret"));
    EXPECT_TRUE(is_closed(*first));
}

TEST_F(ControllerTest, EveryKindOfMessageIsSentCutAndWithoutANewLine) {
    const auto peer = connect();
    exchange(*peer, login("root", "secret"));
    current_output().printLine("line %d", 1);
    current_output().printError("error\n");
    current_output().printVerbose("chatter");
    current_output().notify("somebody");
    current_output().printLine("%s", std::string(300, 'x').c_str());
    settle();
    EXPECT_EQ(read_all(*peer), in_a_row({frame_of(message("line 1")), frame_of(message("error\n")),
                                         frame_of(message("chatter")),
                                         frame_of(message("Controlled Connected to: somebody\n")),
                                         frame_of(message(std::string(255, 'x')))}));
    EXPECT_EQ(local_.all(), "");
}

TEST_F(ControllerTest, WhenTheConnectionGoesTheConsoleSpeaksAgain) {
    auto peer = connect();
    exchange(*peer, login("root", "secret"));
    peer.reset();
    settle();
    current_output().printLine("hello");
    // A thread that looked the output up before comes too late for the administrator.
    console_.output().printLine("late");
    console_.output().printError("error\n");
    console_.output().printVerbose("silent");
    EXPECT_EQ(local_.all(), "hello\nlate\nerror\n");
}

TEST_F(ControllerTest, WhoNeverLogsInIsSentAwayAndWhoHasMayStay) {
    const auto idler = connect();
    const auto admin = connect();
    exchange(*admin, login("root", "secret"));
    exchange(*idler, frame_of("\x65"));
    clock_.advance(Controller::kLoginPatience - milliseconds(1));
    settle();
    EXPECT_FALSE(is_closed(*idler));
    clock_.advance(milliseconds(1));
    settle();
    EXPECT_TRUE(is_closed(*idler));
    EXPECT_EQ(exchange(*admin, command("g")), frame_of(message("ran g")));
}

TEST_F(ControllerTest, AfterFiveFailuresLoginsWaitLongerAndLongerAndHoldNobodyUp) {
    for (int i = 0; i < 5; ++i)
        fail_a_login();
    EXPECT_EQ(console_.logins, 5);
    const auto guess = connect();
    const auto good = connect();
    exchange(*guess, login("root", "wrong"));
    EXPECT_EQ(exchange(*good, in_a_row({login("root", "secret"), command("g")})), Bytes());
    EXPECT_EQ(console_.logins, 5);

    clock_.advance(milliseconds(999));
    settle();
    EXPECT_EQ(console_.logins, 5);
    clock_.advance(milliseconds(1));
    settle();
    EXPECT_EQ(console_.logins, 6);
    EXPECT_TRUE(is_closed(*guess));

    clock_.advance(milliseconds(1999));
    settle();
    EXPECT_EQ(read_all(*good), Bytes());
    clock_.advance(milliseconds(1));
    settle();
    EXPECT_EQ(read_all(*good),
              in_a_row({frame_of(message("Valid\n")), frame_of(message("ran g"))}));
    EXPECT_EQ(throttle_.slowed(), 2U);
}

TEST_F(ControllerTest, AnAdministratorWhoVanishesWhileItsLoginWaitsLeavesNothingBehind) {
    for (int i = 0; i < 5; ++i)
        fail_a_login();
    auto peer = connect();
    exchange(*peer, login("root", "secret"));
    peer.reset();
    settle();
    clock_.advance(milliseconds(1000));
    settle();
    EXPECT_EQ(&current_output(), &local_);
    EXPECT_EQ(share_.load(), 0U);
}

}  // namespace
}  // namespace vorrim

// A room of two hundred who all talk, while others come, talk, and leave in every way there is.
#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <semaphore>
#include <span>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

constexpr std::size_t kMembers = 200;
constexpr std::size_t kLines = 12;  // of each member
constexpr std::size_t kVisitors = 120;
constexpr std::size_t kVisitorLines = 5;
constexpr std::size_t kLinesPerVisit = kMembers * kLines / kVisitors;

constexpr std::uint32_t kText = 0x3A;
constexpr std::uint32_t kJoined = 0x3B;
constexpr std::uint32_t kLeft = 0x3C;
constexpr std::uint32_t kPresent = 0x3D;

void join(const WireClient& client, std::uint32_t room) {
    client.send(Bytes().u8(0x1F).u16(room));
}

// "NAME N" is the N-th line of a member, from 0.
void say(const WireClient& client, const std::string& name, std::size_t line) {
    client.send(Bytes().u8(0x1E).text(name + ' ' + std::to_string(line)));
}

// What one member hears. Whoever speaks is there; of whoever was there from a line on, no line is
// missing, none comes twice, and none before another.
class Ear final {
public:
    explicit Ear(const WireClient& client, std::string name)
        : client_(client), name_(std::move(name)) {}

    // Reads on until `enough` says so.
    template <class Enough>
    void listen(Enough enough) {
        while (!enough()) {
            if (!client_.socket().readable()) throw WireFailure(name_ + " hears nothing more");
            std::array<std::uint8_t, 65536> piece;
            const auto got =
                ::recv(client_.socket().descriptor(), piece.data(), piece.size(), MSG_DONTWAIT);
            if (got <= 0) throw WireFailure("the server closes the connection of " + name_);
            unread_.insert(unread_.end(), piece.begin(), piece.begin() + got);
            take_packets();
        }
    }

    std::size_t rooms = 0;                     // entered
    std::size_t lines = 0;                     // heard
    std::size_t departures = 0;                // seen
    std::map<std::string, std::size_t> heard;  // of each, counted from the first line to be heard

private:
    void take_packets() {
        constexpr std::size_t kHeader = 5;
        std::size_t at = 0;
        while (unread_.size() - at >= kHeader) {
            const std::span left = std::span(unread_).subspan(at);
            const std::uint32_t length = Reader(Bytes(left.subspan(1, 4))).u32();
            if (left.size() - kHeader < length) break;
            take(Reader(Bytes(left.subspan(kHeader, length))));
            at += kHeader + length;
        }
        unread_.erase(unread_.begin(), unread_.begin() + static_cast<std::ptrdiff_t>(at));
    }

    void take(Reader packet) {
        switch (packet.u8()) {
            case kPresent:
                ++rooms;
                there_.clear();
                next_.clear();
                for (const Record& member : packet.records())
                    there_[member.id] = member.text(kName);
                there_[client_.id()] = name_;
                next_[name_] = 0;
                break;
            case kJoined: {
                const Record member = packet.record();
                const std::string name = member.text(kName);
                EXPECT_TRUE(there_.emplace(member.id, name).second) << name_ << " sees " << name;
                next_[name] = 0;
                break;
            }
            case kLeft:
                ++departures;
                EXPECT_EQ(there_.erase(packet.u32()), 1U) << name_;
                break;
            case kText: {
                const std::string& sender = there_[packet.u32()];
                const std::string text = packet.text();
                const std::size_t blank = text.find(' ');
                const std::size_t line = std::stoul(text.substr(blank + 1));
                ASSERT_EQ(text.substr(0, blank), sender) << name_;
                ASSERT_EQ(next_.try_emplace(sender, line).first->second++, line)
                    << name_ << " hears " << text;
                ++heard[sender];
                ++lines;
                break;
            }
            default:
                break;
        }
        packet.expect_end();
    }

    const WireClient& client_;
    const std::string name_;
    std::vector<std::uint8_t> unread_;
    std::map<std::uint32_t, std::string> there_;
    std::map<std::string, std::size_t> next_;  // line of each; unknown of those who talked before
};

enum class Way { moves_on, says_so, ends, vanishes };
constexpr std::size_t kWays = 4;

TEST(RoomCrowd, EveryMemberHearsEveryLineOfThoseWhoWereThereInTheirOrder) {
    const ServerProcess server("room[0]=Hall\nroom[1]=Yard\nconsole=false");
    std::vector<WireClient> members;
    for (std::size_t i = 0; i < kMembers; ++i) {
        members.push_back(WireClient::low(server, "m" + std::to_string(i)));
        join(members.back(), 2);
    }
    std::vector<Ear> ears;
    for (std::size_t i = 0; i < kMembers; ++i) {
        ears.emplace_back(members[i], "m" + std::to_string(i));
        ears.back().listen([&] { return ears.back().rooms == 1; });
    }

    // A part of the members' lines at each visit, from another thread: while the visitor talks and
    // leaves.
    std::counting_semaphore<> visits(0);
    std::thread talk([&] {
        for (std::size_t line = 0; line < kMembers * kLines; ++line) {
            if (line % kLinesPerVisit == 0) visits.acquire();
            say(members[line % kMembers], "m" + std::to_string(line % kMembers), line / kMembers);
        }
    });
    std::vector<WireClient> visitors;
    std::vector<Ear> visiting_ears;
    visitors.reserve(kVisitors);
    for (std::size_t i = 0; i < kVisitors; ++i) {
        const std::string name = "v" + std::to_string(i);
        WireClient& visitor = visitors.emplace_back(WireClient::low(server, name));
        join(visitor, 2);
        Ear& ear = visiting_ears.emplace_back(visitor, name);
        ear.listen([&] { return ear.rooms == 1; });
        visits.release();
        for (std::size_t line = 0; line < kVisitorLines; ++line)
            say(visitor, name, line);
        switch (static_cast<Way>(i % kWays)) {
            case Way::moves_on:
                join(visitor, 3);
                break;
            case Way::says_so:
                visitor.send(hex("18"));
                break;
            case Way::ends:
                ::shutdown(visitor.socket().descriptor(), SHUT_WR);
                break;
            case Way::vanishes:
                visitor.reset();
                break;
        }
    }
    talk.join();

    std::size_t received = 0;
    for (Ear& ear : ears) {
        ear.listen([&] {
            std::size_t of_members = 0;
            for (const auto& [name, lines] : ear.heard)
                of_members += name.front() == 'm' ? lines : 0;
            return ear.departures == kVisitors && of_members == kMembers * kLines;
        });
        received += ear.lines;
        for (std::size_t i = 0; i < kVisitors; ++i) {
            const std::string name = "v" + std::to_string(i);
            // Of a vanished one's lines some may never have been read; nobody hears of them then.
            const bool vanished = static_cast<Way>(i % kWays) == Way::vanishes;
            EXPECT_EQ(ear.heard[name], vanished ? ears.front().heard[name] : kVisitorLines) << name;
        }
    }
    // Visitors hear, while they are there, no less than members do.
    for (std::size_t i = 0; i < kVisitors; i += kWays) {
        Ear& ear = visiting_ears[i];
        ear.listen([&] { return ear.rooms == 2; });
        EXPECT_EQ(ear.heard["v" + std::to_string(i)], kVisitorLines);
        received += ear.lines;
    }
    if (HasFailure()) return;
    std::size_t sent = 0;
    for (const auto& [name, lines] : ears.front().heard)
        sent += lines;
    std::printf(
        "%zu members, %zu visitors: %zu lines taken, %zu received, none lost, none out of "
        "order\n",
        kMembers, kVisitors, sent, received);
}

}  // namespace
}  // namespace vorrim::wire

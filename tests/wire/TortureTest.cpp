// Attack after attack on the real server, while ten honest clients do their work and see every
// right answer. Afterwards nothing of the attackers may be left.
//
//     attackers (two threads, lowest priority) ──►┐
//                                                 ├──► vorrim
//     ten honest clients ────────────────────────►┘ ──► every answer is compared
//
// As it stands, each attack lasts a moment. VORRIM_TORTURE=SECONDS makes each that long and as wide
// as the descriptors allow; VORRIM_TORTURE_THREADS sets the server's workers, VORRIM_TORTURE_LIMITS
// takes away the exemption of this machine from the limits (the honest then ask as slowly as people
// do). Each attack prints a line of what it did to the server.

#include <array>
#include <filesystem>
#include <fstream>
#include <sched.h>

#include "tests/wire/harness/HonestCrowd.h"
#include "tests/wire/harness/Samples.h"

namespace vorrim::wire {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const char* const kSeconds = std::getenv("VORRIM_TORTURE");
const char* const kThreads = std::getenv("VORRIM_TORTURE_THREADS");
const bool kLimited = std::getenv("VORRIM_TORTURE_LIMITS") != nullptr;
const milliseconds kLength(kSeconds ? 1000 * std::max(1, std::atoi(kSeconds)) : 150);
const std::size_t kCrowd = kSeconds ? 5000 : 75;  // connections that one attacker holds at a time

void drop_what_came(const WireClient& client) {
    std::array<std::uint8_t, 65536> room{};
    while (::recv(client.socket().descriptor(), room.data(), room.size(), MSG_DONTWAIT) > 0)
        continue;
}

// What an attacker has: the server, the question whether to end, and its own chance.
struct Attacker {
    const ServerProcess& server;
    const std::stop_token end;
    std::minstd_rand chance;

    [[nodiscard]] bool over() const { return end.stop_requested(); }
    std::size_t below(std::size_t bound) { return chance() % bound; }
    template <class Range>
    const auto& one_of(const Range& range) {
        return range[below(range.size())];
    }
    Bytes noise(std::size_t length) {
        Bytes bytes;
        for (std::size_t i = 0; i < length; ++i)
            bytes.u8(static_cast<std::uint32_t>(chance()));
        return bytes;
    }
    // So many good messages, one after the other.
    Bytes messages(std::size_t count) {
        Bytes all;
        for (; count > 0; --count)
            all.add(packet(one_of(every_message())));
        return all;
    }
    Hash hash() { return hash_of(static_cast<std::uint32_t>(below(1U << 30U)), 0xA7); }
    // Leaves in one of the ways that there are.
    void leave(WireClient& client) {
        if (below(2) == 0) client.reset();
        client.close();
    }
};

using Run = std::function<void(Attacker& self)>;
using Make = Bytes (*)(Attacker& self);

// One connection after the other sends them, in pieces, as far as they go.
Run each_sends(Make make, std::size_t piece = SIZE_MAX) {
    return [make, piece](Attacker& self) {
        while (!self.over()) {
            WireClient client(self.server);
            Bytes left = make(self);
            while (left.size() > 0 && !self.over() && client.send_some(left.first(piece)) > 0)
                left = left.from(piece);
            self.leave(client);
        }
    };
}

// Many connections at once have sent them, and stay until the attack is over.
Run crowd_sends(Make make) {
    return [make](Attacker& self) {
        std::vector<WireClient> all;
        while (!self.over()) {
            if (all.size() < kCrowd)
                all.emplace_back(self.server).send_raw(make(self));
            else
                std::this_thread::sleep_for(milliseconds(5));
        }
        for (WireClient& client : all)
            self.leave(client);
    };
}

// One connection that reads what comes sends the same again and again.
Run flood(const Bytes& request) {
    return [request](Attacker& self) {
        const WireClient client = WireClient::low(self.server);
        while (!self.over()) {
            for (int i = 0; i < 20; ++i)
                if (client.send_some(request) != request.size()) break;
            drop_what_came(client);
        }
    };
}

Bytes join() {
    return packet(hex("1F 02 00"));
}
Run flood_of_texts(std::size_t length) {
    return flood(join().add(packet(hex("1E").text(std::string(length, 't')))));
}

constexpr std::array kBoundaries{
    0U,      1U,       2U,        0xFFU,           0x100U,      0x3FFFU,     0x4000U,    0x4001U,
    0xFFFFU, 0x10000U, 1U << 24U, (1U << 24U) + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU};

Bytes some_length(Attacker& self) {
    Bytes bytes = hex("E3").u32(self.one_of(kBoundaries));
    return bytes.add(self.noise(self.below(300)));
}

Bytes some_count(Attacker& self) {
    const std::uint32_t count = self.one_of(kBoundaries);
    const Bytes start = hash_of(1).encode().u32(0).u16(0);
    const std::array payloads{hex("01").add(start).u32(count).add(int_tag(kSize, 1).encode()),
                              hex("15").u32(count).add(start).u32(0),
                              hex("15").u32(1).add(start).u32(count),
                              hex("16 01").u16(count),
                              hex("1E").u16(count).add(self.noise(50)),
                              hex("1A 02").u16(count)};
    return packet(self.one_of(payloads));
}

Bytes logins(Attacker& self) {
    Record person = client_record(self.hash(), "flood");
    person.port = kClosedPort;
    const Bytes one = packet(login(person));
    return Bytes(one).add(one).add(one).add(one).add(one);
}

Bytes publications(Attacker& self) {
    Bytes lists;
    for (int list = 0; list < 10; ++list) {
        std::vector<Record> files;
        for (int i = 0; i < 100; ++i)
            files.push_back(file(self.hash(), "loot " + std::to_string(self.below(1000))));
        lists.add(packet(offer(files)));
    }
    return lists;
}

void broadcast_to_the_deaf(Attacker& self) {
    std::vector<WireClient> deaf;
    for (int i = 0; i < 20; ++i)
        deaf.emplace_back(self.server).send_raw(join());
    flood_of_texts(30'000)(self);
}

void call_back(Attacker& self) {
    const WireClient high = WireClient::high(self.server);
    const WireClient victim = WireClient::low(self.server);
    const Bytes request = packet(callback(victim.id()));
    while (!self.over())
        static_cast<void>(high.send_some(request));
}

void forge_datagrams(Attacker& self) {
    while (!self.over()) {
        const Datagram sender(self.server);
        for (int i = 0; i < 100; ++i) {
            const auto other = static_cast<std::uint32_t>(self.below(1U << 31U));
            // Of this machine, and low ports: nobody else is to hear from it.
            const std::uint32_t forged = (other & 0xFFFFFF00U) | 0x7FU;
            sender.send(hex("E3 A0").u32(forged).u16(1 + other % 1000));
            sender.send(udp_callback(forged, 4662, 1000 + other % 20));
            sender.send(self.one_of(every_datagram()));
            sender.send(hex("E3").add(self.noise(self.below(200))));
        }
    }
}

Bytes any_of_words(std::uint32_t first, std::uint32_t count) {
    if (count == 1) return words("no such word " + std::to_string(first));
    return joined(Op::either, any_of_words(first, count / 2),
                  any_of_words(first + count / 2, count - count / 2));
}

// Of files with as much text as may be.
void ask_for_many_texts(Attacker& self) {
    std::vector<Record> files;
    for (int i = 0; i < 20; ++i) {
        files.push_back(file(self.hash(), "loot"));
        files.back().tags.resize(60, text_tag("x", std::string(120, 'q')));
    }
    const WireClient holder = WireClient::high(self.server);
    holder.send(offer(files));
    flood(packet(search_files(any_of_words(0, 1000))))(self);
}

struct Attack {
    const char* name;
    Run run;
};
void PrintTo(const Attack& attack, std::ostream* out) {
    *out << attack.name;
}

const std::array kAttacks{
    Attack{"Nothing", [](Attacker&) {}},
    Attack{"Garbage", each_sends([](Attacker& self) { return self.noise(self.below(4000)); })},
    Attack{"HalfPackets", crowd_sends([](Attacker& self) {
               const Bytes whole = self.messages(1);
               return whole.first(1 + self.below(whole.size() - 1));
           })},
    Attack{"ByteByByte", each_sends([](Attacker& self) { return self.messages(1); }, 1)},
    Attack{"LengthsAtEveryBoundary", each_sends(some_length)},
    Attack{"CountsAtEveryBoundary", each_sends(some_count)},
    Attack{"SilentConnections", crowd_sends([](Attacker&) { return Bytes(); })},
    Attack{"ReadersThatNeverReadWhileOthersBroadcast", broadcast_to_the_deaf},
    Attack{"ClosedAtEveryMoment", each_sends([](Attacker& self) {
               const Bytes all = self.messages(1 + self.below(4));
               return all.first(1 + self.below(all.size()));
           })},
    Attack{"FloodOfLogins", each_sends(logins)},
    Attack{"FloodOfPublications", each_sends(publications)},
    Attack{"FloodOfSearches", flood(packet(search_files(anything())))},
    Attack{"FloodOfDeepExpressions",
           flood(packet(search_files(
               leaning_left(250, words("no such words at all in any file"), Op::either))))},
    Attack{"FloodOfWideExpressions", ask_for_many_texts},
    Attack{"FloodOfTexts", flood_of_texts(1000)},
    Attack{"FloodOfCallbacks", call_back},
    Attack{"ForgedDatagrams", forge_datagrams},
};

struct Holding {
    std::size_t kib = 0;
    std::size_t descriptors = 0;
};

Holding holding_of(const ServerProcess& server) {
    const std::string folder = "/proc/" + std::to_string(server.pid());
    Holding holding;
    std::ifstream(folder + "/statm") >> holding.kib >> holding.kib;
    holding.kib *= static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
    const std::filesystem::directory_iterator open(folder + "/fd");
    holding.descriptors = static_cast<std::size_t>(std::distance(begin(open), end(open)));
    return holding;
}

class Torture : public ::testing::TestWithParam<Attack> {};

TEST_P(Torture, HonestClientsSeeEveryRightAnswer) {
    const unsigned seed = std::random_device()();
    const ServerProcess server(
        std::string("verbose=true\npublic=true\nmaxClients=30000\nroom[0]=Lobby\n") +
        (kLimited ? "limitExempt=\n" : "") + "threads=" + (kThreads ? kThreads : "2"));
    const Holding before = holding_of(server);
    Holding during;
    HonestCrowd::Report report;
    std::atomic<std::size_t> turned_away{0};
    {
        HonestCrowd honest(server, milliseconds(kLimited ? 25 : 2));
        const auto attack = [&](const std::stop_token& end, unsigned number) {
            // They stand for machines elsewhere, which take no processor time from the honest.
            const sched_param none{};
            ::sched_setscheduler(0, SCHED_IDLE, &none);
            Attacker self{server, end, std::minstd_rand(seed + number)};
            while (!self.over()) {
                try {
                    GetParam().run(self);
                    std::this_thread::sleep_for(milliseconds(1));
                } catch (const WireFailure&) {
                    ++turned_away;  // the server closed the connection
                }
            }
        };
        {
            const std::array attackers{std::jthread(attack, 0U), std::jthread(attack, 1U)};
            const auto end = Clock::now() + kLength;
            while (Clock::now() < end) {
                std::this_thread::sleep_for(kLength / 10);
                const Holding now = holding_of(server);
                during.kib = std::max(during.kib, now.kib);
                during.descriptors = std::max(during.descriptors, now.descriptors);
            }
        }
        // What waits at the datagram port may be more than it holds.
        wait_until("datagrams are answered", [&] { return Datagram(server).answers(); });
        server.wait_for_status({HonestCrowd::kCount, HonestCrowd::kCount});
        report = honest.finish();
        EXPECT_EQ(report.wrong, "") << "seed " << seed;
        ASSERT_FALSE(report.latencies.empty());
    }
    server.wait_for_status({0, 0});
    const Holding after = holding_of(server);
    EXPECT_LE(after.descriptors, before.descriptors);
    const auto& asked = report.latencies;
    std::cout << "| " << GetParam().name << " | at most " << during.descriptors << " descriptors, "
              << turned_away << " turned away | " << before.kib << " | " << during.kib << " | "
              << after.kib << " | " << asked.size() << " | " << asked[asked.size() / 2].count()
              << " | " << asked[asked.size() * 99 / 100].count() << " |\n";
}

INSTANTIATE_TEST_SUITE_P(Under, Torture, ::testing::ValuesIn(kAttacks),
                         [](const auto& attack) { return std::string(attack.param.name); });

}  // namespace
}  // namespace vorrim::wire

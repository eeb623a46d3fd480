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
#include <future>
#include <sched.h>

#include "tests/wire/harness/HonestCrowd.h"
#include "tests/wire/harness/Samples.h"
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

using Clock = std::chrono::steady_clock;
using Chance = std::minstd_rand;

constexpr std::uint16_t kRoom = 2;

// How long and how wide.
struct Scale {
    std::chrono::milliseconds length{150};
    std::size_t crowd = 150;  // connections that one attack holds at a time

    static Scale chosen() {
        Scale scale;
        if (const char* seconds = std::getenv("VORRIM_TORTURE")) {
            scale.length = std::chrono::seconds(std::max(1, std::atoi(seconds)));
            scale.crowd = 10'000;
        }
        return scale;
    }
};

bool limited() {
    return std::getenv("VORRIM_TORTURE_LIMITS") != nullptr;
}

std::string settings() {
    const char* const threads = std::getenv("VORRIM_TORTURE_THREADS");
    return std::string("verbose=true\npublic=true\nmaxClients=30000\nroom[0]=Lobby\n") +
           (limited() ? "limitExempt=\n" : "") + "threads=" + (threads != nullptr ? threads : "2");
}

void drop_what_came(const WireClient& client) {
    std::array<std::uint8_t, 65536> room{};
    while (::recv(client.socket().descriptor(), room.data(), room.size(), MSG_DONTWAIT) > 0)
        continue;
}

// What an attacker has: the server, its own chance, and the question whether to go on.
class Attacker final {
public:
    Attacker(const ServerProcess& server, const Scale& scale, unsigned seed,
             const std::atomic<bool>& over)
        : chance_(seed), server_(server), scale_(scale), over_(over) {}

    [[nodiscard]] const ServerProcess& server() const { return server_; }
    [[nodiscard]] bool over() const { return over_.load(); }
    [[nodiscard]] std::size_t crowd() const { return scale_.crowd / 2; }  // there are two of us
    std::size_t below(std::size_t bound) { return chance_() % bound; }
    template <class Range>
    const auto& one_of(const Range& range) {
        return range[below(range.size())];
    }
    Bytes noise(std::size_t length) {
        Bytes bytes;
        for (std::size_t i = 0; i < length; ++i)
            bytes.u8(static_cast<std::uint32_t>(chance_()));
        return bytes;
    }

    // Leaves in one of the ways that there are.
    void leave(WireClient& client) {
        if (below(2) == 0) client.reset();
        client.close();
    }
    // One connection after the other, until the attack is over.
    template <class Act>
    void with_each(Act act) {
        while (!over()) {
            WireClient client(server_);
            act(client);
            leave(client);
        }
    }
    // Many connections at once; they stay until the attack is over.
    template <class Act>
    void with_crowd(Act act) {
        std::vector<WireClient> all;
        while (!over()) {
            if (all.size() < crowd()) {
                all.emplace_back(server_);
                act(all.back());
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        }
        for (WireClient& client : all)
            leave(client);
    }
    // The same request, pipelined, on one connection that reads what comes.
    void flood(const Bytes& request) {
        const WireClient client = WireClient::low(server_);
        while (!over()) {
            for (int i = 0; i < 20; ++i)
                if (client.send_some(request) != request.size()) break;
            drop_what_came(client);
        }
    }

private:
    Chance chance_;
    const ServerProcess& server_;
    const Scale& scale_;
    const std::atomic<bool>& over_;
};

struct Attack {
    const char* name;
    void (*run)(Attacker& attacker);
};
void PrintTo(const Attack& attack, std::ostream* out) {
    *out << attack.name;
}

constexpr std::array kBoundaries{
    0U,      1U,       2U,        0xFFU,           0x100U,      0x3FFFU,     0x4000U,    0x4001U,
    0xFFFFU, 0x10000U, 1U << 24U, (1U << 24U) + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU};

std::vector<Record> files_of(Attacker& self, std::size_t count) {
    std::vector<Record> files;
    for (std::size_t i = 0; i < count; ++i)
        files.push_back(file(hash_of(static_cast<std::uint32_t>(self.below(1U << 30U)), 0xA7),
                             "loot " + std::to_string(self.below(1000))));
    return files;
}

Bytes deep_expression() {
    return leaning_left(250, words("no such words at all in any file"), Op::either);
}

const std::array kAttacks{
    Attack{"Nothing", [](Attacker&) {}},
    Attack{"Garbage",
           [](Attacker& self) {
               self.with_each([&](WireClient& client) {
                   static_cast<void>(client.send_some(self.noise(1 + self.below(4000))));
               });
           }},
    Attack{"HalfPackets",
           [](Attacker& self) {
               self.with_crowd([&](WireClient& client) {
                   const Bytes whole = packet(self.one_of(every_message()));
                   client.send_raw(whole.first(1 + self.below(whole.size() - 1)));
               });
           }},
    Attack{"ByteByByte",
           [](Attacker& self) {
               self.with_each([&](WireClient& client) {
                   const Bytes whole = packet(self.one_of(every_message()));
                   for (std::size_t i = 0; i < whole.size() && !self.over(); ++i)
                       if (client.send_some(whole.from(i).first(1)) == 0) break;
               });
           }},
    Attack{"LengthsAtEveryBoundary",
           [](Attacker& self) {
               self.with_each([&](WireClient& client) {
                   Bytes bytes = hex("E3").u32(self.one_of(kBoundaries));
                   bytes.add(self.noise(self.below(300)));
                   static_cast<void>(client.send_some(bytes));
               });
           }},
    Attack{"CountsAtEveryBoundary",
           [](Attacker& self) {
               self.with_each([&](WireClient& client) {
                   const std::uint32_t count = self.one_of(kBoundaries);
                   const Bytes start = encode(hash_of(1)).u32(0).u16(0);
                   const std::array payloads{
                       hex("01").add(start).u32(count).add(encode(int_tag(kSize, 1))),
                       hex("15").u32(count).add(start).u32(0),
                       hex("15").u32(1).add(start).u32(count),
                       hex("16 01").u16(count),
                       hex("1E").u16(count).add(self.noise(50)),
                       hex("1A 02").u16(count)};
                   static_cast<void>(client.send_some(packet(self.one_of(payloads))));
               });
           }},
    Attack{"SilentConnections", [](Attacker& self) { self.with_crowd([](WireClient&) {}); }},
    Attack{"ReadersThatNeverReadWhileOthersBroadcast",
           [](Attacker& self) {
               std::vector<WireClient> deaf;
               for (int i = 0; i < 20; ++i) {
                   deaf.emplace_back(self.server());
                   deaf.back().send(Bytes().u8(0x1F).u16(kRoom));
               }
               const Bytes text = packet(hex("1E").text(std::string(30'000, 't')));
               const WireClient speaker = WireClient::low(self.server());
               speaker.send(Bytes().u8(0x1F).u16(kRoom));
               while (!self.over()) {
                   static_cast<void>(speaker.send_some(text));
                   drop_what_came(speaker);
               }
           }},
    Attack{"ClosedAtEveryMoment",
           [](Attacker& self) {
               const std::vector<Bytes> messages = every_message();
               self.with_each([&](WireClient& client) {
                   Bytes all;
                   for (std::size_t i = 1 + self.below(4); i > 0; --i)
                       all.add(packet(self.one_of(messages)));
                   static_cast<void>(client.send_some(all.first(1 + self.below(all.size()))));
                   if (self.below(4) == 0) std::this_thread::yield();
               });
           }},
    Attack{"FloodOfLogins",
           [](Attacker& self) {
               self.with_each([&](WireClient& client) {
                   Record person = client_record(
                       hash_of(static_cast<std::uint32_t>(self.below(1U << 30U)), 0xA8), "flood");
                   person.port = kClosedPort;
                   for (int i = 0; i < 5; ++i)
                       if (client.send_some(packet(login(person))) == 0) break;
               });
           }},
    Attack{"FloodOfPublications",
           [](Attacker& self) {
               self.with_each([&](WireClient& client) {
                   for (int i = 0; i < 50 && !self.over(); ++i) {
                       const Bytes list = packet(offer(files_of(self, 100)));
                       if (client.send_some(list) != list.size()) break;
                   }
               });
           }},
    Attack{"FloodOfSearches", [](Attacker& self) { self.flood(packet(search_files(anything()))); }},
    Attack{"FloodOfDeepExpressions",
           [](Attacker& self) { self.flood(packet(search_files(deep_expression()))); }},
    Attack{"FloodOfTexts",
           [](Attacker& self) {
               self.flood(Bytes(packet(Bytes().u8(0x1F).u16(kRoom)))
                              .add(packet(hex("1E").text(std::string(1000, 't')))));
           }},
    Attack{"FloodOfCallbacks",
           [](Attacker& self) {
               const WireClient high = WireClient::high(self.server());
               const WireClient victim = WireClient::low(self.server());
               const Bytes request = packet(callback(victim.id()));
               while (!self.over())
                   static_cast<void>(high.send_some(request));
           }},
    Attack{"ForgedDatagrams",
           [](Attacker& self) {
               std::vector<Bytes> all = every_datagram();
               while (!self.over()) {
                   const Datagram sender(self.server());
                   for (int i = 0; i < 100; ++i) {
                       const auto other = static_cast<std::uint32_t>(self.below(1U << 31U));
                       // Of this machine, and low ports: nobody else is to hear from it.
                       const std::uint32_t forged = (other & 0xFFFFFF00U) | 0x7FU;
                       sender.send(hex("E3 A0").u32(forged).u16(1 + other % 1000));
                       sender.send(udp_callback(forged, 4662, 1000 + other % 20));
                       sender.send(self.one_of(all));
                       sender.send(hex("E3").add(self.noise(self.below(200))));
                   }
               }
           }},
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

// Ends the attack also when the test breaks off, so that the attackers can be waited for.
struct Ending {
    std::atomic<bool>& over;
    ~Ending() { over = true; }
};

class Torture : public ::testing::TestWithParam<Attack> {};

TEST_P(Torture, HonestClientsSeeEveryRightAnswer) {
    const Scale scale = Scale::chosen();
    const unsigned seed = std::random_device()();
    const ServerProcess server(settings());
    const Holding before = holding_of(server);
    Holding during;
    HonestCrowd::Report report;
    std::atomic<std::size_t> turned_away{0};
    {
        HonestCrowd honest(server, std::chrono::milliseconds(limited() ? 25 : 2));
        std::atomic<bool> over{false};
        const auto attack = [&](unsigned number) {
            // They stand for machines elsewhere, which take no processor time from the honest.
            const sched_param none{};
            ::sched_setscheduler(0, SCHED_IDLE, &none);
            Attacker self(server, scale, seed + number, over);
            while (!over) {
                try {
                    GetParam().run(self);
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                } catch (const WireFailure&) {
                    ++turned_away;  // the server closed the connection
                }
            }
        };
        const std::array attackers{std::async(std::launch::async, attack, 0U),
                                   std::async(std::launch::async, attack, 1U)};
        const Ending ending{over};
        const auto end = Clock::now() + scale.length;
        while (Clock::now() < end) {
            std::this_thread::sleep_for(scale.length / 10);
            const Holding now = holding_of(server);
            during.kib = std::max(during.kib, now.kib);
            during.descriptors = std::max(during.descriptors, now.descriptors);
        }
        over = true;
        for (const auto& attacker : attackers)
            attacker.wait();
        // What waits at the datagram port may be more than it holds.
        wait_until("datagrams are answered", [&] { return Datagram(server).answers(); });
        server.wait_for_status({HonestCrowd::kCount, HonestCrowd::kCount});
        report = honest.finish();
        EXPECT_EQ(report.wrong, "") << "seed " << seed;
        EXPECT_GT(report.questions, 0U);
    }
    server.wait_for_status({0, 0});
    const Holding after = holding_of(server);
    EXPECT_LE(after.descriptors, before.descriptors);
    std::cout << "| " << GetParam().name << " | at most " << during.descriptors << " descriptors, "
              << turned_away << " turned away | " << before.kib << " | " << during.kib << " | "
              << after.kib << " | " << report.questions << " | " << report.median.count() << " | "
              << report.p99.count() << " |\n";
}

INSTANTIATE_TEST_SUITE_P(Under, Torture, ::testing::ValuesIn(kAttacks),
                         [](const auto& attack) { return std::string(attack.param.name); });

}  // namespace
}  // namespace vorrim::wire

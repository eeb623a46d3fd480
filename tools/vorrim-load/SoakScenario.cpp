// Clients that come, publish, search, chat and vanish, for as long as one likes.
//
//     absent ──► connecting ──► in: a few acts a minute ──► gone (an end, a reset, half a packet)
//       ▲                                                    │
//       └────────────────────────────────────────────────────┘
//
// Half of them can be called back and have high identifiers. Every few seconds a line of what the
// server holds and how fast it answered goes to a file; at the end all leave, and the server must
// be as empty as it was.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <netinet/in.h>
#include <span>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Meter.h"
#include "Requests.h"
#include "Scenario.h"
#include "Swarm.h"
#include "meta/Opcodes.h"

namespace vorrim::load {

namespace {

constexpr std::uint16_t kClosedPort = 1;
constexpr std::uint16_t kFirstRoom = 2;
constexpr std::uint64_t kRooms = 50;  // a room that the server does not have is not joined
constexpr std::uint64_t kMostFiles = 60;
constexpr double kMeanStay = 300;  // seconds
constexpr double kMeanPause = 15;  // seconds between two acts of one client
constexpr double kFilling = 60;    // seconds until everybody has come once
constexpr double kReplacing = 10;  // mean seconds until somebody else takes a place
constexpr std::chrono::milliseconds kTick{20};
constexpr std::chrono::seconds kEmptyWithin{60};

// Accepts whoever calls, on every loopback address, and hangs up.
class CallBackDoor final {
public:
    CallBackDoor() : handle_(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_in any{};
        any.sin_family = AF_INET;
        socklen_t length = sizeof any;
        if (::bind(handle_, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0 ||
            ::listen(handle_, SOMAXCONN) != 0 ||
            ::getsockname(handle_, reinterpret_cast<sockaddr*>(&any), &length) != 0) {
            throw std::runtime_error("cannot listen for call-backs");
        }
        port_ = ntohs(any.sin_port);
    }
    ~CallBackDoor() { ::close(handle_); }
    CallBackDoor(const CallBackDoor&) = delete;
    CallBackDoor& operator=(const CallBackDoor&) = delete;

    void answer_all() const {
        for (int caller = ::accept(handle_, nullptr, nullptr); caller >= 0;
             caller = ::accept(handle_, nullptr, nullptr))
            ::close(caller);
    }
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

private:
    int handle_;
    std::uint16_t port_ = 0;
};

struct Closing {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

class Soak final {
public:
    explicit Soak(const Options& options)
        : options_(options),
          swarm_(options_),
          random_(options.seed),
          server_(options.server_pid),
          descriptors_(server_.descriptors()),
          resident_(server_.resident_bytes()) {
        options_.distinct = true;
        if (options.csv.empty()) return;
        csv_.reset(std::fopen(options.csv.c_str(), "w"));
        if (!csv_) throw std::runtime_error("cannot write " + options.csv);
        std::fputs(
            "seconds,resident_kib,descriptors,processor_s,users,files,connected,arrivals,"
            "answers,p50_us,p99_us,max_us,lost\n",
            csv_.get());
    }

    Result run() {
        const auto seconds = [](double count) {
            return std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(count));
        };
        const auto end = begin_ + seconds(options_.seconds);
        auto next_line = begin_;
        auto last = begin_;
        while (Clock::now() < end) {
            swarm_.turn(
                static_cast<int>(kTick.count()),
                [this](std::size_t index, const Frame& frame) { heard(index, frame.code); });
            door_.answer_all();
            const auto now = Clock::now();
            advance(std::chrono::duration<double>(now - last).count());
            last = now;
            if (now < next_line) continue;
            write_line();
            next_line = now + seconds(options_.every);
        }
        finish();
        return std::move(result_);
    }

private:
    enum Step : std::uint64_t { absent, connecting, in };

    // How often something of this rate happens in a time this long.
    std::uint64_t times(double& owed, double happens) {
        owed += happens;
        const auto whole = static_cast<std::uint64_t>(owed);
        owed -= static_cast<double>(whole);
        return whole;
    }

    void advance(double passed) {
        const double crowd = options_.connections;
        // Everybody has come once after a minute; from then on a random place is looked at, and who
        // has left it is replaced.
        const double wait = swarm_.size() < options_.connections ? kFilling : kReplacing;
        for (std::uint64_t i = times(owed_arrivals_, passed * crowd / wait); i > 0; --i)
            arrive();
        const auto present = static_cast<double>(swarm_.size());
        for (std::uint64_t i = times(owed_departures_, passed * present / kMeanStay); i > 0; --i)
            depart(random_.below(swarm_.size()));
        for (std::uint64_t i = times(owed_acts_, passed * present / kMeanPause); i > 0; --i)
            act(random_.below(swarm_.size()));
    }

    void arrive() {
        std::size_t index = swarm_.size();
        if (index < options_.connections) {
            index = swarm_.add();
        } else {
            index = random_.below(swarm_.size());
            if (swarm_.peer(index).handle() >= 0) return;
            swarm_.reconnect(index);
        }
        ++arrivals_;
        Peer& peer = swarm_.peer(index);
        peer.step = connecting;
        peer.asked.push_back(Clock::now());
        peer.queue(login(index % 2 == 0 ? door_.port() : kClosedPort, index + 1));
        static_cast<void>(peer.flush());
    }

    void depart(std::size_t index) {
        Peer& peer = swarm_.peer(index);
        if (peer.handle() < 0) return;
        switch (random_.below(3)) {
            case 0:
                peer.close();
                break;
            case 1:
                peer.abort();
                break;
            default: {
                const Bytes last = offer(options_.seed, random_.below(options_.files), 20);
                peer.queue(std::span(last).first(random_.below(last.size())));
                static_cast<void>(peer.flush());
                peer.close();
            }
        }
    }

    void act(std::size_t index) {
        Peer& peer = swarm_.peer(index);
        if (peer.step != in || peer.handle() < 0 || !peer.asked.empty()) return;
        switch (random_.below(8)) {
            case 0:
                peer.queue(offer(options_.seed, random_.below(options_.files),
                                 1 + random_.below(kMostFiles)));
                break;
            case 1:
                peer.queue(
                    join_room(static_cast<std::uint16_t>(kFirstRoom + random_.below(kRooms))));
                break;
            case 2:
                peer.queue(room_message("is there anybody " + word(random_)));
                break;
            case 3:
                peer.queue(get_sources(hash_of(options_.seed, random_.below(options_.files))));
                break;
            case 4:
                peer.queue(search(word(random_), word(random_)));
                break;
            default:
                peer.queue(search(word(random_), ""));
        }
        // Not everything is answered; the answer to this question stands for all before it.
        peer.queue(find_nobody());
        peer.asked.push_back(Clock::now());
        static_cast<void>(peer.flush());
    }

    void heard(std::size_t index, std::uint8_t opcode) {
        Peer& peer = swarm_.peer(index);
        const bool let_in = peer.step == connecting && opcode == to_byte(Opcode::OP_ID_ASSIGNED);
        if (!let_in && opcode != to_byte(Opcode::OP_USER_FOUND)) return;
        if (peer.asked.empty()) return;
        const auto waited = static_cast<std::uint64_t>((Clock::now() - peer.asked.front()).count());
        peer.asked.pop_front();
        if (let_in) {
            peer.step = in;
            return;
        }
        latency_->record(waited);
        result_.latency.record(waited);
        ++result_.answers;
    }

    void write_line() {
        const Population population = population_of(options_).value_or(Population{});
        std::uint32_t connected = 0;
        for (std::size_t i = 0; i < swarm_.size(); ++i)
            connected += swarm_.peer(i).handle() >= 0 ? 1U : 0U;
        const auto us = [](std::uint64_t ns) { return static_cast<double>(ns) / 1000.0; };
        if (csv_) {
            std::fprintf(csv_.get(), "%.1f,%llu,%llu,%.2f,%u,%u,%u,%llu,%llu,%.0f,%.0f,%.0f,%llu\n",
                         std::chrono::duration<double>(Clock::now() - begin_).count(),
                         static_cast<unsigned long long>(server_.resident_bytes() / 1024),
                         static_cast<unsigned long long>(server_.descriptors()),
                         server_.processor_seconds(), population.users, population.files, connected,
                         static_cast<unsigned long long>(arrivals_),
                         static_cast<unsigned long long>(latency_->total()),
                         us(latency_->percentile(0.5)), us(latency_->percentile(0.99)),
                         us(latency_->max()), static_cast<unsigned long long>(swarm_.lost()));
            std::fflush(csv_.get());
        }
        most_ = std::max(most_, population.users);
        *latency_ = Histogram{};
    }

    // Everybody leaves at once; the server must forget them all.
    void finish() {
        result_.errors = swarm_.lost();
        write_line();
        for (std::size_t i = 0; i < swarm_.size(); ++i)
            swarm_.peer(i).close();
        Population left{1, 1};
        const auto end = Clock::now() + kEmptyWithin;
        while ((left.users != 0 || left.files != 0) && Clock::now() < end) {
            ::usleep(100'000);
            left = population_of(options_).value_or(left);
        }
        write_line();
        result_.seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
        const auto number = [](auto value) { return std::to_string(value); };
        result_.notes = {
            "latency: from an act's sending until the question behind it is answered",
            number(arrivals_) + " arrivals, at most " + number(most_) + " users at a time",
            "after the end " + number(left.users) + " users, " + number(left.files) + " files",
            "descriptors " + number(descriptors_) + " before, " + number(server_.descriptors()) +
                " after",
            "resident KiB " + number(resident_ / 1024) + " before, " +
                number(server_.resident_bytes() / 1024) + " after"};
        const bool clean =
            left.users == 0 && left.files == 0 && server_.descriptors() == descriptors_;
        if (!clean) ++result_.errors;
    }

    Options options_;
    Swarm swarm_;
    Random random_;
    ServerProcess server_;
    const std::uint64_t descriptors_;  // at the start
    const std::uint64_t resident_;
    CallBackDoor door_;
    std::unique_ptr<std::FILE, Closing> csv_;
    std::unique_ptr<Histogram> latency_ = std::make_unique<Histogram>();  // since the last line
    Result result_;
    const Clock::time_point begin_ = Clock::now();
    double owed_arrivals_ = 0;
    double owed_departures_ = 0;
    double owed_acts_ = 0;
    std::uint64_t arrivals_ = 0;
    std::uint32_t most_ = 0;
};

}  // namespace

Result run_soak(const Options& options) {
    return Soak(options).run();
}

}  // namespace vorrim::load

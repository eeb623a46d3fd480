// The scenarios over UDP: every socket keeps a number of datagrams open.

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Meter.h"
#include "Requests.h"
#include "Scenario.h"
#include "Swarm.h"
#include "base/file/primitives.h"

namespace vorrim::load {

namespace {

constexpr std::size_t kBatch = 64;
constexpr std::size_t kRoom = 2048;
constexpr std::chrono::milliseconds kLostAfter{500};
constexpr int kAttempts = 5;

sockaddr_in datagram_port(const Options& options) {
    const Target target = target_of(options);
    sockaddr_in far{};
    far.sin_family = AF_INET;
    far.sin_addr.s_addr = target.address;
    far.sin_port =
        htons(static_cast<std::uint16_t>(target.port + dialect_of(options.speak).datagram_offset));
    return far;
}

// A socket that is connected to the server's datagram port.
class DatagramSocket final {
public:
    explicit DatagramSocket(const Options& options)
        : handle_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in far = datagram_port(options);
        if (::connect(handle_, reinterpret_cast<const sockaddr*>(&far), sizeof far) != 0) {
            ::close(handle_);
            throw std::runtime_error("cannot open a datagram socket");
        }
    }
    ~DatagramSocket() {
        if (handle_ >= 0) ::close(handle_);
    }
    DatagramSocket(DatagramSocket&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
    DatagramSocket& operator=(DatagramSocket&&) = delete;
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    [[nodiscard]] int handle() const noexcept { return handle_; }

    // One question and its answer; asks again when nothing comes, and gives up in the end.
    [[nodiscard]] std::optional<Bytes> ask(const Bytes& request) const {
        for (int i = 0; i < kAttempts; ++i) {
            ::send(handle_, request.data(), request.size(), 0);
            pollfd watched{handle_, POLLIN, 0};
            if (::poll(&watched, 1, static_cast<int>(kLostAfter.count())) <= 0) continue;
            Bytes answer(kRoom);
            const ssize_t got = ::recv(handle_, answer.data(), answer.size(), MSG_DONTWAIT);
            if (got <= 0) continue;
            answer.resize(static_cast<std::size_t>(got));
            return answer;
        }
        return std::nullopt;
    }
    // The same where nothing can be done without an answer.
    [[nodiscard]] Bytes exchange(const Bytes& request) const {
        std::optional<Bytes> answer = ask(request);
        if (!answer) throw std::runtime_error("no answer by datagram");
        return *std::move(answer);
    }

private:
    int handle_;
};

using NextRequest = std::function<const Bytes&()>;

// Asks in batches and takes the answers in batches.
class DatagramRun final {
public:
    DatagramRun(const Options& options, const NextRequest& next)
        : options_(options),
          next_(next),
          depth_(std::min<std::size_t>(options.depth, kBatch)),
          epoll_(::epoll_create1(EPOLL_CLOEXEC)),
          room_(kBatch * kRoom) {}
    ~DatagramRun() { ::close(epoll_); }
    DatagramRun(const DatagramRun&) = delete;
    DatagramRun& operator=(const DatagramRun&) = delete;

    [[nodiscard]] Result run() {
        Result result;
        for (std::uint32_t i = 0; i < options_.connections; ++i) {
            sockets_.emplace_back(options_);
            asked_.emplace_back();
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u64 = i;
            ::epoll_ctl(epoll_, EPOLL_CTL_ADD, sockets_.back().handle(), &event);
        }
        Meter meter(options_, result);
        auto now = Clock::now();
        for (std::size_t i = 0; i < sockets_.size(); ++i)
            ask(i, depth_, now);
        while (meter.running(now)) {
            std::array<epoll_event, 64> events{};
            const int count = ::epoll_wait(epoll_, events.data(), events.size(), 100);
            now = Clock::now();
            for (int i = 0; i < count; ++i) {
                const std::size_t index = events[static_cast<std::size_t>(i)].data.u64;
                const std::size_t got = take(index);
                for (std::size_t k = 0; k < got; ++k)
                    meter.answered(asked_[index], now);
                ask(index, got, now);
            }
            // A socket whose datagrams were all lost starts again.
            for (std::size_t i = 0; i < sockets_.size() && count == 0; ++i) {
                if (now - asked_[i] < kLostAfter) continue;
                result.errors += depth_;
                ask(i, depth_, now);
            }
        }
        return result;
    }

private:
    void ask(std::size_t index, std::size_t count, Clock::time_point now) {
        for (std::size_t i = 0; i < count; ++i) {
            const Bytes& request = next_();
            pieces_[i] = {const_cast<std::byte*>(request.data()), request.size()};
        }
        asked_[index] = now;
        ::sendmmsg(sockets_[index].handle(), messages(), static_cast<unsigned>(count), 0);
    }

    [[nodiscard]] std::size_t take(std::size_t index) {
        for (std::size_t i = 0; i < kBatch; ++i)
            pieces_[i] = {room_.data() + i * kRoom, kRoom};
        const int got =
            ::recvmmsg(sockets_[index].handle(), messages(), kBatch, MSG_DONTWAIT, nullptr);
        return static_cast<std::size_t>(std::max(got, 0));
    }

    [[nodiscard]] mmsghdr* messages() {
        for (std::size_t i = 0; i < kBatch; ++i) {
            messages_[i].msg_hdr.msg_iov = &pieces_[i];
            messages_[i].msg_hdr.msg_iovlen = 1;
        }
        return messages_.data();
    }

    const Options& options_;
    const NextRequest& next_;
    std::size_t depth_;
    int epoll_;
    std::vector<DatagramSocket> sockets_;
    std::vector<Clock::time_point> asked_;  // when each socket last asked
    Bytes room_;
    std::array<iovec, kBatch> pieces_{};
    std::array<mmsghdr, kBatch> messages_{};
};

// A tracker learns of the sources of every file from as many announcements.
std::uint64_t fill_tracker(const Options& options) {
    const DatagramSocket socket(options);
    const std::uint64_t ticket = tracker_ticket(socket.exchange(tracker_connect()));
    for (std::uint64_t file = 0; file < options.files; ++file) {
        for (std::uint32_t port = 1; port <= options.sources; ++port) {
            static_cast<void>(socket.exchange(
                tracker_announce(options.seed, file, ticket, static_cast<std::uint16_t>(port))));
        }
    }
    return ticket;
}

}  // namespace

std::optional<Population> population_of(const Options& options) {
    constexpr std::size_t kUsersAt = 2 + 4;  // behind the codes and the challenge
    constexpr std::size_t kFilesAt = kUsersAt + 4;
    const std::optional<Bytes> answer = DatagramSocket(options).ask(datagram_status(0));
    if (!answer || answer->size() < kFilesAt + 4) return std::nullopt;
    return Population{load_32(answer->data() + kUsersAt), load_32(answer->data() + kFilesAt)};
}

Result run_tracker_list(const Options& options) {
    Result result;
    for (; result.answers < options.files; ++result.answers)
        result.notes.push_back(tracker_hash(options.seed, result.answers));
    return result;
}

Result run_udp_status(const Options& options) {
    const Bytes request = datagram_status(1);
    const NextRequest next = [&]() -> const Bytes& { return request; };
    return DatagramRun(options, next).run();
}

Result run_udp_sources(const Options& options) {
    const Dialect& dialect = dialect_of(options.speak);
    if (dialect.fetch_datagram == nullptr) {
        throw std::runtime_error(options.speak + " takes no datagrams");
    }
    Swarm holders(options);
    hold_files(holders, options);
    const std::uint64_t ticket = dialect.fetch == nullptr ? fill_tracker(options) : 0;
    std::vector<Bytes> requests;
    for (std::uint64_t file = 0; file < options.files; ++file)
        requests.push_back(dialect.fetch_datagram(options.seed, file, ticket));
    Random random(options.seed);
    const NextRequest next = [&]() -> const Bytes& {
        return requests[random.below(requests.size())];
    };
    return DatagramRun(options, next).run();
}

}  // namespace vorrim::load

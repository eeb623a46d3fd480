// The scenarios over UDP: every socket keeps a number of datagrams open.

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Requests.h"
#include "Scenario.h"
#include "Swarm.h"

namespace vorrim::load {

namespace {

constexpr std::uint16_t kDatagramOffset = 4;  // the datagram port stands this far above the other
constexpr std::size_t kBatch = 64;
constexpr std::size_t kRoom = 2048;
constexpr std::chrono::milliseconds kLostAfter{500};

Result run_udp(const Options& options, const std::function<Bytes()>& make_request) {
    Result result;
    const Target target = target_of(options);
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    std::vector<int> sockets;
    std::vector<Clock::time_point> asked;
    const auto send_batch = [&](std::size_t index, std::size_t count) {
        std::array<Bytes, kBatch> requests;
        std::array<iovec, kBatch> pieces{};
        std::array<mmsghdr, kBatch> messages{};
        for (std::size_t i = 0; i < count; ++i) {
            requests[i] = make_request();
            pieces[i] = {requests[i].data(), requests[i].size()};
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        asked[index] = Clock::now();
        ::sendmmsg(sockets[index], messages.data(), static_cast<unsigned>(count), 0);
    };
    const std::size_t depth = std::min<std::size_t>(options.depth, kBatch);
    for (std::uint32_t i = 0; i < options.connections; ++i) {
        const int handle = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_in far{};
        far.sin_family = AF_INET;
        far.sin_addr.s_addr = target.address;
        far.sin_port = htons(static_cast<std::uint16_t>(target.port + kDatagramOffset));
        if (::connect(handle, reinterpret_cast<const sockaddr*>(&far), sizeof far) != 0) {
            throw std::runtime_error("cannot open a datagram socket");
        }
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = i;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, handle, &event);
        sockets.push_back(handle);
        asked.emplace_back();
        send_batch(i, depth);
    }
    std::vector<std::byte> room(kBatch * kRoom);
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options.seconds));
    while (Clock::now() < end) {
        std::array<epoll_event, 64> events{};
        const int count = ::epoll_wait(epoll, events.data(), events.size(), 100);
        for (int i = 0; i < count; ++i) {
            const std::size_t index = events[static_cast<std::size_t>(i)].data.u64;
            std::array<iovec, kBatch> pieces{};
            std::array<mmsghdr, kBatch> messages{};
            for (std::size_t k = 0; k < kBatch; ++k) {
                pieces[k] = {room.data() + k * kRoom, kRoom};
                messages[k].msg_hdr.msg_iov = &pieces[k];
                messages[k].msg_hdr.msg_iovlen = 1;
            }
            const int got =
                ::recvmmsg(sockets[index], messages.data(), kBatch, MSG_DONTWAIT, nullptr);
            if (got <= 0) continue;
            const auto waited = static_cast<std::uint64_t>((Clock::now() - asked[index]).count());
            for (int k = 0; k < got; ++k)
                result.latency.record(waited);
            result.answers += static_cast<std::uint64_t>(got);
            send_batch(index, static_cast<std::size_t>(got));
        }
        // A socket whose datagrams were all lost starts again.
        const auto now = Clock::now();
        for (std::size_t index = 0; index < sockets.size() && count == 0; ++index) {
            if (now - asked[index] < kLostAfter) continue;
            result.errors += depth;
            send_batch(index, depth);
        }
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    for (const int handle : sockets)
        ::close(handle);
    ::close(epoll);
    return result;
}

}  // namespace

Result run_udp_status(const Options& options) {
    std::uint32_t challenge = 0;
    return run_udp(options, [&] { return datagram_status(++challenge); });
}

Result run_udp_sources(const Options& options) {
    Swarm holders(options);
    hold_files(holders, options);
    Random random(options.seed);
    return run_udp(options, [&] {
        return datagram_sources(hash_of(options.seed, random.below(options.files)));
    });
}

}  // namespace vorrim::load

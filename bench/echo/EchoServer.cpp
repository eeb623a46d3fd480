// How fast could a server be that has nothing to do? Takes requests of the size of a question for
// a file's sources and answers each with as many bytes as five sources take.
//
//     echo_server tcp PORT [THREADS]    edge-triggered epoll, one receive and one send a wake-up
//     echo_server udp PORT              recvmmsg and sendmmsg, 64 at a time
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kRequest = 22;
constexpr std::size_t kAnswer = 53;
constexpr std::size_t kDatagramAnswer = 49;
constexpr std::size_t kRoom = 64 * 1024;
constexpr std::size_t kBatch = 64;
constexpr std::size_t kDatagramRoom = 2048;

sockaddr_in on_loopback(unsigned long port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

int bound(int type, unsigned long port) {
    const int handle = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = on_loopback(port);
    if (::bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::perror("echo_server: bind");
        std::exit(1);
    }
    return handle;
}

void watch(int epoll, int handle) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.fd = handle;
    ::epoll_ctl(epoll, EPOLL_CTL_ADD, handle, &event);
}

// What is left of a request that came in part is forgotten: the generator sends whole ones.
void answer(int handle, std::vector<std::byte>& room, bool ended) {
    for (;;) {
        const ssize_t got = ::recv(handle, room.data(), kRoom, MSG_DONTWAIT);
        if (got <= 0) {
            if (got == 0 || errno != EAGAIN) ::close(handle);
            return;
        }
        const std::size_t requests = static_cast<std::size_t>(got) / kRequest;
        ::send(handle, room.data(), requests * kAnswer, MSG_NOSIGNAL);
        if (static_cast<std::size_t>(got) < kRoom && !ended) return;
    }
}

void serve(int epoll) {
    std::vector<std::byte> room(kRoom / kRequest * kAnswer + kRoom);
    std::array<epoll_event, 256> events{};
    for (;;) {
        const int count = ::epoll_wait(epoll, events.data(), events.size(), -1);
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            answer(event.data.fd, room, (event.events & (EPOLLRDHUP | EPOLLHUP)) != 0);
        }
    }
}

[[noreturn]] void serve_tcp(unsigned long port, unsigned long threads) {
    const int door = bound(SOCK_STREAM, port);
    // Accepted sockets inherit it.
    const int on = 1;
    ::setsockopt(door, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::listen(door, SOMAXCONN);
    std::vector<int> epolls;
    std::vector<std::jthread> workers;
    for (unsigned long i = 0; i < threads; ++i) {
        epolls.push_back(::epoll_create1(EPOLL_CLOEXEC));
        workers.emplace_back(serve, epolls.back());
    }
    for (std::size_t next = 0;; next = (next + 1) % epolls.size()) {
        const int handle = ::accept4(door, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        watch(epolls[next], handle);
    }
}

[[noreturn]] void serve_udp(unsigned long port) {
    const int handle = bound(SOCK_DGRAM, port);
    std::vector<std::byte> room(kBatch * kDatagramRoom);
    std::array<sockaddr_in, kBatch> peers{};
    std::array<iovec, kBatch> pieces{};
    std::array<mmsghdr, kBatch> messages{};
    for (;;) {
        for (std::size_t i = 0; i < kBatch; ++i) {
            pieces[i] = {room.data() + i * kDatagramRoom, kDatagramRoom};
            messages[i].msg_hdr = {&peers[i], sizeof peers[i], &pieces[i], 1, nullptr, 0, 0};
        }
        const int got = ::recvmmsg(handle, messages.data(), kBatch, MSG_WAITFORONE, nullptr);
        for (std::size_t i = 0; i < static_cast<std::size_t>(got > 0 ? got : 0); ++i)
            pieces[i].iov_len = kDatagramAnswer;
        if (got > 0) ::sendmmsg(handle, messages.data(), static_cast<unsigned>(got), 0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: echo_server tcp PORT [THREADS] | udp PORT\n");
        return 2;
    }
    const unsigned long port = std::strtoul(argv[2], nullptr, 10);
    if (std::string_view(argv[1]) == "udp") serve_udp(port);
    serve_tcp(port, argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 1);
}

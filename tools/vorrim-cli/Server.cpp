#include "Server.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <system_error>

#include "Failure.h"
#include "Text.h"

namespace vorrim::cli {

namespace {

// Why a connect came to nothing; 0 when it did not.
int pending_error(const kx_net_socket& socket) {
    int error = 0;
    socklen_t length = sizeof error;
    return ::getsockopt(socket.handle(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error
                                                                                     : EBADF;
}

}  // namespace

std::string within(std::chrono::milliseconds timeout) {
    return "within " + readable_time(timeout);
}

std::unique_ptr<kx_net_socket> connect_to(kx_net_protocol& net, const Server& server,
                                          SocketType type, std::chrono::milliseconds timeout) {
    const std::unique_ptr<kx_net_address> address = net.resolve(server.host);
    if (!address) throw Failure("no such host: " + printable(server.host));
    address->set_port(server.port);
    const std::string what = "cannot connect to " + printable(server.text()) + ": ";
    if (const std::string proxy = net.proxy_name(); !proxy.empty() && type == SocketType::stream) {
        std::unique_ptr<kx_net_socket> socket = net.connect(*address, type, ConnectMode::blocking);
        if (!socket) throw Failure(what + "no way through the proxy " + printable(proxy));
        socket->set_blocking(false);
        return socket;
    }
    std::unique_ptr<kx_net_socket> socket = net.connect(*address, type, ConnectMode::non_blocking);
    if (!socket) throw Failure(what + "the system gives no socket");
    const std::uint32_t ready =
        socket->wait_ready(kWritable | kException, static_cast<int>(timeout.count()));
    if (ready == 0) throw Failure(what + "no answer " + within(timeout));
    if (const int error = pending_error(*socket); error != 0) {
        throw Failure(what + std::generic_category().message(error));
    }
    if (!socket->connected()) throw Failure(what + "the network is unreachable");
    if (type == SocketType::stream) {
        // Requests are whole when they are written; holding them back would cost every answer the
        // peer's delayed acknowledgement.
        const int on = 1;
        ::setsockopt(socket->handle(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    return socket;
}

}  // namespace vorrim::cli

// Fuzz target: any bytes on a connection get whole HTTP replies or a closed connection from the front, in order.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "server/http_front.h"

namespace {

// One front for the whole run; it echoes the request's shape so decoding faults reach the reply.
int frontPort() {
    static const int port = [] {
        qv::server::FrontLimits limits;
        limits.maxBodyBytes = 4096;
        limits.maxHeaderBytes = 4096;
        limits.threads = 1;
        limits.headerDeadline = std::chrono::milliseconds(500);
        limits.bodyDeadline = std::chrono::milliseconds(500);
        limits.idleTimeout = std::chrono::milliseconds(500);
        auto *front = new qv::server::HttpFront(
            [](const qv::server::ServiceRequest &request) {
                return qv::server::ServiceResponse{
                    200, request.method + " " + request.path + " " + std::to_string(request.body.size()), {}};
            },
            limits);
        const int bound = front->bind("127.0.0.1", 0).value_or(0);
        std::thread([front] { front->serve(); }).detach();
        return bound;
    }();
    return port;
}

bool startsEveryReply(std::string_view replies) {
    // Replies follow one another; each begins with a status line, and a 100 Continue may come first.
    return replies.empty() || replies.rfind("HTTP/1.", 0) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(frontPort()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    timeval wait{5, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    if (::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        std::abort();
    }
    (void)::send(socket, data, size, MSG_NOSIGNAL);
    ::shutdown(socket, SHUT_WR);
    std::string replies;
    char chunk[4096];
    ssize_t got = 0;
    while ((got = ::recv(socket, chunk, sizeof chunk, 0)) > 0) {
        replies.append(chunk, static_cast<std::size_t>(got));
    }
    ::close(socket);
    // A front that neither answers nor closes within the wait has lost track of the connection.
    if (got < 0 || !startsEveryReply(replies)) {
        std::abort();
    }
    return 0;
}

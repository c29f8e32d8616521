// Loopback peers for network tests: a small HTTP server, a listener that never answers, and a port nobody holds.
#pragma once

#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace qv::test {

inline std::string loopbackUrl(int port) {
    return "http://127.0.0.1:" + std::to_string(port) + "/";
}

// An HTTP server on an ephemeral loopback port; routes are added by the test before start().
class LoopbackServer {
  public:
    LoopbackServer() = default;
    LoopbackServer(const LoopbackServer &) = delete;
    LoopbackServer &operator=(const LoopbackServer &) = delete;
    ~LoopbackServer() {
        server_.stop();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    httplib::Server &routes() { return server_; }

    void start() {
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    int port() const { return port_; }
    std::string url() const { return loopbackUrl(port_); }

  private:
    httplib::Server server_;
    std::thread thread_;
    int port_ = 0;
};

// A socket bound to an ephemeral loopback port, or -1.
inline int boundLoopbackSocket(int &port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (socket < 0 || ::bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        return -1;
    }
    port = ntohs(address.sin_port);
    return socket;
}

// Accepts connections in the kernel's backlog and never reads or answers: every request to it times out.
class SilentListener {
  public:
    SilentListener() : socket_(boundLoopbackSocket(port_)) { ::listen(socket_, 16); }
    SilentListener(const SilentListener &) = delete;
    SilentListener &operator=(const SilentListener &) = delete;
    ~SilentListener() { ::close(socket_); }
    std::string url() const { return loopbackUrl(port_); }

  private:
    int port_ = 0;
    int socket_;
};

// A loopback port that was free a moment ago and is closed again: connecting to it is refused.
inline int closedLoopbackPort() {
    int port = 0;
    const int socket = boundLoopbackSocket(port);
    ::close(socket);
    return port;
}

} // namespace qv::test

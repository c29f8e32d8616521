// A front served on a loopback port from a test thread, and a raw-socket client that sends exactly the bytes given.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <thread>
#include <utility>

#include "server/http_front.h"

namespace qv::test {

class RunningFront {
  public:
    RunningFront(server::RequestHandler handler, server::FrontLimits limits, server::MemoryHandler fromMemory = {})
        : front_(std::move(handler), limits, std::move(fromMemory)) {
        port_ = front_.bind("127.0.0.1", 0).value_or(0);
        thread_ = std::thread([this] { front_.serve(); });
    }
    ~RunningFront() {
        front_.stop();
        thread_.join();
    }
    RunningFront(const RunningFront &) = delete;
    RunningFront &operator=(const RunningFront &) = delete;
    int port() const { return port_; }
    server::HttpFront &front() { return front_; }

  private:
    server::HttpFront front_;
    int port_ = 0;
    std::thread thread_;
};

class RawClient {
  public:
    explicit RawClient(int port, int waitSeconds = 5) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // A front that never answers fails the test instead of hanging it.
        timeval wait{waitSeconds, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        connected_ = ::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(socket_); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    bool connected() const { return connected_; }
    void send(const std::string &bytes) const { (void)::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

    // Everything until the front closes the connection (or the wait runs out).
    std::string readToClose() const {
        std::string all;
        char chunk[4096];
        ssize_t got = 0;
        while ((got = ::recv(socket_, chunk, sizeof chunk, 0)) > 0) {
            all.append(chunk, static_cast<std::size_t>(got));
        }
        return all;
    }

    // Reads until at least `bytes` bytes have arrived (or the connection ends).
    std::string readBytes(std::size_t bytes) const {
        std::string all;
        char chunk[65536];
        while (all.size() < bytes) {
            const ssize_t got = ::recv(socket_, chunk, sizeof chunk, 0);
            if (got <= 0) {
                break;
            }
            all.append(chunk, static_cast<std::size_t>(got));
        }
        return all;
    }

    // Reads until `count` occurrences of the marker have arrived.
    std::string readUntil(const std::string &marker, int count) const {
        std::string all;
        char chunk[4096];
        auto occurrences = [&] {
            int found = 0;
            for (auto at = all.find(marker); at != std::string::npos; at = all.find(marker, at + 1)) {
                ++found;
            }
            return found;
        };
        while (occurrences() < count) {
            const ssize_t got = ::recv(socket_, chunk, sizeof chunk, 0);
            if (got <= 0) {
                break;
            }
            all.append(chunk, static_cast<std::size_t>(got));
        }
        return all;
    }

  private:
    int socket_;
    bool connected_ = false;
};

} // namespace qv::test

// The version service on a socket: cpp-httplib in front of VersionService.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "server/version_service.h"

namespace httplib {
class Server;
}

namespace qv::server {

class HttpFront {
  public:
    explicit HttpFront(VersionService &service);
    ~HttpFront();
    HttpFront(const HttpFront &) = delete;
    HttpFront &operator=(const HttpFront &) = delete;

    // Binds the address (port 0 picks a free port); the bound port, or nothing when binding failed.
    std::optional<int> bind(const std::string &host, int port);
    // Serves until stop() is called; false when the server could not run.
    bool serve();
    void stop();
    bool running() const;

  private:
    VersionService &service_;
    std::unique_ptr<httplib::Server> server_;
};

// "HOST:PORT" split; nothing when the text has no port or the port is not 0-65535.
std::optional<std::pair<std::string, int>> parseListenAddress(const std::string &text);

} // namespace qv::server

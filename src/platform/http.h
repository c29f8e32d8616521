// Port: outgoing HTTP, as the service client needs it (fire-and-forget sends and blocking fetches).
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qv {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    // In the order they are added; a name may repeat.
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<std::string> body;
    double timeoutSeconds = 60;
};

// The outcome of a fetch: a status and body when the server answered, otherwise a one-line error.
struct HttpResult {
    int status = 0;
    std::string body;
    std::optional<std::string> error;

    bool answered() const { return !error.has_value(); }
    // A 2xx answer.
    bool succeeded() const { return answered() && status >= 200 && status < 300; }
};

class Http {
  public:
    Http() = default;
    Http(const Http &) = delete;
    Http &operator=(const Http &) = delete;
    virtual ~Http() = default;

    // Starts the request and returns at once; its status, data and errors are dropped.
    virtual void send(const HttpRequest &request) = 0;
    // Performs the request and blocks until it completes; call it from a background queue only.
    // Only a GET or HEAD is carried on to where a redirect points; any other method's result is the redirect itself,
    // so that a body is never handed to an address the caller did not choose.
    virtual HttpResult fetch(const HttpRequest &request) = 0;
};

} // namespace qv

// The version service's request handling: routes, validation, storage calls and JSON replies, without sockets.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "storage.h"

namespace qv::server {

inline constexpr std::size_t kMaxBodyBytes = std::size_t{1024} * 1024;

struct ServiceRequest {
    std::string method;
    std::string path;
    std::multimap<std::string, std::string> query;
    std::string body;
};

struct ServiceResponse {
    int status = 0;
    std::string body; // always JSON
    std::vector<std::pair<std::string, std::string>> headers;
};

namespace status {
inline constexpr int kOk = 200;
inline constexpr int kBadRequest = 400;
inline constexpr int kNotFound = 404;
inline constexpr int kMethodNotAllowed = 405;
inline constexpr int kPayloadTooLarge = 413;
inline constexpr int kInternalError = 500;
inline constexpr int kServiceUnavailable = 503;
} // namespace status

// {"error": message} with the status.
ServiceResponse errorResponse(int status, const std::string &message);

class VersionService {
  public:
    explicit VersionService(VersionStorage &storage) : storage_(storage) {}

    ServiceResponse handle(const ServiceRequest &request) const;

  private:
    ServiceResponse versions(const ServiceRequest &request, const std::string &appIdText) const;
    ServiceResponse events(const ServiceRequest &request) const;
    ServiceResponse lookup(const ServiceRequest &request) const;

    VersionStorage &storage_;
};

} // namespace qv::server

// The version service's request handling: routes, validation, storage calls and JSON replies, without sockets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "server/storage.h"

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
// The HTTP status that answers a failure of this kind (500 for anything the client did not cause).
int statusFor(ErrorCode code);
// {"error": the failure's one line} with the status its code calls for.
ServiceResponse errorResponse(const Error &error);

// The versions lists already answered, so that repeated reads of a popular app skip the database. It only sees
// writes made through this process's service, which is the only writer of its database.
class VersionsReplyCache {
  public:
    static constexpr std::size_t kMaxApps = 100000;

    // A ticket taken before reading the database; storing with a stale ticket does nothing, so a reply read while
    // a report was being recorded never outlives that report.
    std::uint64_t ticket() const;
    std::optional<std::string> find(std::int64_t appId) const;
    void store(std::int64_t appId, std::uint64_t ticket, const std::string &reply);
    void invalidate(std::int64_t appId);

  private:
    mutable std::mutex mutex_;
    std::uint64_t generation_ = 0;
    std::unordered_map<std::int64_t, std::string> replies_;
};

class VersionService {
  public:
    explicit VersionService(VersionStorage &storage) : storage_(storage) {}

    ServiceResponse handle(const ServiceRequest &request) const;

  private:
    ServiceResponse versions(const ServiceRequest &request, const std::string &appIdText) const;
    ServiceResponse events(const ServiceRequest &request) const;
    ServiceResponse lookup(const ServiceRequest &request) const;

    VersionStorage &storage_;
    mutable VersionsReplyCache cache_;
};

} // namespace qv::server

// The version service's request handling: routes, validation, storage calls and JSON replies, without sockets.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "server/clients.h"
#include "server/pages.h"
#include "server/request_bodies.h"
#include "server/storage.h"

namespace qv::server {

// The routes the service answers; versions are under kAppsPrefix + ID + kVersionsSuffix, app pages under
// kAppPagePrefix + ID.
inline constexpr std::string_view kAppsPrefix = "/v1/apple_apps/";
inline constexpr std::string_view kVersionsSuffix = "/versions";
inline constexpr std::string_view kEventsRoute = "/v1/events";
inline constexpr std::string_view kLookupRoute = "/lookup";
inline constexpr std::string_view kSearchRoute = "/v1/apple_apps";
inline constexpr std::string_view kHomeRoute = "/";
inline constexpr std::string_view kSearchPageRoute = "/search";
inline constexpr std::string_view kAppPagePrefix = "/apps/";
inline constexpr std::string_view kStylesheetRoute = "/style.css";

inline constexpr std::size_t kMaxBodyBytes = std::size_t{1024} * 1024;
inline constexpr std::size_t kDefaultReplyCacheBytes = std::size_t{64} * 1024 * 1024;
// How long a client waits before retrying a write the database could not take.
inline constexpr std::string_view kRetryAfterSeconds = "5";
// Reads may be served from any cache for this long; a report shows up everywhere within a minute.
inline constexpr std::string_view kReadCacheControl = "public, max-age=60";

struct ServiceRequest {
    std::string method;
    std::string path;
    std::multimap<std::string, std::string> query;
    std::string body;
    std::multimap<std::string, std::string> headers; // names in lower case
    std::string peer;                                // the connection's remote address
};

struct ServiceResponse {
    int status = 0;
    std::string body; // JSON, or empty for 304
    std::vector<std::pair<std::string, std::string>> headers;
};

namespace status {
inline constexpr int kOk = 200;
inline constexpr int kNotModified = 304;
inline constexpr int kBadRequest = 400;
inline constexpr int kNotFound = 404;
inline constexpr int kMethodNotAllowed = 405;
inline constexpr int kConflict = 409;
inline constexpr int kPayloadTooLarge = 413;
inline constexpr int kTooManyRequests = 429;
inline constexpr int kInternalError = 500;
inline constexpr int kServiceUnavailable = 503;
inline constexpr int kInsufficientStorage = 507;
} // namespace status

// What one service accepts and keeps in memory; the storage has its own limits on what it keeps on disk.
struct ServiceLimits {
    std::size_t maxVersionsPerReport = kDefaultMaxVersionsPerReport;
    std::size_t replyCacheBytes = kDefaultReplyCacheBytes;
    // Reports and events one client may send per minute; 0 for no limit.
    std::size_t writesPerMinute = kDefaultWritesPerMinute;
    // A header (lower case) that a trusted proxy in front sets to the client's address; empty: the peer's address.
    std::string clientAddressHeader;

    static constexpr std::size_t kDefaultWritesPerMinute = 120;
};

// {"error": message} with the status.
ServiceResponse errorResponse(int status, const std::string &message);
// The HTTP status that answers a failure of this kind (500 for anything the client did not cause).
int statusFor(ErrorCode code);
// {"error": the failure's one line} with the status its code calls for.
ServiceResponse errorResponse(const Error &error);
// 405 with the methods the route takes in Allow; the message tells what to use (by default, those methods).
ServiceResponse methodNotAllowed(std::string_view allowed, std::string_view use = {});

// A strong entity tag for exactly these bytes, quoted as it goes on the wire.
std::string entityTagOf(std::string_view body);
// Whether an If-None-Match value (a list of tags, weak or strong, or "*") names the tag.
bool ifNoneMatchNames(std::string_view header, std::string_view entityTag);

// A body with its entity tag, computed once.
struct TaggedReply {
    std::string body;
    std::string entityTag;
};

// The versions lists already answered, so that repeated reads of a popular app skip the database. It only sees
// writes made through this process's service, which is the only writer of its database. It holds at most its
// byte budget, dropping lists not read since the last time room was made first (a second chance for each, in the
// order they were stored). Reads only share the lock: every socket thread reads here for nearly every request,
// and a thread that waited on another, preempted while holding the lock, would stall all of its connections.
class VersionsReplyCache {
  public:
    explicit VersionsReplyCache(std::size_t maxBytes = kDefaultReplyCacheBytes) : maxBytes_(maxBytes) {}

    // A ticket taken before reading the database; storing with a stale ticket does nothing, so a reply read while
    // a report was being recorded never outlives that report.
    std::uint64_t ticket() const;
    std::optional<TaggedReply> find(std::int64_t appId);
    void store(std::int64_t appId, std::uint64_t ticket, TaggedReply reply);
    void invalidate(std::int64_t appId);
    // What the cached replies cost, bookkeeping included.
    std::size_t bytes() const;
    // Lookups that found a reply.
    std::uint64_t hits() const { return hits_.load(std::memory_order_relaxed); }

  private:
    struct Entry {
        Entry(std::int64_t app, TaggedReply stored) : appId(app), reply(std::move(stored)) {}
        std::int64_t appId;
        TaggedReply reply;
        // Set by every read; making room spares an entry once for it.
        std::atomic<bool> read{false};
    };
    void eraseLocked(std::list<Entry>::iterator entry);

    const std::size_t maxBytes_;
    mutable std::shared_mutex mutex_;
    std::uint64_t generation_ = 0;
    std::list<Entry> oldestFirst_;
    std::unordered_map<std::int64_t, std::list<Entry>::iterator> byApp_;
    std::size_t bytes_ = 0;
    std::atomic<std::uint64_t> hits_{0};
};

class VersionService {
  public:
    explicit VersionService(VersionStorage &storage, const ServiceLimits &limits = {})
        : storage_(storage), limits_(limits), cache_(limits.replyCacheBytes), clientKey_(storage.clientKey()),
          writeRate_(limits.writesPerMinute) {}

    ServiceResponse handle(const ServiceRequest &request) const;
    // The reply handle() would give, when it can come from the reply cache alone; nothing otherwise. Never waits
    // for the database, so a socket thread may call it.
    std::optional<ServiceResponse> answerFromMemory(const ServiceRequest &request) const;

    // For the operator: storage calls that failed (refusals of bad reports not counted), and the reply cache.
    std::uint64_t databaseErrors() const { return databaseErrors_.load(std::memory_order_relaxed); }
    std::size_t replyCacheBytes() const { return cache_.bytes(); }
    std::uint64_t replyCacheHits() const { return cache_.hits(); }

  private:
    ServiceResponse versions(const ServiceRequest &request, const std::string &appIdText) const;
    ServiceResponse events(const ServiceRequest &request) const;
    ServiceResponse lookup(const ServiceRequest &request) const;
    // The pages for people and the search they share with the JSON API.
    ServiceResponse homePage(const ServiceRequest &request) const;
    ServiceResponse searchPage(const ServiceRequest &request) const;
    ServiceResponse appPage(const ServiceRequest &request, std::string_view appIdText) const;
    ServiceResponse stylesheet(const ServiceRequest &request) const;
    ServiceResponse searchApps(const ServiceRequest &request) const;
    // The page as HTML with the headers every page carries, or a JSON 500 when it could not be rendered.
    ServiceResponse htmlResponse(const ServiceRequest &request, int status, const Result<std::string> &page) const;
    ServiceResponse problemPage(const ServiceRequest &request, int status, std::string heading,
                                std::string message) const;
    // The sender's keyed hash, and a 429 when it has written too much lately.
    std::string clientOf(const ServiceRequest &request) const;
    std::optional<ServiceResponse> rateLimited(const std::string &client) const;
    // The failure, counted when the database itself failed.
    const Error &counted(const Error &failure) const;

    VersionStorage &storage_;
    const ServiceLimits limits_;
    mutable VersionsReplyCache cache_;
    const std::string clientKey_;
    mutable WriteRateLimiter writeRate_;
    mutable std::atomic<std::uint64_t> databaseErrors_{0};
    const PageRenderer pages_{};
};

} // namespace qv::server

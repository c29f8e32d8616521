// Routes of the version service and the JSON shapes it answers with.
#include "server/version_service.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/json.h"
#include "base/text.h"
#include "server/app_search.h"

namespace qv::server {

namespace {

constexpr std::size_t kRecentApps = 20;
// Pages load nothing but their own stylesheet and submit forms only here; no script runs at all.
constexpr std::string_view kPagePolicy = "default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; "
                                         "base-uri 'none'; frame-ancestors 'none'";
constexpr std::string_view kIfNoneMatch = "if-none-match";
// What a cached reply costs beyond its bytes: list node, hash bucket, string headers.
constexpr std::size_t kCacheEntryOverhead = 128;
constexpr std::uint64_t kFnvOffsetBasis = 0xcbf29ce484222325ULL;
constexpr std::uint64_t kFnvPrime = 0x100000001b3ULL;

ServiceResponse jsonResponse(const Value &body) {
    return ServiceResponse{status::kOk, toJson(body), {}};
}

ServiceResponse storageFailure(const Error &failure) {
    return errorResponse(fail(failure.code, "storage failure: " + failure.describe()));
}

// A write the database did not take is worth retrying: a full disk, a lock or a read-only file pass by themselves,
// and the storage reopens what it needs on the next write.
ServiceResponse writeFailure(const Error &failure) {
    if (failure.code != ErrorCode::StorageFailed) {
        return errorResponse(failure);
    }
    auto response =
        errorResponse(fail(ErrorCode::StorageUnavailable,
                           std::string(errorMessage(ErrorCode::StorageUnavailable)) + " (" + failure.describe() + ")"));
    response.headers.emplace_back("Retry-After", std::string(kRetryAfterSeconds));
    return response;
}

// 200 with the body, or 304 without it when the client already holds these bytes; both say how long to keep them.
ServiceResponse taggedResponse(const ServiceRequest &request, TaggedReply reply) {
    ServiceResponse response{
        status::kOk, {}, {{"ETag", reply.entityTag}, {"Cache-Control", std::string(kReadCacheControl)}}};
    const auto [first, last] = request.headers.equal_range(std::string(kIfNoneMatch));
    for (auto header = first; header != last; ++header) {
        if (ifNoneMatchNames(header->second, reply.entityTag)) {
            // A 304 may state a length only as the length of the body it stands for.
            response.status = status::kNotModified;
            response.headers.emplace_back("Content-Length", std::to_string(reply.body.size()));
            return response;
        }
    }
    response.body = std::move(reply.body);
    return response;
}

TaggedReply tagged(std::string body) {
    std::string entityTag = entityTagOf(body);
    return TaggedReply{std::move(body), std::move(entityTag)};
}

ServiceResponse badRequest(std::string reason) {
    return errorResponse(fail(ErrorCode::BadRequest, std::move(reason)));
}

bool isGet(const std::string &method) {
    return method == "GET" || method == "HEAD";
}

// The app identifier of "/v1/apple_apps/{id}/versions", or nothing when the path has another shape.
std::optional<std::string> versionsRouteId(std::string_view path) {
    if (path.size() <= kAppsPrefix.size() + kVersionsSuffix.size() ||
        path.substr(0, kAppsPrefix.size()) != kAppsPrefix ||
        path.substr(path.size() - kVersionsSuffix.size()) != kVersionsSuffix) {
        return std::nullopt;
    }
    const auto id = path.substr(kAppsPrefix.size(), path.size() - kAppsPrefix.size() - kVersionsSuffix.size());
    if (id.find('/') != std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(id);
}

Value lookupResults(const std::vector<AppSummary> &apps) {
    Array results;
    for (const auto &app : apps) {
        results.push_back(Value(Dictionary{{"trackId", app.appId},
                                           {"bundleId", app.bundleId},
                                           {"trackName", app.title},
                                           {"version", app.newestDisplay}}));
    }
    const auto count = static_cast<std::int64_t>(results.size());
    return Value(Dictionary{{"resultCount", count}, {"results", Value(std::move(results))}});
}

} // namespace

std::uint64_t VersionsReplyCache::ticket() const {
    const std::shared_lock<std::shared_mutex> lock(mutex_);
    return generation_;
}

std::optional<TaggedReply> VersionsReplyCache::find(std::int64_t appId) {
    const std::shared_lock<std::shared_mutex> lock(mutex_);
    const auto found = byApp_.find(appId);
    if (found == byApp_.end()) {
        return std::nullopt;
    }
    found->second->read.store(true, std::memory_order_relaxed);
    hits_.fetch_add(1, std::memory_order_relaxed);
    return found->second->reply;
}

void VersionsReplyCache::store(std::int64_t appId, std::uint64_t ticket, TaggedReply reply) {
    const std::unique_lock<std::shared_mutex> lock(mutex_);
    if (ticket != generation_) {
        return;
    }
    if (const auto found = byApp_.find(appId); found != byApp_.end()) {
        eraseLocked(found->second);
    }
    const std::size_t cost = reply.body.size() + reply.entityTag.size() + kCacheEntryOverhead;
    if (cost > maxBytes_) {
        return;
    }
    oldestFirst_.emplace_back(appId, std::move(reply));
    byApp_[appId] = std::prev(oldestFirst_.end());
    bytes_ += cost;
    // The new entry is last and unread, so this ends: at worst every older one is spared once and then goes.
    while (bytes_ > maxBytes_) {
        const auto oldest = oldestFirst_.begin();
        if (oldest->read.exchange(false, std::memory_order_relaxed)) {
            oldestFirst_.splice(oldestFirst_.end(), oldestFirst_, oldest);
        } else {
            eraseLocked(oldest);
        }
    }
}

void VersionsReplyCache::invalidate(std::int64_t appId) {
    const std::unique_lock<std::shared_mutex> lock(mutex_);
    ++generation_;
    if (const auto found = byApp_.find(appId); found != byApp_.end()) {
        eraseLocked(found->second);
    }
}

std::size_t VersionsReplyCache::bytes() const {
    const std::shared_lock<std::shared_mutex> lock(mutex_);
    return bytes_;
}

void VersionsReplyCache::eraseLocked(std::list<Entry>::iterator entry) {
    bytes_ -= entry->reply.body.size() + entry->reply.entityTag.size() + kCacheEntryOverhead;
    byApp_.erase(entry->appId);
    oldestFirst_.erase(entry);
}

std::string entityTagOf(std::string_view body) {
    std::uint64_t hash = kFnvOffsetBasis;
    for (const char byte : body) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * kFnvPrime;
    }
    // The length beside the hash: two replies of one resource that differ in length never share a tag.
    char tag[48];
    std::snprintf(tag, sizeof tag, "\"%016llx-%zx\"", static_cast<unsigned long long>(hash), body.size());
    return tag;
}

bool ifNoneMatchNames(std::string_view header, std::string_view entityTag) {
    std::size_t at = 0;
    while (true) {
        while (at < header.size() && (header[at] == ' ' || header[at] == '\t' || header[at] == ',')) {
            ++at;
        }
        if (at == header.size()) {
            return false;
        }
        if (header[at] == '*') {
            return true;
        }
        // If-None-Match compares weakly: W/"x" names the same bytes as "x".
        if (header.substr(at, 2) == "W/") {
            at += 2;
        }
        if (at == header.size() || header[at] != '"') {
            return false;
        }
        const auto closing = header.find('"', at + 1);
        if (closing == std::string_view::npos) {
            return false;
        }
        if (header.substr(at, closing + 1 - at) == entityTag) {
            return true;
        }
        at = closing + 1;
    }
}

ServiceResponse errorResponse(int status, const std::string &message) {
    return ServiceResponse{status, toJson(Value(Dictionary{{"error", message}})), {}};
}

int statusFor(ErrorCode code) {
    switch (code) {
    case ErrorCode::BadRequest:
    case ErrorCode::MalformedJson:
    case ErrorCode::TooManyVersions:
        return status::kBadRequest;
    case ErrorCode::NotFound:
        return status::kNotFound;
    case ErrorCode::MethodNotAllowed:
        return status::kMethodNotAllowed;
    case ErrorCode::Conflict:
        return status::kConflict;
    case ErrorCode::RateLimited:
        return status::kTooManyRequests;
    case ErrorCode::StorageFull:
        return status::kInsufficientStorage;
    case ErrorCode::PayloadTooLarge:
        return status::kPayloadTooLarge;
    case ErrorCode::StorageUnavailable:
        return status::kServiceUnavailable;
    default:
        return status::kInternalError;
    }
}

ServiceResponse errorResponse(const Error &error) {
    return errorResponse(statusFor(error.code), error.describe());
}

ServiceResponse methodNotAllowed(std::string_view allowed, std::string_view use) {
    auto response =
        errorResponse(fail(ErrorCode::MethodNotAllowed, std::string(errorMessage(ErrorCode::MethodNotAllowed)) +
                                                            "; use " + std::string(use.empty() ? allowed : use)));
    response.headers.emplace_back("Allow", std::string(allowed));
    return response;
}

ServiceResponse VersionService::handle(const ServiceRequest &request) const {
    if (request.body.size() > kMaxBodyBytes) {
        return errorResponse(fail(ErrorCode::PayloadTooLarge));
    }
    // Paths and query values end up in error messages and database lookups; bytes that are not text would make
    // both malformed.
    if (!isCleanText(request.path)) {
        return badRequest("the path is not valid UTF-8 or holds a NUL character");
    }
    for (const auto &[key, value] : request.query) {
        if (!isCleanText(key) || !isCleanText(value)) {
            return badRequest("the query is not valid UTF-8 or holds a NUL character");
        }
    }
    if (const auto appId = versionsRouteId(request.path)) {
        return versions(request, *appId);
    }
    if (request.path == kEventsRoute) {
        return events(request);
    }
    if (request.path == kLookupRoute) {
        return lookup(request);
    }
    if (request.path == kSearchRoute) {
        return searchApps(request);
    }
    if (request.path == kHomeRoute) {
        return homePage(request);
    }
    if (request.path == kSearchPageRoute) {
        return searchPage(request);
    }
    if (request.path == kStylesheetRoute) {
        return stylesheet(request);
    }
    if (request.path.rfind(kAppPagePrefix, 0) == 0) {
        return appPage(request, std::string_view(request.path).substr(kAppPagePrefix.size()));
    }
    return errorResponse(
        fail(ErrorCode::NotFound, std::string(errorMessage(ErrorCode::NotFound)) + ": " + request.path));
}

std::string VersionService::clientOf(const ServiceRequest &request) const {
    std::string_view address = request.peer;
    if (!limits_.clientAddressHeader.empty()) {
        if (const auto given = request.headers.find(limits_.clientAddressHeader); given != request.headers.end()) {
            address = given->second;
        }
    }
    return clientHash(clientKey_, address);
}

const Error &VersionService::counted(const Error &failure) const {
    if (failure.code == ErrorCode::StorageFailed) {
        databaseErrors_.fetch_add(1, std::memory_order_relaxed);
    }
    return failure;
}

std::optional<ServiceResponse> VersionService::rateLimited(const std::string &client) const {
    const auto wait = writeRate_.admit(client);
    if (!wait) {
        return std::nullopt;
    }
    auto refusal = errorResponse(fail(ErrorCode::RateLimited));
    refusal.headers.emplace_back("Retry-After", std::to_string(std::max<long long>(1, wait->count())));
    return refusal;
}

std::optional<ServiceResponse> VersionService::answerFromMemory(const ServiceRequest &request) const {
    if (!isGet(request.method) || !request.body.empty()) {
        return std::nullopt;
    }
    const auto appIdText = versionsRouteId(request.path);
    if (!appIdText) {
        return std::nullopt;
    }
    const auto appId = strictInteger(*appIdText);
    if (!appId) {
        return std::nullopt;
    }
    for (const auto &[key, value] : request.query) {
        if (!isCleanText(key) || !isCleanText(value)) {
            return std::nullopt;
        }
    }
    auto cached = cache_.find(*appId);
    if (!cached) {
        return std::nullopt;
    }
    return taggedResponse(request, std::move(*cached));
}

ServiceResponse VersionService::versions(const ServiceRequest &request, const std::string &appIdText) const {
    const bool post = request.method == "POST";
    if (!post && !isGet(request.method)) {
        return methodNotAllowed("GET, POST");
    }
    const auto appId = strictInteger(appIdText);
    if (!appId) {
        return badRequest("the app identifier must be decimal digits: " + appIdText);
    }
    if (post) {
        auto report = parseVersionReport(request.body, *appId, limits_.maxVersionsPerReport);
        if (!report) {
            return errorResponse(report.error());
        }
        report->client = clientOf(request);
        if (auto refusal = rateLimited(report->client)) {
            return std::move(*refusal);
        }
        const auto stored = storage_.recordReport(*report);
        cache_.invalidate(*appId);
        if (!stored) {
            return writeFailure(counted(stored.error()));
        }
        const auto recorded = static_cast<std::int64_t>(report->versions.size());
        return jsonResponse(Value(Dictionary{{"identifier", std::to_string(*appId)}, {"recorded", recorded}}));
    }
    if (auto cached = cache_.find(*appId)) {
        return taggedResponse(request, std::move(*cached));
    }
    const auto ticket = cache_.ticket();
    const auto versions = storage_.versionsOf(*appId);
    if (!versions) {
        return storageFailure(counted(versions.error()));
    }
    Array list;
    for (const auto &version : *versions) {
        list.push_back(Value(Dictionary{{"bundle_version", version.display},
                                        {"external_identifier", std::to_string(version.externalId)}}));
    }
    auto reply = tagged(toJson(Value(std::move(list))));
    cache_.store(*appId, ticket, reply);
    return taggedResponse(request, std::move(reply));
}

ServiceResponse VersionService::events(const ServiceRequest &request) const {
    if (request.method != "POST") {
        return methodNotAllowed("POST");
    }
    const auto event = parseSearchEvent(request.body);
    if (!event) {
        return errorResponse(event.error());
    }
    if (auto refusal = rateLimited(clientOf(request))) {
        return std::move(*refusal);
    }
    const auto stored = storage_.recordSearchEvent(*event);
    if (!stored) {
        return writeFailure(counted(stored.error()));
    }
    return jsonResponse(Value(Dictionary{{"recorded", true}}));
}

ServiceResponse VersionService::lookup(const ServiceRequest &request) const {
    if (!isGet(request.method)) {
        return methodNotAllowed("GET");
    }
    const auto id = request.query.find("id");
    const auto bundleId = request.query.find("bundleId");
    if ((id == request.query.end()) == (bundleId == request.query.end())) {
        return badRequest("give exactly one of the query parameters id and bundleId");
    }
    std::optional<std::int64_t> appId;
    if (id != request.query.end()) {
        const auto given = strictInteger(id->second);
        if (!given) {
            return badRequest("id must be decimal digits: " + id->second);
        }
        appId = *given;
    }
    const auto apps = appId ? storage_.appsWithId(*appId) : storage_.appsWithBundleId(bundleId->second);
    if (!apps) {
        return storageFailure(counted(apps.error()));
    }
    return taggedResponse(request, tagged(toJson(lookupResults(*apps))));
}

namespace {

// Pages are read-only: anything but GET or HEAD is refused before the database is asked.
std::optional<ServiceResponse> refuseUnlessGet(const ServiceRequest &request) {
    if (!isGet(request.method)) {
        return methodNotAllowed("GET");
    }
    return std::nullopt;
}

void addPageHeaders(ServiceResponse &response, std::string_view contentType) {
    response.headers.emplace_back("Content-Type", std::string(contentType));
    response.headers.emplace_back("Content-Security-Policy", std::string(kPagePolicy));
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    response.headers.emplace_back("Referrer-Policy", "no-referrer");
}

// The one value of a query parameter, or nothing when it is absent.
std::optional<std::string> queryValue(const ServiceRequest &request, const std::string &name) {
    const auto found = request.query.find(name);
    return found == request.query.end() ? std::nullopt : std::optional<std::string>(found->second);
}

// Where the person's browser reached this service, for commands it can paste.
std::string serviceAddressOf(const ServiceRequest &request) {
    const auto host = request.headers.find("host");
    return "http://" + (host != request.headers.end() && !host->second.empty() ? host->second : "HOST:PORT") + "/";
}

} // namespace

ServiceResponse VersionService::htmlResponse(const ServiceRequest &request, int status,
                                             const Result<std::string> &page) const {
    if (!page) {
        return errorResponse(page.error());
    }
    ServiceResponse response =
        status == status::kOk ? taggedResponse(request, tagged(*page)) : ServiceResponse{status, *page, {}};
    addPageHeaders(response, "text/html; charset=utf-8");
    return response;
}

ServiceResponse VersionService::problemPage(const ServiceRequest &request, int status, std::string heading,
                                            std::string message) const {
    return htmlResponse(request, status, pages_.problem(ProblemPage{std::move(heading), std::move(message)}));
}

ServiceResponse VersionService::homePage(const ServiceRequest &request) const {
    if (auto refusal = refuseUnlessGet(request)) {
        return std::move(*refusal);
    }
    HomePage page;
    auto totals = storage_.totals();
    if (!totals) {
        return storageFailure(totals.error());
    }
    page.totals = *totals;
    auto recent = storage_.recentlyReportedApps(kRecentApps);
    if (!recent) {
        return storageFailure(recent.error());
    }
    page.recent = std::move(*recent);
    page.serviceAddress = serviceAddressOf(request);
    return htmlResponse(request, status::kOk, pages_.home(page));
}

ServiceResponse VersionService::searchPage(const ServiceRequest &request) const {
    if (auto refusal = refuseUnlessGet(request)) {
        return std::move(*refusal);
    }
    SearchPage page;
    page.query = queryValue(request, "q").value_or("");
    const auto search = parseAppSearch(page.query);
    if (!search) {
        page.problem = "Cannot search for that: " + search.error().detail + ".";
        return htmlResponse(request, status::kBadRequest, pages_.search(page));
    }
    auto results = storage_.searchApps(*search, kMaxSearchResults);
    if (!results) {
        return storageFailure(results.error());
    }
    page.results = std::move(*results);
    return htmlResponse(request, status::kOk, pages_.search(page));
}

ServiceResponse VersionService::appPage(const ServiceRequest &request, std::string_view appIdText) const {
    if (auto refusal = refuseUnlessGet(request)) {
        return std::move(*refusal);
    }
    const auto appId = identifierFrom(appIdText);
    if (!appId) {
        return problemPage(request, status::kBadRequest, "Not a store identifier",
                           "A store identifier is decimal digits, as in /apps/284882215.");
    }
    auto apps = storage_.appsWithId(*appId);
    if (!apps) {
        return storageFailure(apps.error());
    }
    if (apps->empty()) {
        return problemPage(request, status::kNotFound, "Unknown app",
                           "No app with store identifier " + std::to_string(*appId) + " has been reported here.");
    }
    auto versions = storage_.versionHistoryOf(*appId);
    if (!versions) {
        return storageFailure(versions.error());
    }
    return htmlResponse(request, status::kOk, pages_.app(AppPage{apps->front(), std::move(*versions)}));
}

ServiceResponse VersionService::stylesheet(const ServiceRequest &request) const {
    if (auto refusal = refuseUnlessGet(request)) {
        return std::move(*refusal);
    }
    ServiceResponse response = taggedResponse(request, tagged(std::string(pages_.stylesheet())));
    addPageHeaders(response, "text/css; charset=utf-8");
    return response;
}

ServiceResponse VersionService::searchApps(const ServiceRequest &request) const {
    if (auto refusal = refuseUnlessGet(request)) {
        return std::move(*refusal);
    }
    const auto query = queryValue(request, "query");
    if (!query) {
        return badRequest("give the query parameter query: an app name, bundle identifier or store identifier");
    }
    const auto search = parseAppSearch(*query);
    if (!search) {
        return errorResponse(search.error());
    }
    const auto apps = storage_.searchApps(*search, kMaxSearchResults);
    if (!apps) {
        return storageFailure(apps.error());
    }
    Array results;
    for (const auto &app : *apps) {
        results.push_back(Value(Dictionary{{"identifier", std::to_string(app.appId)},
                                           {"bundle_id", app.bundleId},
                                           {"title", app.title},
                                           {"newest_version", app.newestDisplay},
                                           {"last_reported", isoTime(app.lastReportedAt)}}));
    }
    auto response = taggedResponse(request, tagged(toJson(Value(std::move(results)))));
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    return response;
}

} // namespace qv::server

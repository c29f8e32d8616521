// Routes of the version service and the JSON shapes it answers with.
#include "server/version_service.h"

#include "base/json.h"
#include "server/request_bodies.h"

namespace qv::server {

namespace {

constexpr std::string_view kAppsPrefix = "/v1/apple_apps/";
constexpr std::string_view kVersionsSuffix = "/versions";
constexpr std::string_view kEventsRoute = "/v1/events";
constexpr std::string_view kLookupRoute = "/lookup";

ServiceResponse jsonResponse(const Value &body) {
    return ServiceResponse{status::kOk, toJson(body), {}};
}

ServiceResponse methodNotAllowed(const std::string &allowed) {
    auto response = errorResponse(status::kMethodNotAllowed, "method not allowed; use " + allowed);
    response.headers.emplace_back("Allow", allowed);
    return response;
}

ServiceResponse storageFailure(const std::string &reason) {
    return errorResponse(status::kInternalError, "storage failure: " + reason);
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
    const std::lock_guard<std::mutex> lock(mutex_);
    return generation_;
}

std::optional<std::string> VersionsReplyCache::find(std::int64_t appId) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = replies_.find(appId);
    if (found == replies_.end()) {
        return std::nullopt;
    }
    return found->second;
}

void VersionsReplyCache::store(std::int64_t appId, std::uint64_t ticket, const std::string &reply) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (ticket != generation_) {
        return;
    }
    if (replies_.size() >= kMaxApps) {
        replies_.clear();
    }
    replies_[appId] = reply;
}

void VersionsReplyCache::invalidate(std::int64_t appId) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++generation_;
    replies_.erase(appId);
}

ServiceResponse errorResponse(int status, const std::string &message) {
    return ServiceResponse{status, toJson(Value(Dictionary{{"error", message}})), {}};
}

ServiceResponse VersionService::handle(const ServiceRequest &request) const {
    if (request.body.size() > kMaxBodyBytes) {
        return errorResponse(status::kPayloadTooLarge, "the body is larger than 1 MiB");
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
    return errorResponse(status::kNotFound, "no such resource: " + request.path);
}

ServiceResponse VersionService::versions(const ServiceRequest &request, const std::string &appIdText) const {
    const bool post = request.method == "POST";
    if (!post && !isGet(request.method)) {
        return methodNotAllowed("GET, POST");
    }
    const auto appId = identifierFrom(std::string_view(appIdText));
    if (!appId) {
        return errorResponse(status::kBadRequest, "the app identifier must be decimal digits: " + appIdText);
    }
    if (post) {
        auto report = parseVersionReport(request.body, *appId);
        if (!report.value) {
            return errorResponse(status::kBadRequest, report.error);
        }
        const auto stored = storage_.recordReport(*report.value);
        cache_.invalidate(*appId);
        if (!stored.ok()) {
            return storageFailure(stored.error);
        }
        const auto recorded = static_cast<std::int64_t>(report.value->versions.size());
        return jsonResponse(Value(Dictionary{{"identifier", std::to_string(*appId)}, {"recorded", recorded}}));
    }
    if (auto cached = cache_.find(*appId)) {
        return ServiceResponse{status::kOk, std::move(*cached), {}};
    }
    const auto ticket = cache_.ticket();
    const auto versions = storage_.versionsOf(*appId);
    if (!versions.ok()) {
        return storageFailure(versions.error);
    }
    Array list;
    for (const auto &version : *versions.value) {
        list.push_back(Value(Dictionary{{"bundle_version", version.display},
                                        {"external_identifier", std::to_string(version.externalId)}}));
    }
    auto response = jsonResponse(Value(std::move(list)));
    cache_.store(*appId, ticket, response.body);
    return response;
}

ServiceResponse VersionService::events(const ServiceRequest &request) const {
    if (request.method != "POST") {
        return methodNotAllowed("POST");
    }
    auto event = parseSearchEvent(request.body);
    if (!event.value) {
        return errorResponse(status::kBadRequest, event.error);
    }
    const auto stored = storage_.recordSearchEvent(*event.value);
    if (!stored.ok()) {
        return storageFailure(stored.error);
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
        return errorResponse(status::kBadRequest, "give exactly one of the query parameters id and bundleId");
    }
    StorageResult<std::vector<AppSummary>> apps;
    if (id != request.query.end()) {
        const auto appId = identifierFrom(std::string_view(id->second));
        if (!appId) {
            return errorResponse(status::kBadRequest, "id must be decimal digits: " + id->second);
        }
        apps = storage_.appsWithId(*appId);
    } else {
        apps = storage_.appsWithBundleId(bundleId->second);
    }
    if (!apps.ok()) {
        return storageFailure(apps.error);
    }
    return jsonResponse(lookupResults(*apps.value));
}

} // namespace qv::server

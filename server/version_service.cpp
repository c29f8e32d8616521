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
    auto response = errorResponse(
        fail(ErrorCode::MethodNotAllowed, std::string(errorMessage(ErrorCode::MethodNotAllowed)) + "; use " + allowed));
    response.headers.emplace_back("Allow", allowed);
    return response;
}

ServiceResponse storageFailure(const Error &failure) {
    return errorResponse(fail(failure.code, "storage failure: " + failure.describe()));
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

int statusFor(ErrorCode code) {
    switch (code) {
    case ErrorCode::BadRequest:
    case ErrorCode::MalformedJson:
        return status::kBadRequest;
    case ErrorCode::NotFound:
        return status::kNotFound;
    case ErrorCode::MethodNotAllowed:
        return status::kMethodNotAllowed;
    case ErrorCode::PayloadTooLarge:
        return status::kPayloadTooLarge;
    default:
        return status::kInternalError;
    }
}

ServiceResponse errorResponse(const Error &error) {
    return errorResponse(statusFor(error.code), error.describe());
}

ServiceResponse VersionService::handle(const ServiceRequest &request) const {
    if (request.body.size() > kMaxBodyBytes) {
        return errorResponse(fail(ErrorCode::PayloadTooLarge));
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
    return errorResponse(
        fail(ErrorCode::NotFound, std::string(errorMessage(ErrorCode::NotFound)) + ": " + request.path));
}

ServiceResponse VersionService::versions(const ServiceRequest &request, const std::string &appIdText) const {
    const bool post = request.method == "POST";
    if (!post && !isGet(request.method)) {
        return methodNotAllowed("GET, POST");
    }
    const auto appId = identifierFrom(std::string_view(appIdText));
    if (!appId) {
        return badRequest("the app identifier must be decimal digits: " + appIdText);
    }
    if (post) {
        const auto report = parseVersionReport(request.body, *appId);
        if (!report) {
            return errorResponse(report.error());
        }
        const auto stored = storage_.recordReport(*report);
        cache_.invalidate(*appId);
        if (!stored) {
            return storageFailure(stored.error());
        }
        const auto recorded = static_cast<std::int64_t>(report->versions.size());
        return jsonResponse(Value(Dictionary{{"identifier", std::to_string(*appId)}, {"recorded", recorded}}));
    }
    if (auto cached = cache_.find(*appId)) {
        return ServiceResponse{status::kOk, std::move(*cached), {}};
    }
    const auto ticket = cache_.ticket();
    const auto versions = storage_.versionsOf(*appId);
    if (!versions) {
        return storageFailure(versions.error());
    }
    Array list;
    for (const auto &version : *versions) {
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
    const auto event = parseSearchEvent(request.body);
    if (!event) {
        return errorResponse(event.error());
    }
    const auto stored = storage_.recordSearchEvent(*event);
    if (!stored) {
        return storageFailure(stored.error());
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
        appId = identifierFrom(std::string_view(id->second));
        if (!appId) {
            return badRequest("id must be decimal digits: " + id->second);
        }
    }
    const auto apps = appId ? storage_.appsWithId(*appId) : storage_.appsWithBundleId(bundleId->second);
    if (!apps) {
        return storageFailure(apps.error());
    }
    return jsonResponse(lookupResults(*apps));
}

} // namespace qv::server

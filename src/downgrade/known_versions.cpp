// Loading, mapping and ordering of an app's known versions.
#include "downgrade/known_versions.h"

#include <algorithm>
#include <utility>

#include "base/json.h"
#include "base/text.h"
#include "service/service_endpoints.h"
#include "service/version_compare.h"

namespace qv {

namespace {

inline constexpr double kFetchTimeoutSeconds = 60;

// Text properties accept numbers too, written in decimal, as the mapping library converts them.
bool readTextProperty(const Dictionary &object, std::string_view key, std::optional<std::string> &out) {
    const Value *value = object.find(Value(key));
    if (value == nullptr || value->isNull()) {
        return true;
    }
    if (value->asString() == nullptr && !value->isNumber()) {
        return false;
    }
    out = textOf(*value);
    return true;
}

std::int64_t sortKey(const QVVersion &version) {
    return version.external_identifier ? lenientInteger(*version.external_identifier) : 0;
}

// The service's answer read as a versions list; the body only counts with a 2xx status.
KnownVersions versionsFromReply(const HttpResult &reply) {
    if (!reply.answered()) {
        return fail(ErrorCode::ServiceUnreachable, *reply.error);
    }
    if (!reply.succeeded()) {
        return fail(ErrorCode::ServiceRefused, "the service answered with HTTP status " + std::to_string(reply.status));
    }
    const auto json = parseJson(reply.body);
    if (!json) {
        return fail(ErrorCode::MalformedReply, "the reply is not JSON: " + json.error().detail);
    }
    auto versions = versionsFromJson(*json);
    if (!versions) {
        return fail(ErrorCode::MalformedReply, "the reply is not a list of versions");
    }
    sortNewestFirst(*versions);
    return std::move(*versions);
}

} // namespace

std::string shownVersionText(const QVVersion &version) {
    if (!version.bundle_version) {
        return {};
    }
    return version.bundle_version->empty() ? std::string(kUnknownVersionText) : *version.bundle_version;
}

std::optional<std::vector<QVVersion>> versionsFromJson(const Value &json) {
    const Array *objects = json.asArray();
    if (objects == nullptr) {
        return std::nullopt;
    }
    std::vector<QVVersion> versions;
    versions.reserve(objects->size());
    for (const auto &item : *objects) {
        const Dictionary *object = item.asDictionary();
        QVVersion version;
        if (object == nullptr || !readTextProperty(*object, "bundle_version", version.bundle_version) ||
            !readTextProperty(*object, "external_identifier", version.external_identifier)) {
            return std::nullopt;
        }
        versions.push_back(std::move(version));
    }
    return versions;
}

void sortNewestFirst(std::vector<QVVersion> &versions) {
    std::stable_sort(versions.begin(), versions.end(),
                     [](const QVVersion &left, const QVVersion &right) { return sortKey(left) > sortKey(right); });
}

std::string knownVersionsUrl(std::string_view apiBaseUrl, std::string_view storeIdentifier) {
    std::string url(apiBaseUrl);
    url += versionsPath(storeIdentifier);
    return url;
}

void fetchKnownVersions(Http &http, Queues &queues, std::string_view apiBaseUrl, std::string_view storeIdentifier,
                        std::function<void(KnownVersions)> completion) {
    HttpRequest request;
    request.url = knownVersionsUrl(apiBaseUrl, storeIdentifier);
    request.timeoutSeconds = kFetchTimeoutSeconds;
    request.headers = {{"Accept", "application/json"}};
    queues.global().async([&http, &queues, request = std::move(request), completion = std::move(completion)]() mutable {
        KnownVersions known = versionsFromReply(http.fetch(request));
        queues.main().async(
            [completion = std::move(completion), known = std::move(known)]() mutable { completion(std::move(known)); });
    });
}

Value versionsToJson(const std::vector<QVVersion> &versions) {
    Array out;
    for (const auto &version : versions) {
        Dictionary object;
        if (version.bundle_version) {
            object.set("bundle_version", *version.bundle_version);
        }
        if (version.external_identifier) {
            object.set("external_identifier", *version.external_identifier);
        }
        out.push_back(Value(std::move(object)));
    }
    return Value(std::move(out));
}

} // namespace qv

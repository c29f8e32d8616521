// Version reports, search events and store lookups, built as the service and the store expect them.
#include "service/service_client.h"

#include <cmath>
#include <set>
#include <utility>

#include "base/json.h"
#include "base/regex.h"
#include "base/text.h"
#include "service/version_compare.h"

namespace qv {

namespace {

constexpr std::string_view kSearchQueryPattern = R"(input.*>(.*)<\/input>)";
constexpr std::string_view kAppLinkPattern = R"(\/id([\d]+)\?mt=8)";
constexpr std::size_t kCapturedText = 1;

const Regex *searchQueryRegex() {
    static const Regex *const regex = Regex::compile(kSearchQueryPattern).release();
    return regex;
}

const Regex *appLinkRegex() {
    static const Regex *const regex = Regex::compile(kAppLinkPattern).release();
    return regex;
}

bool hasJsonForm(const Value &value) {
    switch (value.kind()) {
    case Value::Kind::Bytes:
    case Value::Kind::Date:
        return false;
    case Value::Kind::Real:
        return std::isfinite(*value.asReal());
    case Value::Kind::Array:
        for (const auto &item : *value.asArray()) {
            if (!hasJsonForm(item)) {
                return false;
            }
        }
        return true;
    case Value::Kind::Dictionary:
        for (const auto &[key, item] : *value.asDictionary()) {
            if (key.asString() == nullptr || !hasJsonForm(item)) {
                return false;
            }
        }
        return true;
    default:
        return true;
    }
}

std::string bundleIdOf(const Value &firstResult) {
    const std::string *bundleId = firstResult["bundleId"].asString();
    return bundleId != nullptr ? *bundleId : std::string();
}

std::string storeIdentifierOf(const Value &firstResult) {
    const std::int64_t *trackId = firstResult["trackId"].asInteger();
    return trackId != nullptr ? std::to_string(*trackId) : std::string();
}

// The body counts whatever the status, as with the phone's blocking download: a 404 that carries results still
// answers. Only when it does not does the status explain why.
Result<std::string> lookupAnswer(const HttpResult &reply, std::string (*answerOf)(const Value &firstResult)) {
    if (!reply.answered()) {
        return fail(ErrorCode::ServiceUnreachable, *reply.error);
    }
    const auto json = parseJson(reply.body);
    if (json) {
        std::string answer = answerOf((*json)["results"][0]);
        if (!answer.empty()) {
            return answer;
        }
        const Array *results = (*json)["results"].asArray();
        if (results != nullptr && results->empty()) {
            return fail(ErrorCode::NotFound, "no such app");
        }
    }
    if (!reply.succeeded()) {
        return fail(ErrorCode::ServiceRefused, "the service answered with HTTP status " + std::to_string(reply.status));
    }
    if (!json) {
        return fail(ErrorCode::MalformedReply, "the reply is not JSON: " + json.error().detail);
    }
    return fail(ErrorCode::MalformedReply, "the reply holds no usable first result");
}

std::function<void(Result<std::string>)> answerOrEmpty(std::function<void(std::string)> completion) {
    return [completion = std::move(completion)](Result<std::string> reply) {
        completion(reply ? std::move(*reply) : std::string());
    };
}

Value versionReport(const Value &bundleId, const Value &identifier, const Value &title, Array versions) {
    return Value(Dictionary{{"bundle_id", bundleId},
                            {"identifier", identifier},
                            {"title", title},
                            {"versions", Value(std::move(versions))}});
}

} // namespace

std::string_view describe(ReportOutcome outcome) {
    switch (outcome) {
    case ReportOutcome::Sent:
        return "sent";
    case ReportOutcome::CachingDisabled:
        return "app caching is switched off (disableAppCaching_QV)";
    case ReportOutcome::MissingVersion:
        return "no version to report";
    case ReportOutcome::MissingField:
        return "the bundle identifier, store identifier, name or a version is missing";
    }
    return "unknown outcome";
}

BuiltReport reportFromStoreItem(const Value &item) {
    // A missing key and an explicit null read the same: both are absent to the platform.
    const Value &offers = item["offers"];
    if (offers[0]["version"].isNull()) {
        return {ReportOutcome::MissingVersion, std::nullopt};
    }
    const Value &bundleId = item["bundleId"];
    const Value &identifier = item["id"];
    const Value &name = item["name"];
    if (bundleId.isNull() || identifier.isNull() || name.isNull()) {
        return {ReportOutcome::MissingField, std::nullopt};
    }
    Array versions;
    for (const auto &offer : *offers.asArray()) {
        const Value &version = offer["version"];
        if (version.isNull()) {
            return {ReportOutcome::MissingField, std::nullopt};
        }
        versions.push_back(version);
    }
    return {ReportOutcome::Sent,
            VersionReportRequest{textOf(identifier), versionReport(bundleId, identifier, name, std::move(versions))}};
}

BuiltReport reportFromMetadata(const Value &metadata) {
    const Value &shortVersion = metadata["bundleShortVersionString"];
    const Value &externalId = metadata["softwareVersionExternalIdentifier"];
    if (shortVersion.isNull() || externalId.isNull()) {
        return {ReportOutcome::MissingVersion, std::nullopt};
    }
    const Value &bundleId = metadata["softwareVersionBundleId"];
    const Value &itemId = metadata["itemId"];
    const Value &itemName = metadata["itemName"];
    if (itemName.isNull() || itemId.isNull() || bundleId.isNull()) {
        return {ReportOutcome::MissingField, std::nullopt};
    }

    // The lower of bundle version and short version is shown, but only a dotted bundle version counts: a bare
    // build number says nothing about the marketing version.
    const Value &bundleVersion = metadata["bundleVersion"];
    const std::string candidate = textOf(bundleVersion.isNull() ? shortVersion : bundleVersion);
    const bool candidateIsLower = candidate.find('.') != std::string::npos &&
                                  isOlderThanVersion(candidate, std::string_view(textOf(shortVersion)));
    Array versions{
        Value(Dictionary{{"display", candidateIsLower ? Value(candidate) : shortVersion}, {"externalId", externalId}})};
    return {ReportOutcome::Sent,
            VersionReportRequest{textOf(itemId), versionReport(bundleId, itemId, itemName, std::move(versions))}};
}

BuiltReport reportFromArchiveMetadata(const Value &metadata) {
    BuiltReport report = reportFromMetadata(metadata);
    if (!report.request) {
        return report;
    }
    Array versions = *report.request->body["versions"].asArray();
    // The version the metadata describes may carry its identifier as text or as a number.
    std::set<std::string, std::less<>> named;
    for (const auto &version : versions) {
        named.insert(textOf(version["externalId"]));
    }
    const Array *listed = metadata["softwareVersionExternalIdentifiers"].asArray();
    for (const Value &identifier : listed != nullptr ? *listed : Array()) {
        const std::int64_t *number = identifier.asInteger();
        if (number != nullptr && *number >= 0 && named.insert(std::to_string(*number)).second) {
            versions.push_back(Value(Dictionary{{"display", ""}, {"externalId", *number}}));
        }
    }
    report.request->body.asDictionary()->set("versions", Value(std::move(versions)));
    return report;
}

std::optional<std::string> jsonBody(const Value &parameters) {
    const bool container = parameters.asArray() != nullptr || parameters.asDictionary() != nullptr;
    if (!container || !hasJsonForm(parameters)) {
        return std::nullopt;
    }
    return toJson(parameters);
}

HttpRequest makeJsonPost(std::string_view path, std::string_view baseUrl, const Value &parameters) {
    HttpRequest request;
    request.method = "POST";
    request.url = appendingPathComponent(baseUrl, path);
    request.timeoutSeconds = kPostTimeoutSeconds;
    request.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
    request.body = jsonBody(parameters);
    return request;
}

void postWithPath(Http &http, std::string_view path, std::string_view baseUrl, const Value &parameters) {
    http.send(makeJsonPost(path, baseUrl, parameters));
}

std::optional<std::string> queryStringFromHTML(std::optional<std::string_view> html) {
    const Regex *regex = searchQueryRegex();
    if (!html || regex == nullptr) {
        return std::nullopt;
    }
    const auto match = regex->firstMatch(*html);
    if (!match) {
        return std::nullopt;
    }
    return std::string(match->group(*html, kCapturedText));
}

std::vector<SearchResult> searchResultsFromHTML(std::string_view html) {
    std::vector<SearchResult> results;
    const Regex *regex = appLinkRegex();
    if (regex == nullptr) {
        return results;
    }
    std::set<std::string, std::less<>> seen;
    for (const auto &match : regex->allMatches(html)) {
        std::string appId(match.group(html, kCapturedText));
        if (seen.insert(appId).second) {
            const auto rank = static_cast<std::int64_t>(results.size()) + 1;
            results.push_back(SearchResult{std::move(appId), rank});
        }
    }
    return results;
}

ServiceClient::ServiceClient(Http &http, Queues &queues, const Preferences &preferences, ServiceEndpoints endpoints)
    : http_(http), queues_(queues), preferences_(preferences), endpoints_(std::move(endpoints)),
      workQueue_(queues.makeSerial(std::string(kWorkQueueLabel))) {}

std::string ServiceClient::apiBaseUrl() const {
    const auto chosen = preferences_.valueForKey(std::string(kServiceAddressKey));
    const std::string *address = chosen ? chosen->asString() : nullptr;
    // A stored text that is no address (an older build's, a hand-edited file) must not take the service away.
    if (address != nullptr && !address->empty() && checkServiceAddress(*address)) {
        return *address;
    }
    return endpoints_.apiBaseUrl;
}

void ServiceClient::postWithParameters(const Value &parameters) {
    postWithPath(http_, kEventsPath, apiBaseUrl(), parameters);
}

bool ServiceClient::appCachingDisabled() const {
    return preferences_.boolForKey(std::string(kDisableAppCachingKey));
}

ReportOutcome ServiceClient::cacheAppWithInfo(const Value &item) {
    if (appCachingDisabled()) {
        return ReportOutcome::CachingDisabled;
    }
    return post(reportFromStoreItem(item));
}

ReportOutcome ServiceClient::cacheAppWithMetadata(const Value &metadata) {
    if (appCachingDisabled()) {
        return ReportOutcome::CachingDisabled;
    }
    return post(reportFromMetadata(metadata));
}

ReportOutcome ServiceClient::post(const BuiltReport &report) {
    if (report.request) {
        postWithPath(http_, versionsPath(report.request->storeIdentifier), apiBaseUrl(), report.request->body);
    }
    return report.outcome;
}

void ServiceClient::cacheAppWithPurchaseDictionary(const Value &purchase) {
    (void)purchase;
}

void ServiceClient::appsForHTMLString(std::optional<std::string> html) {
    if (!html) {
        return;
    }
    workQueue_->async([this, page = std::move(*html)] { sendSearchEvent(page); });
}

void ServiceClient::sendSearchEvent(const std::string &html) {
    const auto query = queryStringFromHTML(std::string_view(html));
    if (!query) {
        return;
    }
    const auto results = searchResultsFromHTML(html);
    if (results.empty()) {
        return;
    }
    const auto previous = cached_.find(*query);
    if (previous != cached_.end() && previous->second == results.size()) {
        return;
    }
    cached_[*query] = results.size();

    Array resultObjects;
    for (const auto &result : results) {
        resultObjects.push_back(Value(Dictionary{{"appId", result.appId}, {"rank", result.rank}}));
    }
    Dictionary attributes{{"query", *query}, {"results", Value(std::move(resultObjects))}};
    for (const auto &[key, value] : extraAttributes()) {
        attributes.set(key, value);
    }
    postWithParameters(Value(Dictionary{{"name", "search"}, {"attributes", Value(std::move(attributes))}}));
}

void ServiceClient::getBundleIdWithStoreIdentifier(const std::string &storeIdentifier,
                                                   std::function<void(std::string)> completion) {
    lookUpBundleId(storeIdentifier, answerOrEmpty(std::move(completion)));
}

void ServiceClient::getStoreIdentifierWithBundleId(const std::string &bundleId,
                                                   std::function<void(std::string)> completion) {
    lookUpStoreIdentifier(bundleId, answerOrEmpty(std::move(completion)));
}

void ServiceClient::lookUpBundleId(const std::string &storeIdentifier, std::function<void(LookupReply)> completion) {
    lookUp("id", storeIdentifier, bundleIdOf, std::move(completion));
}

void ServiceClient::lookUpStoreIdentifier(const std::string &bundleId, std::function<void(LookupReply)> completion) {
    lookUp("bundleId", bundleId, storeIdentifierOf, std::move(completion));
}

void ServiceClient::lookUp(std::string_view key, std::string_view value, LookupAnswer answerOf,
                           std::function<void(LookupReply)> completion) {
    HttpRequest request;
    request.url = endpoints_.lookupBaseUrl + "lookup?" + std::string(key) + "=" + percentEncoded(value);
    // The task holds the ports, not the client, so it may finish after the client is gone.
    queues_.global().async([&http = http_, &queues = queues_, request = std::move(request), answerOf,
                            completion = std::move(completion)]() mutable {
        LookupReply answer = lookupAnswer(http.fetch(request), answerOf);
        queues.main().async([completion = std::move(completion), answer = std::move(answer)]() mutable {
            completion(std::move(answer));
        });
    });
}

void ServiceClient::setExtraAttribute(const Value &key, const Value &value) {
    const std::lock_guard<std::mutex> lock(extraAttributesMutex_);
    extraAttributes_.set(key, value);
}

Dictionary ServiceClient::extraAttributes() const {
    const std::lock_guard<std::mutex> lock(extraAttributesMutex_);
    return extraAttributes_;
}

} // namespace qv

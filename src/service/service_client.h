// The client of the version service and of the store lookup: version reports, search events, bundle lookups.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "base/value.h"
#include "platform/http.h"
#include "platform/preferences.h"
#include "platform/queue.h"
#include "service/service_endpoints.h"

namespace qv {

inline constexpr std::string_view kDisableAppCachingKey = "disableAppCaching_QV";
inline constexpr std::string_view kWorkQueueLabel = "com.mycompany.myqueue";
inline constexpr double kPostTimeoutSeconds = 60;

// Why a version report went out or not; the phone ignores it, the command-line tool explains it.
enum class ReportOutcome {
    Sent,
    CachingDisabled, // the user switched crowdsourcing off
    MissingVersion,  // no first offer with a version / no short version or external identifier
    MissingField,    // bundle identifier, store identifier, name or a later offer's version is missing
};
std::string_view describe(ReportOutcome outcome);

// A version report ready to go: the store identifier whose versions resource takes it, and the body.
struct VersionReportRequest {
    std::string storeIdentifier;
    Value body;
};
// A built report (outcome Sent: ready to send), or why none can be built.
struct BuiltReport {
    ReportOutcome outcome = ReportOutcome::Sent;
    std::optional<VersionReportRequest> request; // set exactly when outcome is Sent
};

// The report of an installed app's metadata: bundle id, store id, name and one version, and nothing else the
// metadata holds (it also carries the buyer's account). The switch is not consulted here.
BuiltReport reportFromMetadata(const Value &metadata);
// The metadata's report plus every external version identifier the store lists for the app
// ("softwareVersionExternalIdentifiers") that the report does not already name, each as a version whose display
// text is not known yet (""). The list holds integers; any other entry is left out.
BuiltReport reportFromArchiveMetadata(const Value &metadata);
// The report of a store item: bundle id, id, name and every offer's version. The switch is not consulted here.
BuiltReport reportFromStoreItem(const Value &item);

// Compact JSON for a request body, or nothing when the value has no JSON form (top level not an array or
// dictionary, a non-text key, bytes, a date or a non-finite number).
std::optional<std::string> jsonBody(const Value &parameters);

// The POST request the client sends: method, headers, timeout and body as the service expects them.
HttpRequest makeJsonPost(std::string_view path, std::string_view baseUrl, const Value &parameters);
// Sends makeJsonPost(...) and forgets it.
void postWithPath(Http &http, std::string_view path, std::string_view baseUrl, const Value &parameters);

struct SearchResult {
    std::string appId;
    std::int64_t rank = 0;
};

// The search text of a store search page: group 1 of the first "input…>(…)</input>" match.
std::optional<std::string> queryStringFromHTML(std::optional<std::string_view> html);
// The distinct app identifiers linked from a search page, in document order, ranked from 1.
std::vector<SearchResult> searchResultsFromHTML(std::string_view html);

class ServiceClient {
  public:
    ServiceClient(Http &http, Queues &queues, const Preferences &preferences, ServiceEndpoints endpoints);

    // The built-in addresses.
    const ServiceEndpoints &endpoints() const { return endpoints_; }
    // Where requests to the service go: the address the user set on the settings screen when there is one (read at
    // each request, so a change applies at once), else the built-in one.
    std::string apiBaseUrl() const;

    // POST to "v1/events" at the API base URL.
    void postWithParameters(const Value &parameters);

    // Version report from a store item ("bundleId", "id", "name", "offers"[…]."version").
    ReportOutcome cacheAppWithInfo(const Value &item);
    // Version report from an installed app's metadata.
    ReportOutcome cacheAppWithMetadata(const Value &metadata);
    // Purchases are not reported.
    void cacheAppWithPurchaseDictionary(const Value &purchase);

    // Parses a store search page on the work queue and sends a search event, once per (query, result count).
    void appsForHTMLString(std::optional<std::string> html);

    // Store lookups run on the global queue and complete on the main queue. The reply's body is read whatever the
    // HTTP status, so a 404 that still carries results answers; the completion gets "" only when the request
    // failed or the body holds no usable first result.

    // The bundle identifier of a store identifier.
    void getBundleIdWithStoreIdentifier(const std::string &storeIdentifier,
                                        std::function<void(std::string)> completion);
    // The store identifier (in decimal) of a bundle identifier.
    void getStoreIdentifierWithBundleId(const std::string &bundleId, std::function<void(std::string)> completion);

    // The same two lookups, saying why there is no answer: NotFound (the reply lists no app),
    // ServiceUnreachable (no reply; the detail is the Http port's one line), ServiceRefused (a status other than
    // 2xx and no result) or MalformedReply (not JSON, or a first result without the field asked for).
    using LookupReply = Result<std::string>;
    void lookUpBundleId(const std::string &storeIdentifier, std::function<void(LookupReply)> completion);
    void lookUpStoreIdentifier(const std::string &bundleId, std::function<void(LookupReply)> completion);

    // Entries added to every search event's attributes, replacing keys of the same name.
    void setExtraAttribute(const Value &key, const Value &value);
    Dictionary extraAttributes() const;

  private:
    // What a lookup reads from the first result of the reply; "" when the result lacks it.
    using LookupAnswer = std::string (*)(const Value &firstResult);
    void lookUp(std::string_view key, std::string_view value, LookupAnswer answerOf,
                std::function<void(LookupReply)> completion);
    void sendSearchEvent(const std::string &html);
    bool appCachingDisabled() const;
    ReportOutcome post(const BuiltReport &report);

    Http &http_;
    Queues &queues_;
    const Preferences &preferences_;
    ServiceEndpoints endpoints_;

    mutable std::mutex extraAttributesMutex_;
    Dictionary extraAttributes_;
    // Query text -> number of results last sent; touched on the work queue only.
    std::map<std::string, std::size_t, std::less<>> cached_;
    // Last, so that it is destroyed first: its pending tasks still use the members above.
    std::unique_ptr<Queue> workQueue_;
};

} // namespace qv

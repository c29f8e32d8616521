// Resolves a bundle identifier to the app's store identifier through the store's public lookup endpoint.
#include "darwin/service/store_lookup.h"

#include "base/json.h"
#include "base/text.h"

namespace qv::darwin {

StoreIdentifierLookup storeIdentifierLookup(Http &http, Queues &queues, std::string lookupBaseUrl) {
    return [&http, &queues, lookupBaseUrl = std::move(lookupBaseUrl)](const std::string &bundleIdentifier,
                                                                      std::function<void(std::string)> completion) {
        HttpRequest request;
        request.url = lookupBaseUrl + "lookup?bundleId=" + bundleIdentifier;
        queues.global().async([&http, &queues, request = std::move(request), completion = std::move(completion)] {
            std::string storeIdentifier;
            const HttpResult result = http.fetch(request);
            if (result.succeeded()) {
                if (const auto reply = parseJson(result.body)) {
                    storeIdentifier = textOf((*reply)["results"][0]["trackId"]);
                }
            }
            queues.main().async([completion, storeIdentifier] { completion(storeIdentifier); });
        });
    };
}

} // namespace qv::darwin

// The store lookup by bundle identifier (the offer button's "Downgrade" needs the app's store identifier).
#pragma once

#include "platform/http.h"
#include "platform/queue.h"
#include "store/purchase_initiated.h"

#include <string>

namespace qv::darwin {

// "lookup?bundleId=<id>" at the lookup base URL, fetched on the global queue; the answer is the first result's
// trackId as text, or "" when anything failed, delivered on the main queue.
StoreIdentifierLookup storeIdentifierLookup(Http &http, Queues &queues, std::string lookupBaseUrl);

} // namespace qv::darwin

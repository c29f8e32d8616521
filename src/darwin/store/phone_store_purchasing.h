// The StorePurchasing port on the phone, and the installed-app and submission steps the offer hooks share.
#pragma once

#include "downgrade/offer_decisions.h"
#include "platform/store_purchasing.h"

#import <Foundation/Foundation.h>

namespace qv::darwin {

class PhoneStorePurchasing final : public StorePurchasing {
  public:
    bool appInstalled(const std::string &bundleIdentifier) override;
    void submitPurchases(const std::string &storeIdentifier, const std::string &versionIdentifier,
                         bool installed) override;
};

// The system's application proxy by bundle identifier or by store identifier; nil when there is none.
id applicationProxyForIdentifier(NSString *bundleIdentifier);
id applicationProxyForItemID(NSNumber *storeIdentifier);
// What the proxy says about the installed version (a nil proxy: nothing).
ApplicationProxyFacts applicationProxyFacts(id proxy);
// Whether the system's application proxies know external version identifiers at all.
bool applicationProxiesKnowExternalVersions();

// Hands the purchases to the first submission interface the store has; a store exception is caught and dropped.
// False when they could not be handed over: no purchases, no interface, or the store raised.
bool submitToStore(NSArray *purchases);

} // namespace qv::darwin

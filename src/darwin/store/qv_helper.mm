// QVHelper: the store-state and purchase-building class methods, for callers that reach them by name at run time.
#include "darwin/core/guard.h"
#include "darwin/service/store_objects.h"
#include "darwin/store/phone_store_purchasing.h"
#include "downgrade/offer_decisions.h"
#include "store/item_state.h"

@interface QVHelper : NSObject
@end

@implementation QVHelper

+ (BOOL)installedAppState:(long long)state {
    return qv::installedAppState(static_cast<std::int32_t>(state)) ? YES : NO;
}

+ (BOOL)supportedAppState:(long long)state {
    return qv::supportedAppState(static_cast<std::int32_t>(state)) ? YES : NO;
}

+ (BOOL)updateAvailableAppState:(long long)state {
    return qv::updateAvailableAppState(static_cast<std::int32_t>(state)) ? YES : NO;
}

// The installed app's external version identifier; nil when the app or its version cannot be found.
+ (NSNumber *)versionIdentifierForAppWithID:(long long)storeIdentifier {
    NSNumber *version = nil;
    qv::darwin::guarded([&] {
        const auto facts = qv::darwin::applicationProxyFacts(qv::darwin::applicationProxyForItemID(@(storeIdentifier)));
        if (const auto identifier = qv::versionIdentifierForAppWithID(facts)) {
            version = @(*identifier);
        }
    });
    return version;
}

// The first argument of the builders is the app's store identifier, whatever the selectors say.
+ (id)offerFromLibraryItem:(id)storeIdentifier versionIdentifier:(id)version installed:(BOOL)installed {
    return qv::darwin::offerForStoreIdentifier(storeIdentifier, version, installed);
}

+ (id)itemFromLibraryItem:(id)storeIdentifier versionIdentifier:(id)version installed:(BOOL)installed {
    return qv::darwin::itemForStoreIdentifier(storeIdentifier, version, installed);
}

+ (NSArray *)purchasesFromLibraryItem:(id)storeIdentifier versionIdentifier:(id)version installed:(BOOL)installed {
    return qv::darwin::purchasesForStoreIdentifier(storeIdentifier, version, installed);
}

@end

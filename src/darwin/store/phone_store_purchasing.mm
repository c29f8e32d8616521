// Installed apps through the system's application proxies, and purchases handed to the store's machinery.
#include "darwin/store/phone_store_purchasing.h"

#include "darwin/core/guard.h"
#include "darwin/core/ownership.h"
#include "darwin/core/strings.h"
#include "darwin/service/store_objects.h"

#import <objc/message.h>

namespace qv::darwin {
namespace {

id sendClassMessage(const char *className, NSString *selectorName, id argument) {
    Class cls = objc_getClass(className);
    SEL selector = NSSelectorFromString(selectorName);
    if (cls == nil || ![cls respondsToSelector:selector]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL, id)>(objc_msgSend)(cls, selector, argument);
}

id sharedObject(const char *className, NSString *selectorName) {
    Class cls = objc_getClass(className);
    SEL selector = NSSelectorFromString(selectorName);
    if (cls == nil || ![cls respondsToSelector:selector]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(cls, selector);
}

} // namespace

id applicationProxyForIdentifier(NSString *bundleIdentifier) {
    id proxy = nil;
    guarded(
        [&] { proxy = sendClassMessage("LSApplicationProxy", @"applicationProxyForIdentifier:", bundleIdentifier); });
    return proxy;
}

id applicationProxyForItemID(NSNumber *storeIdentifier) {
    id proxy = nil;
    guarded([&] { proxy = sendClassMessage("LSApplicationProxy", @"applicationProxyForItemID:", storeIdentifier); });
    return proxy;
}

ApplicationProxyFacts applicationProxyFacts(id proxy) {
    ApplicationProxyFacts facts;
    guarded([&] {
        facts.exists = proxy != nil;
        if ([proxy respondsToSelector:NSSelectorFromString(@"externalVersionIdentifier")]) {
            id external = [proxy valueForKey:@"externalVersionIdentifier"];
            facts.externalVersionIdentifier =
                [external respondsToSelector:@selector(longLongValue)] ? [external longLongValue] : 0;
        } else if ([proxy respondsToSelector:NSSelectorFromString(@"bundleVersion")]) {
            facts.bundleVersion = toStdStringOrEmpty([proxy valueForKey:@"bundleVersion"]);
        }
    });
    return facts;
}

bool applicationProxiesKnowExternalVersions() {
    Class proxyClass = objc_getClass("LSApplicationProxy");
    return proxyClass != nil &&
           [proxyClass instancesRespondToSelector:NSSelectorFromString(@"externalVersionIdentifier")];
}

bool submitToStore(NSArray *purchases) {
    if (![purchases isKindOfClass:NSArray.class] || purchases.count == 0) {
        return false;
    }
    bool handedOver = false;
    const bool raisedNothing = guarded([&] {
        id center = sharedObject("SKUIItemStateCenter", @"defaultCenter");
        id context = sharedObject("ASClientContext", @"defaultContext");
        SEL threeArguments = NSSelectorFromString(@"_performPurchases:withClientContext:completionBlock:");
        SEL bundleAware =
            NSSelectorFromString(@"_performPurchases:hasBundlePurchase:withClientContext:completionBlock:");
        SEL addPurchases = NSSelectorFromString(@"addPurchases:withCompletionBlock:");
        Class managerClass = objc_getClass("SSPurchaseManager");
        if ([center respondsToSelector:threeArguments]) {
            reinterpret_cast<void (*)(id, SEL, id, id, id)>(objc_msgSend)(center, threeArguments, purchases, context,
                                                                          nil);
            handedOver = true;
        } else if ([center respondsToSelector:bundleAware]) {
            reinterpret_cast<void (*)(id, SEL, id, BOOL, id, id)>(objc_msgSend)(center, bundleAware, purchases, NO,
                                                                                context, nil);
            handedOver = true;
        } else if (managerClass != nil && [managerClass instancesRespondToSelector:addPurchases]) {
            typedef id (*ManagerInit)(QV_CONSUMED_SELF, SEL, id) QV_RETURNS_RETAINED;
            id manager = reinterpret_cast<ManagerInit>(objc_msgSend)(
                [managerClass alloc], NSSelectorFromString(@"initWithManagerIdentifier:"), nil);
            reinterpret_cast<void (*)(id, SEL, id, id)>(objc_msgSend)(manager, addPurchases, purchases, nil);
            handedOver = manager != nil;
        }
    });
    return raisedNothing && handedOver;
}

bool PhoneStorePurchasing::appInstalled(const std::string &bundleIdentifier) {
    return applicationProxyForIdentifier(toNSString(bundleIdentifier)) != nil;
}

void PhoneStorePurchasing::submitPurchases(const std::string &storeIdentifier, const std::string &versionIdentifier,
                                           bool installed) {
    guarded([&] {
        static_cast<void>(submitToStore(purchasesForStoreIdentifier(
            toNSString(storeIdentifier), toNSString(versionIdentifier), installed ? YES : NO)));
    });
}

} // namespace qv::darwin

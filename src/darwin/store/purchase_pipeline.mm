// Bodies on the store's purchase path: the purchase-manager intercept, document flags, the old purchase selector
// and the store references kept for sharedStore.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/downgrade/uikit_helper.h"
#include "store/purchase_initiated.h"
#include "store/purchase_intercept.h"

#import <Foundation/Foundation.h>
#import <objc/message.h>

#include <array>
#include <vector>

namespace qv::darwin {
namespace {

// One SSPurchase seen through the core's purchase interface.
class StorePurchase final : public Purchase {
  public:
    explicit StorePurchase(id purchase) : purchase_(purchase) {}
    id object() const { return purchase_; }
    std::string buyParameters() const override {
        std::string text;
        guarded([&] { text = toStdStringOrEmpty([purchase_ valueForKey:@"buyParameters"]); });
        return text;
    }
    bool isEqualTo(const Purchase &other) const override {
        const auto *store = dynamic_cast<const StorePurchase *>(&other);
        return store != nullptr && [purchase_ isEqual:store->purchase_];
    }

  private:
    id purchase_;
};

class StorePurchaseMaker final : public PurchaseMaker {
  public:
    PurchaseHandle purchaseWithBuyParameters(const std::string &buyParameters) override {
        Class purchaseClass = objc_getClass("SSPurchase");
        SEL make = NSSelectorFromString(@"purchaseWithBuyParameters:");
        if (purchaseClass == nil || ![purchaseClass respondsToSelector:make]) {
            return nullptr;
        }
        NSString *text = toNSString(buyParameters);
        id purchase = reinterpret_cast<id (*)(id, SEL, NSString *)>(objc_msgSend)(purchaseClass, make, text);
        return purchase == nil ? nullptr : std::make_shared<StorePurchase>(purchase);
    }
};

// The batch to queue in place of purchases. On any failure the store's own batch goes on unchanged, and the
// intercepted batch, dropped uncommitted, leaves its downgrades pending.
NSArray *interceptedPurchases(NSArray *purchases) {
    NSArray *batch = purchases;
    guarded([&] {
        if (![purchases isKindOfClass:NSArray.class]) {
            return;
        }
        std::vector<PurchaseHandle> queued;
        queued.reserve(purchases.count);
        for (id purchase in purchases) {
            queued.push_back(std::make_shared<StorePurchase>(purchase));
        }
        StorePurchaseMaker maker;
        InterceptedBatch intercepted = interceptPurchases(queued, pendingDowngrades(), maker);
        NSMutableArray *result = [NSMutableArray arrayWithCapacity:intercepted.purchases().size()];
        for (const PurchaseHandle &purchase : intercepted.purchases()) {
            const auto *store = dynamic_cast<const StorePurchase *>(purchase.get());
            if (store == nullptr || store->object() == nil) {
                return;
            }
            [result addObject:store->object()];
        }
        batch = result;
        intercepted.commit();
    });
    return batch;
}

MethodImplementation origManagerInit = nullptr;
MethodImplementation origAddPurchases = nullptr;

typedef id (*ManagerInitFunction)(QV_CONSUMED_SELF, SEL, id) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id purchaseManagerInit(QV_CONSUMED_SELF self, SEL _cmd, id identifier) {
    return callable<ManagerInitFunction>(origManagerInit)(self, _cmd, identifier);
}

void purchaseManagerAddPurchases(id self, SEL _cmd, NSArray *purchases, QVStoreBlock completion) {
    callable<void (*)(id, SEL, NSArray *, QVStoreBlock)>(origAddPurchases)(self, _cmd, interceptedPurchases(purchases),
                                                                           completion);
}

// The flag is attached under the getter's selector, which is unique per process.
const void *shouldHookKey() {
    return sel_registerName("shouldHookQV");
}

id appDocumentShouldHook(id self, SEL /*_cmd*/) {
    return objc_getAssociatedObject(self, shouldHookKey());
}

void appDocumentSetShouldHook(id self, SEL /*_cmd*/, id flag) {
    objc_setAssociatedObject(self, shouldHookKey(), flag, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

// Callers of the older three-argument form keep working on stores that only have the bundle-aware form.
void stateCenterPerformPurchases(id self, SEL /*_cmd*/, id purchases, id clientContext, QVStoreBlock completion) {
    guarded([&] {
        SEL bundleAware =
            NSSelectorFromString(@"_performPurchases:hasBundlePurchase:withClientContext:completionBlock:");
        if (![self respondsToSelector:bundleAware]) {
            return;
        }
        reinterpret_cast<void (*)(id, SEL, id, BOOL, id, QVStoreBlock)>(objc_msgSend)(self, bundleAware, purchases, NO,
                                                                                      clientContext, completion);
    });
}

void rememberStore(id store) {
    latestStore().remember(store);
}

MethodImplementation origPerformPurchase = nullptr;

using PerformPurchaseFunction = void (*)(id, SEL, id, QVStoreBlock);

// A purchase the prompt flow issued itself carries the marker: it goes through once, without it and unasked.
bool takeOwnPurchaseMarker(id purchase) {
    bool marked = false;
    guarded([&] {
        if (![purchase isKindOfClass:NSDictionary.class] || !takePurchaseMarker(valueFromObject(purchase)).issuedByUs) {
            return;
        }
        marked = true;
        if ([purchase isKindOfClass:NSMutableDictionary.class]) {
            [static_cast<NSMutableDictionary *>(purchase) removeObjectForKey:toNSString(kCustomPurchaseMarkerKey)];
        }
    });
    return marked;
}

// Every purchase of the redesigned store asks first; what the prompt hands back is submitted, whatever it says.
// The store's completion waits for the user's answer, so it is copied off the store's stack first.
void storePerformPurchase(id self, SEL _cmd, id purchase, QVStoreBlock completion) {
    const auto orig = callable<PerformPurchaseFunction>(origPerformPurchase);
    if (takeOwnPurchaseMarker(purchase)) {
        orig(self, _cmd, purchase, completion);
        return;
    }
    rememberStore(self);
    QVStoreBlock kept = [completion copy];
    const bool asked = guarded([&] {
        [QVUIKitHelper purchaseInitiatedFromStore:self
                                     withPurchase:purchase
                                       completion:^(BOOL /*rewritten*/, NSDictionary *chosen) {
                                         orig(self, _cmd, chosen, kept);
                                       }];
    });
    if (!asked) {
        orig(self, _cmd, purchase, completion);
    }
}

MethodImplementation origFetchStorePlatformData = nullptr;
MethodImplementation origFetchPlist = nullptr;
MethodImplementation origFetchJson = nullptr;
MethodImplementation origFetch = nullptr;
MethodImplementation origBeginFetches = nullptr;
MethodImplementation origCommitFetches = nullptr;
MethodImplementation origStoreInit = nullptr;
MethodImplementation origGlobalInit = nullptr;

// The store's fetch methods return whatever the store's private API returns; a raw pointer passes it through
// without reference counting, whatever its type.
using FetchSignature = void *(id, id, id);
using BatchSignature = void *();

typedef id (*StoreInitFunction)(QV_CONSUMED_SELF, SEL) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id storeInit(QV_CONSUMED_SELF self, SEL _cmd) {
    id store = callable<StoreInitFunction>(origStoreInit)(self, _cmd);
    rememberStore(store);
    return store;
}

id storeSharedStore(id /*self*/, SEL /*_cmd*/) {
    return latestStore().current();
}

typedef id (*GlobalInitFunction)(QV_CONSUMED_SELF, SEL, id, id, id, id, id, id, id, id) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id globalContextInit(QV_CONSUMED_SELF self, SEL _cmd, id bag, id client, id loc, id store,
                                         id storeMetrics, id user, id props, id randomSource) {
    id global = callable<GlobalInitFunction>(origGlobalInit)(self, _cmd, bag, client, loc, store, storeMetrics, user,
                                                             props, randomSource);
    rememberStore(store);
    return global;
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("SSPurchaseManager", "initWithManagerIdentifier:"), purchaseManagerInit>(origManagerInit),
    replacement<rowOf("SSPurchaseManager", "addPurchases:withCompletionBlock:"), purchaseManagerAddPurchases>(
        origAddPurchases),
    addition<rowOf("IKAppDocument", "shouldHookQV"), appDocumentShouldHook>(),
    addition<rowOf("IKAppDocument", "setShouldHookQV:"), appDocumentSetShouldHook>(),
    addition<rowOf("SKUIItemStateCenter", "_performPurchases:withClientContext:completionBlock:"),
             stateCenterPerformPurchases>(),
    replacement<rowOf("AppStoreKit.Store", "performPurchase::"), storePerformPurchase>(origPerformPurchase),
    replacement<rowOf("AppStoreKit.Store", "fetchStorePlatformData:::"),
                OrigThen<origFetchStorePlatformData, rememberStore, FetchSignature>::body>(origFetchStorePlatformData),
    replacement<rowOf("AppStoreKit.Store", "fetchPlist:::"),
                OrigThen<origFetchPlist, rememberStore, FetchSignature>::body>(origFetchPlist),
    replacement<rowOf("AppStoreKit.Store", "fetchJson:::"),
                OrigThen<origFetchJson, rememberStore, FetchSignature>::body>(origFetchJson),
    replacement<rowOf("AppStoreKit.Store", "fetch:::"), OrigThen<origFetch, rememberStore, FetchSignature>::body>(
        origFetch),
    replacement<rowOf("AppStoreKit.Store", "beginStorePlatformDataFetches"),
                OrigThen<origBeginFetches, rememberStore, BatchSignature>::body>(origBeginFetches),
    replacement<rowOf("AppStoreKit.Store", "commitStorePlatformDataFetches"),
                OrigThen<origCommitFetches, rememberStore, BatchSignature>::body>(origCommitFetches),
    replacement<rowOf("AppStoreKit.Store", "init"), storeInit>(origStoreInit),
    addition<rowOf("AppStoreKit.Store", "sharedStore"), storeSharedStore>(),
    replacement<rowOf("AppStoreKit.ASKGlobal", "initWithBag:client:loc:store:storeMetrics:user:props:randomSource:"),
                globalContextInit>(origGlobalInit),
};

} // namespace

} // namespace qv::darwin

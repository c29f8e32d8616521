// Bodies on the store's purchase path: the purchase-manager intercept, document flags, the old purchase selector
// and the store references kept for sharedStore (rows 9 to 12, 16 and 24 to 32).
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "store/purchase_intercept.h"

#import <Foundation/Foundation.h>
#import <objc/message.h>

#include <mutex>
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
        guarded([&] {
            id parameters = [purchase_ valueForKey:@"buyParameters"];
            if ([parameters isKindOfClass:NSString.class]) {
                text = static_cast<NSString *>(parameters).UTF8String;
            }
        });
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
        NSString *text = [NSString stringWithUTF8String:buyParameters.c_str()];
        id purchase = reinterpret_cast<id (*)(id, SEL, NSString *)>(objc_msgSend)(purchaseClass, make, text);
        return purchase == nil ? nullptr : std::make_shared<StorePurchase>(purchase);
    }
};

// The batch to queue in place of purchases; on any failure the store's own batch goes on unchanged.
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
        const auto rewritten = addPurchasesIntercept(queued, PendingDowngrades::shared(), maker);
        NSMutableArray *result = [NSMutableArray arrayWithCapacity:rewritten.size()];
        for (const PurchaseHandle &purchase : rewritten) {
            const auto *store = dynamic_cast<const StorePurchase *>(purchase.get());
            if (store == nullptr || store->object() == nil) {
                return;
            }
            [result addObject:store->object()];
        }
        batch = result;
    });
    return batch;
}

MethodImplementation origManagerInit = nullptr;
MethodImplementation origAddPurchases = nullptr;

typedef id (*ManagerInitFunction)(QV_CONSUMED_SELF, SEL, id) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id purchaseManagerInit(QV_CONSUMED_SELF self, SEL _cmd, id identifier) {
    return callable<ManagerInitFunction>(origManagerInit)(self, _cmd, identifier);
}

void purchaseManagerAddPurchases(id self, SEL _cmd, NSArray *purchases, id completion) {
    callable<void (*)(id, SEL, NSArray *, id)>(origAddPurchases)(self, _cmd, interceptedPurchases(purchases),
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
void stateCenterPerformPurchases(id self, SEL /*_cmd*/, id purchases, id clientContext, id completion) {
    guarded([&] {
        SEL bundleAware =
            NSSelectorFromString(@"_performPurchases:hasBundlePurchase:withClientContext:completionBlock:");
        if (![self respondsToSelector:bundleAware]) {
            return;
        }
        reinterpret_cast<void (*)(id, SEL, id, BOOL, id, id)>(objc_msgSend)(self, bundleAware, purchases, NO,
                                                                            clientContext, completion);
    });
}

// The most recent store object of the redesigned store; locked because the store calls in from its own threads.
// Function-local so nothing in this file needs a load-time initialiser that could run after the hooks exist.
struct RememberedStore {
    std::mutex mutex;
    id store = nil;
};

RememberedStore &remembered() {
    static RememberedStore slot;
    return slot;
}

void rememberStore(id store) {
    RememberedStore &slot = remembered();
    const std::lock_guard lock(slot.mutex);
    slot.store = store;
}

id rememberedStore() {
    RememberedStore &slot = remembered();
    const std::lock_guard lock(slot.mutex);
    return slot.store;
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
using FetchFunction = void *(*)(id, SEL, id, id, id);
using BatchFunction = void *(*)(id, SEL);

void *storeFetchStorePlatformData(id self, SEL _cmd, id first, id second, id third) {
    void *result = callable<FetchFunction>(origFetchStorePlatformData)(self, _cmd, first, second, third);
    rememberStore(self);
    return result;
}

void *storeFetchPlist(id self, SEL _cmd, id first, id second, id third) {
    void *result = callable<FetchFunction>(origFetchPlist)(self, _cmd, first, second, third);
    rememberStore(self);
    return result;
}

void *storeFetchJson(id self, SEL _cmd, id first, id second, id third) {
    void *result = callable<FetchFunction>(origFetchJson)(self, _cmd, first, second, third);
    rememberStore(self);
    return result;
}

void *storeFetch(id self, SEL _cmd, id first, id second, id third) {
    void *result = callable<FetchFunction>(origFetch)(self, _cmd, first, second, third);
    rememberStore(self);
    return result;
}

void *storeBeginFetches(id self, SEL _cmd) {
    void *result = callable<BatchFunction>(origBeginFetches)(self, _cmd);
    rememberStore(self);
    return result;
}

void *storeCommitFetches(id self, SEL _cmd) {
    void *result = callable<BatchFunction>(origCommitFetches)(self, _cmd);
    rememberStore(self);
    return result;
}

typedef id (*StoreInitFunction)(QV_CONSUMED_SELF, SEL) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id storeInit(QV_CONSUMED_SELF self, SEL _cmd) {
    id store = callable<StoreInitFunction>(origStoreInit)(self, _cmd);
    rememberStore(store);
    return store;
}

id storeSharedStore(id /*self*/, SEL /*_cmd*/) {
    return rememberedStore();
}

typedef id (*GlobalInitFunction)(QV_CONSUMED_SELF, SEL, id, id, id, id, id, id, id, id) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id globalContextInit(QV_CONSUMED_SELF self, SEL _cmd, id bag, id client, id loc, id store,
                                         id storeMetrics, id user, id props, id randomSource) {
    id global = callable<GlobalInitFunction>(origGlobalInit)(self, _cmd, bag, client, loc, store, storeMetrics, user,
                                                             props, randomSource);
    rememberStore(store);
    return global;
}

} // namespace

void bindPurchasePipelineBodies(HookBodies &bodies) {
    bodies["purchaseManagerInit"] = replacement(purchaseManagerInit, origManagerInit);
    bodies["purchaseManagerAddPurchases"] = replacement(purchaseManagerAddPurchases, origAddPurchases);
    bodies["appDocumentShouldHook"] = addition(appDocumentShouldHook);
    bodies["appDocumentSetShouldHook"] = addition(appDocumentSetShouldHook);
    bodies["stateCenterPerformPurchases"] = addition(stateCenterPerformPurchases);
    bodies["storeFetchStorePlatformData"] = replacement(storeFetchStorePlatformData, origFetchStorePlatformData);
    bodies["storeFetchPlist"] = replacement(storeFetchPlist, origFetchPlist);
    bodies["storeFetchJson"] = replacement(storeFetchJson, origFetchJson);
    bodies["storeFetch"] = replacement(storeFetch, origFetch);
    bodies["storeBeginFetches"] = replacement(storeBeginFetches, origBeginFetches);
    bodies["storeCommitFetches"] = replacement(storeCommitFetches, origCommitFetches);
    bodies["storeInit"] = replacement(storeInit, origStoreInit);
    bodies["storeSharedStore"] = addition(storeSharedStore);
    bodies["globalContextInit"] = replacement(globalContextInit, origGlobalInit);
}

} // namespace qv::darwin

// QVUpdatesHelper: the blocked-updates store under its run-time name, for callers that reach it by name.
#include "darwin/adapters/application_proxy_container.h"
#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/store/store_items.h"
#include "darwin/updates/update_objects.h"
#include "updates/blocked_updates.h"

#include <cstdint>
#include <vector>

@interface QVUpdatesHelper : NSObject
+ (instancetype)sharedInstance;
+ (NSURL *)appStoreDataContainerURL;
+ (NSArray *)mergeAvailableUpdates:(NSArray *)updates availableCount:(std::int64_t *)availableCount;
+ (NSMutableArray *)filteredCandidates:(NSArray *)candidates;
+ (NSMutableArray *)filteredASDSoftwareUpdates:(NSArray *)updates;
// A copy of the records: changes go through the methods below, which save and tell the other store process.
@property(nonatomic, readonly) NSMutableDictionary *blockedUpdates;
- (void)reloadBlockedUpdatesDict;
- (void)saveBlockedUpdatesToDisk;
- (BOOL)updateBlocked:(id)update;
- (void)unblockUpdate:(id)key;
- (void)unblockUpdate:(id)key notify:(BOOL)notify;
@end

namespace {

using qv::darwin::guarded;

qv::BlockedUpdates &store() {
    return qv::BlockedUpdates::shared();
}

} // namespace

@implementation QVUpdatesHelper

+ (instancetype)sharedInstance {
    static QVUpdatesHelper *shared = nil;
    static dispatch_once_t once;
    dispatch_once(&once, ^{
      shared = [QVUpdatesHelper new];
    });
    return shared;
}

+ (NSURL *)appStoreDataContainerURL {
    const auto directory = qv::darwin::ApplicationProxyContainer().dataContainerDirectory();
    return directory ? [NSURL fileURLWithPath:qv::darwin::toNSString(*directory)] : nil;
}

+ (NSArray *)mergeAvailableUpdates:(NSArray *)updates availableCount:(std::int64_t *)availableCount {
    return qv::darwin::unblockedAvailableUpdates(updates, availableCount) ?: updates;
}

+ (NSMutableArray *)filteredCandidates:(NSArray *)candidates {
    NSMutableArray *result = [candidates mutableCopy];
    guarded([&] {
        result = qv::darwin::keptElements(candidates,
                                          store().filteredCandidates(qv::darwin::answersOf(candidates, @"itemID")));
    });
    return result;
}

+ (NSMutableArray *)filteredASDSoftwareUpdates:(NSArray *)updates {
    NSMutableArray *result = [updates mutableCopy];
    guarded([&] {
        std::vector<std::int64_t> identifiers;
        for (id update in updates) {
            identifiers.push_back([qv::darwin::valueOrNil(update, @"storeItemIdentifier") longLongValue]);
        }
        result = qv::darwin::keptElements(updates, store().filteredASDSoftwareUpdates(identifiers));
    });
    return result;
}

- (NSMutableDictionary *)blockedUpdates {
    NSMutableDictionary *records = [NSMutableDictionary dictionary];
    guarded([&] {
        id copy = qv::darwin::objectFromValue(qv::Value(store().snapshot()));
        if ([copy isKindOfClass:NSDictionary.class]) {
            records = [copy mutableCopy];
        }
    });
    return records;
}

- (void)reloadBlockedUpdatesDict {
    guarded([] { store().reloadBlockedUpdatesDict(); });
}

- (void)saveBlockedUpdatesToDisk {
    guarded([] { static_cast<void>(store().saveBlockedUpdatesToDisk()); });
}

- (BOOL)updateBlocked:(id)update {
    bool blocked = false;
    guarded([&] { blocked = qv::darwin::updateObjectBlocked(update, store()); });
    return blocked ? YES : NO;
}

- (void)unblockUpdate:(id)key {
    guarded([&] { static_cast<void>(store().unblockUpdate(qv::darwin::valueFromObject(key))); });
}

- (void)unblockUpdate:(id)key notify:(BOOL)notify {
    guarded([&] { static_cast<void>(store().unblockUpdate(qv::darwin::valueFromObject(key), notify == YES)); });
}

@end

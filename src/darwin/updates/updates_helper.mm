// QVUpdatesHelper: the blocked-updates store under its run-time name, for callers that reach it by name.
#include "darwin/adapters/application_proxy_container.h"
#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
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
// The records themselves: a change made through this dictionary is in the store at once, and
// saveBlockedUpdatesToDisk writes it. (unblockUpdate: also saves and tells the other store process.)
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
    return qv::darwin::blockedUpdates();
}

} // namespace

// The shared store's records seen as a mutable dictionary: every read and write goes to the store itself, so the
// dictionary is never a detached copy whatever the caller keeps of it.
@interface QVLiveBlockedUpdates : NSMutableDictionary
@end

@implementation QVLiveBlockedUpdates

- (instancetype)init {
    return [super init];
}

- (instancetype)initWithCapacity:(NSUInteger)capacity {
    return [super init];
}

- (NSUInteger)count {
    NSUInteger count = 0;
    guarded([&] { count = store().snapshot().size(); });
    return count;
}

- (id)objectForKey:(id)key {
    id object = nil;
    guarded([&] {
        const qv::Value record = store().record(qv::darwin::valueFromObject(key));
        object = record.isNull() ? nil : qv::darwin::objectFromValue(record);
    });
    return object;
}

- (NSEnumerator *)keyEnumerator {
    NSMutableArray *keys = [NSMutableArray array];
    guarded([&] {
        for (const auto &[key, record] : store().snapshot()) {
            [keys addObject:qv::darwin::objectFromValue(key)];
        }
    });
    return keys.objectEnumerator;
}

- (void)setObject:(id)object forKey:(id<NSCopying>)key {
    guarded([&] { store().setRecord(qv::darwin::valueFromObject(key), qv::darwin::valueFromObject(object)); });
}

- (void)removeObjectForKey:(id)key {
    guarded([&] { store().removeRecord(qv::darwin::valueFromObject(key)); });
}

// Archived or copied, it is an ordinary dictionary of the records as they stand.
- (Class)classForCoder {
    return NSMutableDictionary.class;
}

@end

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
    static QVLiveBlockedUpdates *live = [QVLiveBlockedUpdates new];
    return live;
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

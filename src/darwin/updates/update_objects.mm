// Translates the store's update records, update items and application proxies for the blocked-updates core.
#include "darwin/updates/update_objects.h"

#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/store/store_items.h"

namespace qv::darwin {
bool updateObjectBlocked(id update, const BlockedUpdates &store) {
    if ([update isKindOfClass:NSDictionary.class]) {
        return store.updateBlocked(valueFromObject(update));
    }
    return store.updateBlocked(StoreUpdateItem{valueFromObject(valueOrNil(update, @"bundleIdentifier")),
                                               valueFromObject(valueOrNil(update, @"versionString"))});
}

NSMutableArray *keptElements(NSArray *elements, const std::vector<std::size_t> &kept) {
    NSMutableArray *result = [NSMutableArray arrayWithCapacity:kept.size()];
    for (const std::size_t position : kept) {
        [result addObject:elements[position]];
    }
    return result;
}

std::vector<Value> answersOf(NSArray *elements, NSString *getter) {
    std::vector<Value> answers;
    answers.reserve(elements.count);
    for (id element in elements) {
        answers.push_back(valueFromObject(valueOrNil(element, getter)));
    }
    return answers;
}

NSArray *unblockedAvailableUpdates(NSArray *updates, std::int64_t *availableCount) {
    NSArray *filtered = nil;
    guarded([&] {
        if (![updates isKindOfClass:NSArray.class]) {
            return;
        }
        std::int64_t keptCount = 0;
        const auto kept = blockedUpdates().mergeAvailableUpdates(answersOf(updates, @"updateDictionary"), &keptCount);
        NSMutableArray *result = keptElements(updates, kept);
        if (availableCount != nullptr) {
            *availableCount = keptCount;
        }
        filtered = result;
    });
    return filtered;
}

} // namespace qv::darwin

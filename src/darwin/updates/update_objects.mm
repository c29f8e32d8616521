// Translates the store's update records, update items and application proxies for the blocked-updates core.
#include "darwin/updates/update_objects.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/store/store_items.h"

namespace qv::darwin {
namespace {

bool isInstanceOf(id object, NSString *className) {
    Class cls = NSClassFromString(className);
    return cls != nil && [object isKindOfClass:cls];
}

std::optional<std::int64_t> integerOf(id number) {
    if (![number respondsToSelector:@selector(longLongValue)]) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>([number longLongValue]);
}

} // namespace

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
        const auto kept =
            BlockedUpdates::shared().mergeAvailableUpdates(answersOf(updates, @"updateDictionary"), &keptCount);
        NSMutableArray *result = keptElements(updates, kept);
        if (availableCount != nullptr) {
            *availableCount = keptCount;
        }
        filtered = result;
    });
    return filtered;
}

BlockableItem blockableItemOf(id item) {
    BlockableItem blockable;
    blockable.description = textForm(item).value_or("(null)");
    if (isInstanceOf(item, @"ASUpdateItem")) {
        blockable.kind = BlockableItem::Kind::UpdateItem;
        blockable.storeIdentifier = integerOf(valueOrNil(item, @"itemIdentifier"));
        blockable.version = toStdString(valueOrNil(item, @"versionString"));
    } else if (isInstanceOf(item, @"LSApplicationProxy")) {
        blockable.kind = BlockableItem::Kind::ApplicationProxy;
        blockable.storeIdentifier = integerOf(valueOrNil(item, @"itemID"));
        blockable.version = toStdString(valueOrNil(item, @"shortVersionString"));
    }
    return blockable;
}

} // namespace qv::darwin

// Reading the store's update objects into the core's terms: whether one is blocked, and what blocking it records.
#pragma once

#include "darwin/adapters/blockable_items.h"
#include "updates/blocked_updates.h"

#import <Foundation/Foundation.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qv::darwin {

// The store lists updates as records (dictionaries) or as update item objects; either is asked by bundle identifier.
bool updateObjectBlocked(id update, const BlockedUpdates &store);

// The daemon's updates to merge without the blocked ones (after reading the file again), or nil when they cannot
// be filtered. The kept count is written only on success, so a failure leaves the store's arguments as they came.
NSArray *unblockedAvailableUpdates(NSArray *updates, std::int64_t *availableCount);

// The elements of elements at the positions kept, in order.
NSMutableArray *keptElements(NSArray *elements, const std::vector<std::size_t> &kept);

// What each element answers for the getter; null for elements that do not answer it.
std::vector<Value> answersOf(NSArray *elements, NSString *getter);

} // namespace qv::darwin

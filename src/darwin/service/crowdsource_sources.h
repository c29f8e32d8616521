// What the phone reads for crowdsourcing: installed apps' store metadata, and a store page's item as a store item.
#pragma once

#import <Foundation/Foundation.h>

#include <vector>

#include "base/value.h"

namespace qv::darwin {

// The metadata of every installed app that came from the store, read from the app's bundle container. Only the
// store daemon may read those containers; elsewhere the list is empty.
std::vector<Value> installedAppsMetadata();

// An older store item object (identifier, bundle id, title, version) in the shape of the store's item data; null
// when it lacks any of them.
Value storeItemOf(id item);

} // namespace qv::darwin

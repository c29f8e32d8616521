// The block action's view of a store object: which app it stands for and which version it carries.
#pragma once

#include "updates/block_action.h"

#import <Foundation/Foundation.h>

namespace qv::darwin {

// An update item gives its itemIdentifier and versionString, an application proxy its itemID and
// shortVersionString; any other object, nil included, gives neither.
BlockableItem blockableItemOf(id item);

} // namespace qv::darwin

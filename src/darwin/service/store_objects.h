// Builders of the older store's item, offer and purchase objects for a downgrade purchase.
#pragma once

#import <Foundation/Foundation.h>

namespace qv::darwin {

// storeIdentifier and versionIdentifier are any objects whose text form is the decimal identifier.
// Each answers nil (or an empty array) when the store classes are missing or refuse the input.
id offerForStoreIdentifier(id storeIdentifier, id versionIdentifier, BOOL installed);
id itemForStoreIdentifier(id storeIdentifier, id versionIdentifier, BOOL installed);
NSArray *purchasesForStoreIdentifier(id storeIdentifier, id versionIdentifier, BOOL installed);

} // namespace qv::darwin

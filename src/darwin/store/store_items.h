// Reading the older store's item objects: optional properties, item states by identifier, an offer view's item.
#pragma once

#import <Foundation/Foundation.h>
#import <objc/message.h>

#include <cstdint>

namespace qv::darwin {

// The property's value, or nil when the object (possibly nil) does not answer it.
inline id valueOrNil(id object, NSString *key) {
    return [object respondsToSelector:NSSelectorFromString(key)] ? [object valueForKey:key] : nil;
}

// The low 32 bits of an item state's "state", which is all the store's state numbers use.
inline std::int32_t stateValueOf(id itemState) {
    return static_cast<std::int32_t>([valueOrNil(itemState, @"state") longLongValue]);
}

// The default state centre's state for a store identifier; nil without a centre.
inline id itemStateForIdentifier(id storeIdentifier) {
    Class center = objc_getClass("SKUIItemStateCenter");
    SEL defaultCenterSelector = NSSelectorFromString(@"defaultCenter");
    id defaultCenter = [center respondsToSelector:defaultCenterSelector]
                           ? reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(center, defaultCenterSelector)
                           : nil;
    SEL lookup = NSSelectorFromString(@"stateForItemWithIdentifier:");
    if (![defaultCenter respondsToSelector:lookup]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL, long long)>(objc_msgSend)(defaultCenter, lookup,
                                                                      [storeIdentifier longLongValue]);
}

// The library item an offer view stands for; nil when it has none.
inline id libraryItemOf(id offerView) {
    return valueOrNil(offerView, @"qv_libraryItem");
}

} // namespace qv::darwin

// Store item, offer and purchase objects made from a store identifier and a version, through the store's own classes.
#include "darwin/service/store_objects.h"

#include "darwin/core/guard.h"
#include "darwin/core/ownership.h"
#include "darwin/core/strings.h"
#include "service/buy_parameters.h"

#import <objc/message.h>
#import <objc/runtime.h>

namespace qv::darwin {
namespace {

constexpr long long kSoftwareItemKind = 12;

NSString *newPurchaseBuyParameters(id storeIdentifier, id versionIdentifier, BOOL installed) {
    const auto storeText = textForm(storeIdentifier);
    const auto versionText = textForm(versionIdentifier);
    return toNSString(qv::newPurchaseBuyParameters(
        storeText ? std::optional<std::string_view>(*storeText) : std::nullopt,
        versionText ? std::optional<std::string_view>(*versionText) : std::nullopt, installed));
}

id makeWithLookupDictionary(const char *className, NSDictionary *lookup) {
    Class cls = objc_getClass(className);
    SEL initializer = NSSelectorFromString(@"initWithLookupDictionary:");
    if (cls == nil || ![cls instancesRespondToSelector:initializer]) {
        return nil;
    }
    typedef id (*Initializer)(QV_CONSUMED_SELF, SEL, NSDictionary *) QV_RETURNS_RETAINED;
    return reinterpret_cast<Initializer>(objc_msgSend)([cls alloc], initializer, lookup);
}

} // namespace

id offerForStoreIdentifier(id storeIdentifier, id versionIdentifier, BOOL installed) {
    id offer = nil;
    guarded([&] {
        NSDictionary *lookup =
            @{@"buyParams" : newPurchaseBuyParameters(storeIdentifier, versionIdentifier, installed)};
        offer = makeWithLookupDictionary("SKUIItemOffer", lookup);
    });
    return offer;
}

id itemForStoreIdentifier(id storeIdentifier, id versionIdentifier, BOOL installed) {
    id item = nil;
    guarded([&] {
        NSMutableDictionary *lookup = [NSMutableDictionary dictionary];
        lookup[@"id"] = storeIdentifier;
        id made = makeWithLookupDictionary("SKUIItem", lookup);
        if (made == nil) {
            return;
        }
        [made setValue:offerForStoreIdentifier(storeIdentifier, versionIdentifier, installed) forKeyPath:@"_itemOffer"];
        [made setValue:storeIdentifier forKeyPath:@"_itemIdentifier"];
        [made setValue:@(kSoftwareItemKind) forKeyPath:@"_itemKind"];
        [made setValue:@"iosSoftware" forKeyPath:@"_itemKindString"];
        [made setValue:versionIdentifier forKeyPath:@"_versionIdentifier"];
        item = made;
    });
    return item;
}

NSArray *purchasesForStoreIdentifier(id storeIdentifier, id versionIdentifier, BOOL installed) {
    NSArray *purchases = @[];
    guarded([&] {
        id item = itemForStoreIdentifier(storeIdentifier, versionIdentifier, installed);
        Class center = objc_getClass("SKUIItemStateCenter");
        SEL makePurchases = NSSelectorFromString(@"_newPurchasesWithItems:");
        SEL defaultCenterSelector = NSSelectorFromString(@"defaultCenter");
        if (item == nil || center == nil || ![center respondsToSelector:defaultCenterSelector]) {
            return;
        }
        id defaultCenter = reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(center, defaultCenterSelector);
        if (![defaultCenter respondsToSelector:makePurchases]) {
            return;
        }
        // The "new" prefix makes the store hand the array over owned; the attribute tells ARC so.
        typedef NSArray *(*Maker)(id, SEL, NSArray *)QV_RETURNS_RETAINED;
        NSArray *made = reinterpret_cast<Maker>(objc_msgSend)(defaultCenter, makePurchases, @[ item ]);
        if ([made isKindOfClass:NSArray.class]) {
            purchases = made;
        }
    });
    return purchases;
}

} // namespace qv::darwin

// Reads update items and application proxies for the block action, and QVUIKitHelper's block entry points.
#include "darwin/adapters/blockable_items.h"

#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/uikit_helper.h"
#include "updates/blocked_list_model.h"

namespace qv::darwin {
namespace {

// The property's value, or nil when the object does not answer it.
id propertyOf(id object, NSString *name) {
    return [object respondsToSelector:NSSelectorFromString(name)] ? [object valueForKey:name] : nil;
}

bool isKindOfClassNamed(id object, NSString *className) {
    Class named = NSClassFromString(className);
    return named != nil && [object isKindOfClass:named];
}

} // namespace

BlockableItem blockableItemOf(id item) {
    BlockableItem blockable;
    guarded([&] {
        blockable.description = textForm(item).value_or(std::string(kNilText));
        NSString *identifierName = nil;
        NSString *versionName = nil;
        if (isKindOfClassNamed(item, @"ASUpdateItem")) {
            blockable.kind = BlockableItem::Kind::UpdateItem;
            identifierName = @"itemIdentifier";
            versionName = @"versionString";
        } else if (isKindOfClassNamed(item, @"LSApplicationProxy")) {
            blockable.kind = BlockableItem::Kind::ApplicationProxy;
            identifierName = @"itemID";
            versionName = @"shortVersionString";
        } else {
            return;
        }
        id identifier = propertyOf(item, identifierName);
        if ([identifier respondsToSelector:@selector(longLongValue)]) {
            blockable.storeIdentifier = [identifier longLongValue];
        }
        blockable.version = toStdString(propertyOf(item, versionName));
    });
    return blockable;
}

} // namespace qv::darwin

@interface QVUIKitHelper (BlockUpdate)
+ (void)blockUpdate:(id)item allUpdates:(BOOL)allUpdates;
+ (void)blockUpdate:(id)item allUpdates:(BOOL)allUpdates notify:(BOOL)notify;
@end

@implementation QVUIKitHelper (BlockUpdate)

+ (void)blockUpdate:(id)item allUpdates:(BOOL)allUpdates {
    qv::darwin::guarded(
        [&] { qv::darwin::updateBlocker().blockUpdate(qv::darwin::blockableItemOf(item), allUpdates == YES); });
}

+ (void)blockUpdate:(id)item allUpdates:(BOOL)allUpdates notify:(BOOL)notify {
    qv::darwin::guarded([&] {
        qv::darwin::updateBlocker().blockUpdate(qv::darwin::blockableItemOf(item), allUpdates == YES, notify == YES);
    });
}

@end

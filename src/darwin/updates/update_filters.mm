// Bodies that keep blocked updates out of the updates page's sections and out of the store daemon's updates
// database, and the daemon's copy pass-through.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/updates/update_objects.h"
#include "updates/blocked_updates.h"

#import <Foundation/Foundation.h>
#import <objc/message.h>

#include <array>
#include <cstdint>

namespace qv::darwin {
namespace {

// The object an element answers for a getter it may lack; nil when it does not respond.
id answerOf(id object, NSString *getter) {
    SEL selector = NSSelectorFromString(getter);
    if (![object respondsToSelector:selector]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(object, selector);
}

std::string localisedAppText(std::string_view key) {
    NSString *text = [NSBundle.mainBundle localizedStringForKey:toNSString(key) value:@"" table:nil];
    return toStdStringOrEmpty(text);
}

std::optional<std::string> sectionTitle(id section) {
    id title = answerOf(section, @"title");
    return toStdString(title);
}

MethodImplementation origSectionItems = nullptr;
MethodImplementation origCopyUpdates = nullptr;
MethodImplementation origMergeAvailableUpdates = nullptr;

// Only the available and pending sections are filtered; the records are used as they are, since the page
// reloads them when the app returns to the foreground.
NSArray *updatesSectionItems(id self, SEL _cmd) {
    NSArray *items = callable<NSArray *(*)(id, SEL)>(origSectionItems)(self, _cmd);
    NSArray *shown = items;
    guarded([&] {
        if (![items isKindOfClass:NSArray.class]) {
            return;
        }
        const UpdatesSectionTitles titles{localisedAppText(kAvailableUpdatesTitleKey),
                                          localisedAppText(kPendingUpdatesTitleKey)};
        if (!sectionHidesBlockedUpdates(sectionTitle(self), titles)) {
            return;
        }
        const BlockedUpdates &store = blockedUpdates();
        NSMutableArray *kept = [NSMutableArray arrayWithCapacity:items.count];
        for (id element in items) {
            if (!updateObjectBlocked(element, store)) {
                [kept addObject:element];
            }
        }
        shown = kept;
    });
    return shown;
}

typedef id (*CopyUpdatesFunction)(id, SEL) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id softwareUpdatesCopyUpdates(id self, SEL _cmd) {
    return callable<CopyUpdatesFunction>(origCopyUpdates)(self, _cmd);
}

// The store's result passes through untouched in its register, whether it is a flag or an object.
using MergeFunction = void *(*)(id, SEL, NSArray *, std::int64_t *);

void *updatesDatabaseMerge(id self, SEL _cmd, NSArray *updates, std::int64_t *availableCount) {
    NSArray *filtered = unblockedAvailableUpdates(updates, availableCount);
    return callable<MergeFunction>(origMergeAvailableUpdates)(self, _cmd, filtered ?: updates, availableCount);
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("ASUpdatesPageSection", "items"), updatesSectionItems>(origSectionItems),
    replacement<rowOf("SSSoftwareUpdatesStore", "_copyUpdates"), softwareUpdatesCopyUpdates>(origCopyUpdates),
    replacement<rowOf("SSUpdatesDatabaseTransaction", "mergeAvailableUpdates:availableCount:"), updatesDatabaseMerge>(
        origMergeAvailableUpdates),
};

} // namespace

} // namespace qv::darwin

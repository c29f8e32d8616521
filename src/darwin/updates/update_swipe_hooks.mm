// Swipe-to-hide on the older store's updates screen: which rows may be swiped, the "Hide update" button, the
// question of this update or all future ones, and the row taken out once the block is recorded.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/updates/update_objects.h"
#include "darwin/updates/updates_screens.h"
#include "updates/blocked_list_model.h"
#include "updates/updates_list_decisions.h"

#import <UIKit/UIKit.h>
#import <objc/message.h>

#include <array>

namespace qv::darwin {
namespace {

// Nothing in the library offers another method, so the user is always asked.
constexpr HideMethod kHideMethod = HideMethod::Ask;

id itemForIndexPath(id controller, NSIndexPath *indexPath) {
    SEL lookup = NSSelectorFromString(@"_itemForIndexPath:");
    if (![controller respondsToSelector:lookup]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL, NSIndexPath *)>(objc_msgSend)(controller, lookup, indexPath);
}

bool updatableItem(id controller, id item) {
    id updatable = answerIfAnswered(controller, @"_updatableItems");
    return item != nil && [updatable isKindOfClass:NSArray.class] && [updatable containsObject:item];
}

BOOL isUpdatableItem(id self, SEL /*_cmd*/, id item) {
    bool updatable = false;
    guarded([&] { updatable = updatableItem(self, item); });
    return updatable ? YES : NO;
}

BOOL canEditRow(id self, SEL /*_cmd*/, UITableView * /*tableView*/, NSIndexPath *indexPath) {
    bool editable = false;
    guarded([&] {
        const auto section = static_cast<std::size_t>(indexPath.section);
        editable = canEditUpdateRow(ui().isTablet(), section, updatableItem(self, itemForIndexPath(self, indexPath)));
    });
    return editable ? YES : NO;
}

NSString *deleteButtonTitle(id /*self*/, SEL /*_cmd*/, UITableView * /*tableView*/, NSIndexPath * /*indexPath*/) {
    return toNSString(kHideUpdateTitle);
}

void hideUpdateAtIndexPath(id self, NSIndexPath *indexPath, bool allUpdates) {
    SEL hide = NSSelectorFromString(@"hideUpdateAtIndexPath:hideAllUpdates:");
    if ([self respondsToSelector:hide]) {
        reinterpret_cast<void (*)(id, SEL, NSIndexPath *, BOOL)>(objc_msgSend)(self, hide, indexPath,
                                                                               allUpdates ? YES : NO);
    }
}

void commitEditing(id self, SEL /*_cmd*/, UITableView * /*tableView*/, long long style, NSIndexPath *indexPath) {
    if (style != UITableViewCellEditingStyleDelete) {
        return;
    }
    guarded([&] {
        const std::string version = textForm(answerIfAnswered(itemForIndexPath(self, indexPath), @"versionString"))
                                        .value_or(std::string(kNilText));
        __weak id controller = self;
        resolveHideUpdate(ui(), kHideMethod, version, [controller, indexPath](bool allUpdates) {
            hideUpdateAtIndexPath(controller, indexPath, allUpdates);
        });
    });
}

// The store still lists the item until its next reload; if the table refuses the deletion for that, it is drawn
// again from the store's data instead.
void hideUpdate(id self, SEL /*_cmd*/, NSIndexPath *indexPath, BOOL allUpdates) {
    UITableView *tableView = nil;
    guarded([&] { tableView = [self valueForKey:@"_tableView"]; });
    const bool updated = guarded([&] {
        id item = itemForIndexPath(self, indexPath);
        [tableView beginUpdates];
        updateBlocker().blockUpdate(blockableItemOf(item), allUpdates == YES);
        [tableView deleteRowsAtIndexPaths:@[ indexPath ] withRowAnimation:UITableViewRowAnimationLeft];
        [tableView endUpdates];
    });
    if (!updated) {
        guarded([&] { [tableView reloadData]; });
    }
}

constexpr std::array kBindings{
    addition<HookBody::UpdatesIsUpdatableItem, isUpdatableItem>(),
    addition<HookBody::UpdatesCanEditRow, canEditRow>(),
    addition<HookBody::UpdatesCommitEditing, commitEditing>(),
    addition<HookBody::UpdatesHideUpdate, hideUpdate>(),
    addition<HookBody::UpdatesDeleteButtonTitle, deleteButtonTitle>(),
};
static_assert(bindsExactly(kBindings, kUpdateSwipeBodies));

} // namespace

void bindUpdateSwipeBodies(HookBodies &bodies) {
    bodies.bind(kBindings);
}

} // namespace qv::darwin

// Swipe-to-hide on the older store's updates screen: which rows may be swiped, the "Hide update" button, the
// question of this update or all future ones, and the table following the recorded block.
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

// The block is recorded first; the table then loses the row only if the store's data already dropped it, and is
// otherwise drawn again from that data, so the table never disagrees with its data source and UIKit has nothing
// to raise. Only the store's part is guarded; the table's own calls are not there to be caught.
void hideUpdate(id self, SEL /*_cmd*/, NSIndexPath *indexPath, BOOL allUpdates) {
    UITableView *table = nil;
    HiddenRowChange change = HiddenRowChange::ReloadTable;
    guarded([&] {
        id tableView = [self valueForKey:@"_tableView"];
        updateBlocker().blockUpdate(blockableItemOf(itemForIndexPath(self, indexPath)), allUpdates == YES);
        if (![tableView isKindOfClass:UITableView.class]) {
            return;
        }
        table = static_cast<UITableView *>(tableView);
        const NSInteger section = indexPath.section;
        id<UITableViewDataSource> source = table.dataSource;
        if (section < table.numberOfSections && source != nil) {
            change = hiddenRowChange(static_cast<std::size_t>([table numberOfRowsInSection:section]),
                                     static_cast<std::size_t>([source tableView:table numberOfRowsInSection:section]));
        }
    });
    if (table == nil) {
        return;
    }
    if (change == HiddenRowChange::DeleteRow) {
        [table deleteRowsAtIndexPaths:@[ indexPath ] withRowAnimation:UITableViewRowAnimationLeft];
    } else {
        [table reloadData];
    }
}

QV_HOOK_BODIES std::array kBindings{
    addition<rowOf("ASUpdatesViewController", "isUpdatableItem:"), isUpdatableItem>(),
    addition<rowOf("ASUpdatesViewController", "tableView:canEditRowAtIndexPath:"), canEditRow>(),
    addition<rowOf("ASUpdatesViewController", "tableView:commitEditingStyle:forRowAtIndexPath:"), commitEditing>(),
    addition<rowOf("ASUpdatesViewController", "hideUpdateAtIndexPath:hideAllUpdates:"), hideUpdate>(),
    addition<rowOf("ASUpdatesViewController", "tableView:titleForDeleteConfirmationButtonForRowAtIndexPath:"),
             deleteButtonTitle>(),
};

} // namespace

} // namespace qv::darwin

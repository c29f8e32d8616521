// The older store's updates screen: the settings button after each rebuild of its bars, and reloading its table
// when blocked updates change here or in the file.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/updates/updates_screens.h"
#include "updates/blocked_updates.h"

#include <array>

namespace qv::darwin {
namespace {

// The store's reloads that follow the immediate one, after its own animations have had time to settle.
constexpr NSTimeInterval kBarsReloadDelay = 0.5;
constexpr NSTimeInterval kTableReloadDelay = 0.6;

MethodImplementation origReloadData = nullptr;
MethodImplementation origReloadBars = nullptr;
MethodImplementation origViewDidLoad = nullptr;
MethodImplementation origViewDidAppear = nullptr;
MethodImplementation origViewDidLayoutSubviews = nullptr;
MethodImplementation origWillEnterForeground = nullptr;

void performLater(id controller, NSString *selector, NSTimeInterval delay) {
    SEL message = NSSelectorFromString(selector);
    if ([controller respondsToSelector:message]) {
        [controller performSelector:message withObject:nil afterDelay:delay];
    }
}

void setLeftBarButtons(id self, SEL /*_cmd*/) {
    guarded([&] { putSettingsButtons(self, false); });
}

void viewDidLoad(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origViewDidLoad)(self, _cmd);
    guarded([&] { observeUpdatesReload(self, NSSelectorFromString(@"reloadTableViewData")); });
}

// The other store process may have changed the file while the app was away.
void willEnterForeground(id self, SEL _cmd, id notification) {
    callable<void (*)(id, SEL, id)>(origWillEnterForeground)(self, _cmd, notification);
    guarded([&] { sendIfAnswered(self, @"refreshHiddenItems"); });
    putSettingsButtonsAgain(self);
}

void showSettings(id /*self*/, SEL /*_cmd*/, id /*sender*/) {
    guarded([] { showSettingsScreen(); });
}

void reloadTableViewData(id self, SEL /*_cmd*/) {
    guarded([&] {
        sendIfAnswered(self, @"_reloadData");
        performLater(self, @"_reloadBars", kBarsReloadDelay);
        performLater(self, @"_reloadTableView", kTableReloadDelay);
    });
}

void refreshHiddenItems(id self, SEL /*_cmd*/) {
    guarded([&] {
        blockedUpdates().reloadBlockedUpdatesDict();
        sendIfAnswered(self, @"reloadTableViewData");
    });
}

void hiddenUpdatesDidDeleteUpdate(id self, SEL /*_cmd*/) {
    guarded([&] { sendIfAnswered(self, @"reloadTableViewData"); });
}

QV_HOOK_BODIES std::array kBindings{
    addition<rowOf("ASUpdatesViewController", "setQVLeftBarButtons"), setLeftBarButtons>(),
    replacement<rowOf("ASUpdatesViewController", "_reloadData"),
                OrigThen<origReloadData, putSettingsButtonsAgain, void()>::body>(origReloadData),
    replacement<rowOf("ASUpdatesViewController", "_reloadBars"),
                OrigThen<origReloadBars, putSettingsButtonsAgain, void()>::body>(origReloadBars),
    replacement<rowOf("ASUpdatesViewController", "viewDidLoad"), viewDidLoad>(origViewDidLoad),
    replacement<rowOf("ASUpdatesViewController", "viewDidAppear:"),
                OrigThen<origViewDidAppear, putSettingsButtonsAgain, void(BOOL)>::body>(origViewDidAppear),
    replacement<rowOf("ASUpdatesViewController", "viewDidLayoutSubviews"),
                OrigThen<origViewDidLayoutSubviews, putSettingsButtonsAgain, void()>::body>(origViewDidLayoutSubviews),
    replacement<rowOf("ASUpdatesViewController", "_applicationWillEnterForeground:"), willEnterForeground>(
        origWillEnterForeground),
    addition<rowOf("ASUpdatesViewController", "showSettings:"), showSettings>(),
    addition<rowOf("ASUpdatesViewController", "reloadTableViewData"), reloadTableViewData>(),
    addition<rowOf("ASUpdatesViewController", "refreshHiddenItems"), refreshHiddenItems>(),
    addition<rowOf("ASUpdatesViewController", "hiddenUpdatesDidDeleteUpdate"), hiddenUpdatesDidDeleteUpdate>(),
};

} // namespace

} // namespace qv::darwin

// The older store's updates screen: the settings button after each rebuild of its bars, and reloading its table
// when blocked updates change here or in the file.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
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

void putSettingsButtonsAgain(id controller) {
    guarded([&] { sendIfAnswered(controller, @"setQVLeftBarButtons"); });
}

void performLater(id controller, NSString *selector, NSTimeInterval delay) {
    SEL message = NSSelectorFromString(selector);
    if ([controller respondsToSelector:message]) {
        [controller performSelector:message withObject:nil afterDelay:delay];
    }
}

void setLeftBarButtons(id self, SEL /*_cmd*/) {
    guarded([&] { putSettingsButtons(self, false); });
}

void reloadData(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origReloadData)(self, _cmd);
    putSettingsButtonsAgain(self);
}

void reloadBars(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origReloadBars)(self, _cmd);
    putSettingsButtonsAgain(self);
}

void viewDidLoad(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origViewDidLoad)(self, _cmd);
    guarded([&] { observeUpdatesReload(self, NSSelectorFromString(@"reloadTableViewData")); });
}

void viewDidAppear(id self, SEL _cmd, BOOL animated) {
    callable<void (*)(id, SEL, BOOL)>(origViewDidAppear)(self, _cmd, animated);
    putSettingsButtonsAgain(self);
}

void viewDidLayoutSubviews(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origViewDidLayoutSubviews)(self, _cmd);
    putSettingsButtonsAgain(self);
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
        BlockedUpdates::shared().reloadBlockedUpdatesDict();
        sendIfAnswered(self, @"reloadTableViewData");
    });
}

void hiddenUpdatesDidDeleteUpdate(id self, SEL /*_cmd*/) {
    guarded([&] { sendIfAnswered(self, @"reloadTableViewData"); });
}

constexpr std::array kBindings{
    addition<HookBody::UpdatesSetLeftBarButtons, setLeftBarButtons>(),
    replacement<HookBody::UpdatesReloadData, reloadData>(origReloadData),
    replacement<HookBody::UpdatesReloadBars, reloadBars>(origReloadBars),
    replacement<HookBody::UpdatesViewDidLoad, viewDidLoad>(origViewDidLoad),
    replacement<HookBody::UpdatesViewDidAppear, viewDidAppear>(origViewDidAppear),
    replacement<HookBody::UpdatesViewDidLayoutSubviews, viewDidLayoutSubviews>(origViewDidLayoutSubviews),
    replacement<HookBody::UpdatesWillEnterForeground, willEnterForeground>(origWillEnterForeground),
    addition<HookBody::UpdatesShowSettings, showSettings>(),
    addition<HookBody::UpdatesReloadTableViewData, reloadTableViewData>(),
    addition<HookBody::UpdatesRefreshHiddenItems, refreshHiddenItems>(),
    addition<HookBody::UpdatesHiddenUpdateDeleted, hiddenUpdatesDidDeleteUpdate>(),
};
static_assert(bindsExactly(kBindings, kUpdatesTableBodies));

} // namespace

void bindUpdatesTableBodies(HookBodies &bodies) {
    bodies.bind(kBindings);
}

} // namespace qv::darwin

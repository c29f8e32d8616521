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

constexpr std::array kBindings{
    addition<HookBody::UpdatesSetLeftBarButtons, setLeftBarButtons>(),
    replacement<HookBody::UpdatesReloadData, OrigThen<origReloadData, putSettingsButtonsAgain, void()>::body>(
        origReloadData),
    replacement<HookBody::UpdatesReloadBars, OrigThen<origReloadBars, putSettingsButtonsAgain, void()>::body>(
        origReloadBars),
    replacement<HookBody::UpdatesViewDidLoad, viewDidLoad>(origViewDidLoad),
    replacement<HookBody::UpdatesViewDidAppear, OrigThen<origViewDidAppear, putSettingsButtonsAgain, void(BOOL)>::body>(
        origViewDidAppear),
    replacement<HookBody::UpdatesViewDidLayoutSubviews,
                OrigThen<origViewDidLayoutSubviews, putSettingsButtonsAgain, void()>::body>(origViewDidLayoutSubviews),
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

// The redesigned store's account and updates screens: the settings button, and the updates screen fetching its
// updates again when blocked updates change.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/updates/updates_screens.h"

#include <array>

namespace qv::darwin {
namespace {

MethodImplementation origAccountViewDidAppear = nullptr;
MethodImplementation origAccountViewDidLayoutSubviews = nullptr;
MethodImplementation origUpdatesViewDidAppear = nullptr;
MethodImplementation origUpdatesViewDidLoad = nullptr;

// These screens sit in navigation controllers whose own item the store shows, so that item gets a button too.
void setLeftBarButtons(id self, SEL /*_cmd*/) {
    guarded([&] { putSettingsButtons(self, true); });
}

void showSettings(id /*self*/, SEL /*_cmd*/, id /*sender*/) {
    guarded([] { showSettingsScreen(); });
}

void updatesViewDidLoad(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origUpdatesViewDidLoad)(self, _cmd);
    guarded([&] { observeUpdatesReload(self, NSSelectorFromString(@"reloadPossibleUpadtes")); });
}

void reloadPossibleUpdates(id self, SEL /*_cmd*/) {
    guarded([&] { sendIfAnswered(self, @"fetchUpdates"); });
}

QV_HOOK_BODIES std::array kBindings{
    addition<rowOf("AppStore.AccountViewController", "setQVLeftBarButtons"), setLeftBarButtons>(),
    replacement<rowOf("AppStore.AccountViewController", "viewDidAppear:"),
                OrigThen<origAccountViewDidAppear, putSettingsButtonsAgain, void(BOOL)>::body>(
        origAccountViewDidAppear),
    replacement<rowOf("AppStore.AccountViewController", "viewDidLayoutSubviews"),
                OrigThen<origAccountViewDidLayoutSubviews, putSettingsButtonsAgain, void()>::body>(
        origAccountViewDidLayoutSubviews),
    addition<rowOf("AppStore.AccountViewController", "showSettings:"), showSettings>(),
    addition<rowOf("AppStore.UpdatesViewController", "setQVLeftBarButtons"), setLeftBarButtons>(),
    addition<rowOf("AppStore.UpdatesViewController", "showSettings:"), showSettings>(),
    addition<rowOf("AppStore.UpdatesViewController", "reloadPossibleUpadtes"), reloadPossibleUpdates>(),
    replacement<rowOf("AppStore.UpdatesViewController", "viewDidAppear:"),
                OrigThen<origUpdatesViewDidAppear, putSettingsButtonsAgain, void(BOOL)>::body>(
        origUpdatesViewDidAppear),
    replacement<rowOf("AppStore.UpdatesViewController", "viewDidLoad"), updatesViewDidLoad>(origUpdatesViewDidLoad),
};

} // namespace

} // namespace qv::darwin

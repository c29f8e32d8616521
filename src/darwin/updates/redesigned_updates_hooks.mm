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

constexpr std::array kBindings{
    addition<HookBody::AccountSetLeftBarButtons, setLeftBarButtons>(),
    replacement<HookBody::AccountViewDidAppear,
                OrigThen<origAccountViewDidAppear, putSettingsButtonsAgain, void(BOOL)>::body>(
        origAccountViewDidAppear),
    replacement<HookBody::AccountViewDidLayoutSubviews,
                OrigThen<origAccountViewDidLayoutSubviews, putSettingsButtonsAgain, void()>::body>(
        origAccountViewDidLayoutSubviews),
    addition<HookBody::AccountShowSettings, showSettings>(),
    addition<HookBody::ModernUpdatesSetLeftBarButtons, setLeftBarButtons>(),
    addition<HookBody::ModernUpdatesShowSettings, showSettings>(),
    addition<HookBody::ModernUpdatesReloadPossibleUpdates, reloadPossibleUpdates>(),
    replacement<HookBody::ModernUpdatesViewDidAppear,
                OrigThen<origUpdatesViewDidAppear, putSettingsButtonsAgain, void(BOOL)>::body>(
        origUpdatesViewDidAppear),
    replacement<HookBody::ModernUpdatesViewDidLoad, updatesViewDidLoad>(origUpdatesViewDidLoad),
};
static_assert(bindsExactly(kBindings, kRedesignedUpdatesBodies));

} // namespace

void bindRedesignedUpdatesBodies(HookBodies &bodies) {
    bodies.bind(kBindings);
}

} // namespace qv::darwin

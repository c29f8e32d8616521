// What the hook bodies of the store's updates and account screens share: messages the screens may not answer,
// the settings button, and the settings screen it opens.
#pragma once

#include <string_view>

#import <UIKit/UIKit.h>

namespace qv::darwin {

// Sends a message without arguments; nothing when the object (possibly nil) does not answer it.
void sendIfAnswered(id object, NSString *selector);
// The object a getter answers; nil when the object does not answer it.
id answerIfAnswered(id object, NSString *selector);

// Registers the controller for this process's "reload your updates" notification; the system drops the
// registration with the controller.
void observeUpdatesReload(id controller, SEL selector);

// Puts the settings button on the controller's navigation item, and again a second later, since the store rebuilds
// its bars after loading. With onNavigationController, one more goes on the navigation controller's item at once.
void putSettingsButtons(UIViewController *controller, bool onNavigationController);

// What the screens' replaced methods do after the store's own: the controller's setQVLeftBarButtons, if it has one.
void putSettingsButtonsAgain(id controller);

// Presents the process's settings screen modally in a navigation controller of its own.
void showSettingsScreen();

} // namespace qv::darwin

// The phone's InstalledApps port over the system's application proxies, and app icons by bundle identifier.
#pragma once

#include "platform/installed_apps.h"

#import <UIKit/UIKit.h>

namespace qv::darwin {

// Asks the system afresh on every call; nothing when the proxy class or the app is unknown.
class ApplicationProxyApps final : public InstalledApps {
  public:
    std::optional<InstalledApp> appForKey(const Value &key) const override;
};

// The app's home-screen icon at the main screen's scale; nil when the system offers no way to draw it.
UIImage *applicationIcon(NSString *bundleIdentifier);

} // namespace qv::darwin

// Port: what the device knows of an installed app, found by bundle identifier or by store item identifier.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"

namespace qv {

struct InstalledApp {
    std::string bundleIdentifier;
    std::string name;
    std::optional<std::string> shortVersion;  // the version users see; missing on some apps
    std::optional<std::string> bundleVersion; // the build number
};

class InstalledApps {
  public:
    InstalledApps() = default;
    InstalledApps(const InstalledApps &) = delete;
    InstalledApps &operator=(const InstalledApps &) = delete;
    virtual ~InstalledApps() = default;

    // A text key is a bundle identifier, a number a store item identifier. Nothing when no such app is installed.
    virtual std::optional<InstalledApp> appForKey(const Value &key) const = 0;
};

} // namespace qv

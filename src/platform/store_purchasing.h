// Port: what the downgrade flows need of the store's purchase machinery and the installed apps.
#pragma once

#include <string>

namespace qv {

class StorePurchasing {
  public:
    StorePurchasing() = default;
    StorePurchasing(const StorePurchasing &) = delete;
    StorePurchasing &operator=(const StorePurchasing &) = delete;
    virtual ~StorePurchasing() = default;

    // Whether an app with this bundle identifier is installed.
    virtual bool appInstalled(const std::string &bundleIdentifier) = 0;
    // Builds the purchases that ask for the app at the version and hands them to the first submission interface
    // the store has. A store exception on the way is caught and dropped: the caller goes on either way.
    virtual void submitPurchases(const std::string &storeIdentifier, const std::string &versionIdentifier,
                                 bool installed) = 0;
};

} // namespace qv

// The settings' defaults domain on the phone and the Preferences port over it.
#pragma once

#include "base/result.h"
#include "base/value.h"
#include "platform/app_store_container.h"
#include "platform/preferences.h"

#import <Foundation/Foundation.h>

#include <string>

namespace qv::darwin {

// The Preferences port over one defaults object; keys are used as given.
class DefaultsPreferences final : public Preferences {
  public:
    explicit DefaultsPreferences(NSUserDefaults *defaults) : defaults_(defaults) {}
    std::optional<Value> valueForKey(const std::string &key) const override;
    void setValue(const std::string &key, Value value) override;
    Result<void> flush() override;
    void registerDefaults(const Dictionary &defaults) override;

    NSUserDefaults *defaults() const { return defaults_; }

  private:
    NSUserDefaults *defaults_;
};

// The settings suite, kept in the App Store app's container so that both store processes read the same file. Where
// the system cannot place a suite in a container, or the container is unknown, each process keeps its own copy.
NSUserDefaults *makeSettingsDefaults(const AppStoreContainer &container);

// The factory defaults in the resource bundle; a failure when the file is missing or holds no dictionary.
Result<Value> readFactoryDefaults();

} // namespace qv::darwin

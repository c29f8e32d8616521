// The switches the store hooks read from the library's own preferences suite, until the settings model lands.
#pragma once

#include "platform/preferences.h"
#include "store/offer_decisions.h"

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace qv::darwin {

inline constexpr std::string_view kTweakPreferencesSuite = "com.quorvane.qvdovrinkit.preferences";

// The Preferences port over one defaults object; every key is read as stored, without a suffix.
class DefaultsPreferences final : public Preferences {
  public:
    explicit DefaultsPreferences(NSUserDefaults *defaults) : defaults_(defaults) {}
    std::optional<Value> valueForKey(const std::string &key) const override;
    void setValue(const std::string &key, Value value) override;
    Result<void> flush() override;
    void registerDefaults(const Dictionary &defaults) override;

  private:
    NSUserDefaults *defaults_;
};

// The library's settings by name; stored under the name followed by "_QV", false when never written.
class TweakPreferences {
  public:
    TweakPreferences();

    OfferSettings offerSettings() const;
    bool holdHintShown() const;
    void markHoldHintShown();
    bool updateBlockerDisabled() const;

  private:
    bool flag(std::string_view name) const;

    NSUserDefaults *defaults_;
    DefaultsPreferences preferences_;
};

} // namespace qv::darwin

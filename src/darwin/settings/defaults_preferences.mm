// Reads and writes the library's switches in its preferences suite.
#include "darwin/settings/tweak_preferences.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"

namespace qv::darwin {
namespace {

constexpr std::string_view kStoredKeySuffix = "_QV";

std::string storedKey(std::string_view name) {
    return std::string(name) + std::string(kStoredKeySuffix);
}

NSUserDefaults *tweakDefaults() {
    NSUserDefaults *defaults = [[NSUserDefaults alloc] initWithSuiteName:toNSString(kTweakPreferencesSuite)];
    return defaults ?: NSUserDefaults.standardUserDefaults;
}

} // namespace

std::optional<Value> DefaultsPreferences::valueForKey(const std::string &key) const {
    std::optional<Value> value;
    guarded([&] {
        id stored = [defaults_ objectForKey:toNSString(key)];
        if (stored != nil) {
            value = valueFromObject(stored);
        }
    });
    return value;
}

void DefaultsPreferences::setValue(const std::string &key, Value value) {
    guarded([&] { [defaults_ setObject:objectFromValue(value) forKey:toNSString(key)]; });
}

Result<void> DefaultsPreferences::flush() {
    bool written = false;
    guarded([&] { written = [defaults_ synchronize]; });
    if (!written) {
        return fail(ErrorCode::FileUnwritable, "the preferences could not be written");
    }
    return {};
}

void DefaultsPreferences::registerDefaults(const Dictionary &defaults) {
    guarded([&] {
        id registered = objectFromValue(Value(defaults));
        if ([registered isKindOfClass:NSDictionary.class]) {
            [defaults_ registerDefaults:static_cast<NSDictionary *>(registered)];
        }
    });
}

TweakPreferences::TweakPreferences() : defaults_(tweakDefaults()), preferences_(defaults_) {}

bool TweakPreferences::flag(std::string_view name) const {
    return preferences_.boolForKey(storedKey(name));
}

OfferSettings TweakPreferences::offerSettings() const {
    return {flag("enableDowngradeOptions"), flag("longPressToShowDowngradeOptions")};
}

bool TweakPreferences::holdHintShown() const {
    return flag("holdToDowngradeTipsShown");
}

void TweakPreferences::markHoldHintShown() {
    guarded([&] {
        [defaults_ setBool:YES forKey:toNSString(storedKey("holdToDowngradeTipsShown"))];
        [defaults_ synchronize];
    });
}

bool TweakPreferences::updateBlockerDisabled() const {
    return flag("disableUpdateBlocker");
}

} // namespace qv::darwin

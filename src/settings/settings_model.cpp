// The settings model: stored keys, loading over the factory defaults, and saving every change at once.
#include "settings/settings_model.h"

#include <algorithm>

#include "base/text.h"
#include "service/service_endpoints.h"

namespace qv {

namespace {

constexpr std::array<std::string_view, kAllSettings.size()> kSettingNames = {
    "enableDowngradeOptions", "longPressToShowDowngradeOptions", "holdToDowngradeTipsShown", "disableAppCaching",
    "disableUpdateBlocker"};

} // namespace

std::string_view settingName(Setting setting) {
    return kSettingNames[static_cast<std::size_t>(setting)];
}

std::optional<Setting> settingNamed(std::string_view name) {
    const auto *found = std::find(kSettingNames.begin(), kSettingNames.end(), name);
    if (found == kSettingNames.end()) {
        return std::nullopt;
    }
    return kAllSettings[static_cast<std::size_t>(found - kSettingNames.begin())];
}

std::string storedKey(std::string_view propertyName) {
    return std::string(propertyName) + std::string(kStoredKeySuffix);
}

bool isExcludedProperty(std::string_view name) {
    return std::find(kExcludedProperties.begin(), kExcludedProperties.end(), name) != kExcludedProperties.end();
}

void registerFactoryDefaults(Preferences &preferences, const Result<Value> &readDefaults) {
    const Dictionary *defaults = readDefaults ? readDefaults->asDictionary() : nullptr;
    preferences.registerDefaults(defaults != nullptr ? *defaults : Dictionary());
}

SettingsModel::SettingsModel(Preferences &preferences, Notifier &notifier)
    : preferences_(preferences), notifier_(notifier) {
    load();
}

void SettingsModel::load() {
    for (const std::string_view name : kReportedPropertyNames) {
        if (isExcludedProperty(name)) {
            continue;
        }
        const auto stored = preferences_.valueForKey(storedKey(name));
        const auto setting = settingNamed(name);
        // "superclass" is read-only: were its key ever present, there would be nothing to assign it to.
        if (stored.has_value() && setting.has_value()) {
            values_[static_cast<std::size_t>(*setting)] = lenientBool(*stored);
        }
    }
}

std::string SettingsModel::serviceAddress() const {
    const auto stored = preferences_.valueForKey(std::string(kServiceAddressKey));
    const std::string *address = stored ? stored->asString() : nullptr;
    return address != nullptr ? *address : std::string();
}

Result<void> SettingsModel::setServiceAddress(std::string_view address) {
    constexpr std::string_view kWhiteSpace = " \t\r\n";
    const auto first = address.find_first_not_of(kWhiteSpace);
    address = first == std::string_view::npos
                  ? std::string_view()
                  : address.substr(first, address.find_last_not_of(kWhiteSpace) - first + 1);
    if (!address.empty()) {
        if (Result<void> checked = checkServiceAddress(address); !checked) {
            return checked;
        }
    }
    preferences_.setValue(std::string(kServiceAddressKey), Value(std::string(address)));
    return preferences_.flush();
}

Result<void> SettingsModel::set(Setting setting, bool on) {
    values_[static_cast<std::size_t>(setting)] = on;
    preferences_.setValue(storedKey(settingName(setting)), Value(on));
    Result<void> flushed = preferences_.flush();
    if (setting == Setting::DisableUpdateBlocker) {
        notifier_.postSystemWide(std::string(kDaemonReloadNotification));
    }
    return flushed;
}

} // namespace qv

// The user's five settings: their stored keys, factory defaults, loading over the defaults and saving on change.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"
#include "platform/notifier.h"
#include "platform/preferences.h"

namespace qv {

// In declaration order.
enum class Setting {
    EnableDowngradeOptions,
    LongPressToShowDowngradeOptions,
    HoldToDowngradeTipsShown,
    DisableAppCaching,
    DisableUpdateBlocker,
};
inline constexpr std::array<Setting, 5> kAllSettings = {
    Setting::EnableDowngradeOptions, Setting::LongPressToShowDowngradeOptions, Setting::HoldToDowngradeTipsShown,
    Setting::DisableAppCaching, Setting::DisableUpdateBlocker};

// The defaults domain both store processes share; on a phone its file sits in the App Store app's container.
inline constexpr std::string_view kSettingsSuiteName = "com.quorvane.qvdovrinkit.preferences";
inline constexpr std::string_view kStoredKeySuffix = "_QV";
// Tells the store daemon that update blocking was switched on or off.
inline constexpr std::string_view kDaemonReloadNotification = "com.quorvane.dovrinkit.itunestored.daemon.reload";
// The factory defaults in the resource bundle: a dictionary from stored key to value.
inline constexpr std::string_view kFactoryDefaultsName = "DefaultPreferences";
inline constexpr std::string_view kFactoryDefaultsType = "plist";

std::string_view settingName(Setting setting);
std::optional<Setting> settingNamed(std::string_view name);

// Every property alike: its name followed by the suffix.
std::string storedKey(std::string_view propertyName);

// What the settings class reports as its properties, in its own order: the five settings, then what it declares
// by conforming to the root protocol.
inline constexpr std::array<std::string_view, 9> kReportedPropertyNames = {"enableDowngradeOptions",
                                                                           "longPressToShowDowngradeOptions",
                                                                           "holdToDowngradeTipsShown",
                                                                           "disableAppCaching",
                                                                           "disableUpdateBlocker",
                                                                           "hash",
                                                                           "superclass",
                                                                           "description",
                                                                           "debugDescription"};
// Never stored or observed. "superclass" is missing on purpose: it goes through loading and observation like a
// setting, and since its stored key never exists, loading passes it by.
inline constexpr std::array<std::string_view, 3> kExcludedFields = {"hash", "description", "debugDescription"};
inline constexpr std::array<std::string_view, 5> kExcludedProperties = {"hash", "description", "debugDescription",
                                                                        "adSettings", "moreSettings"};
bool isExcludedProperty(std::string_view name);

// Registers the factory defaults as read from their file, or nothing at all (every setting then reads false)
// when the file was missing, unreadable or held no dictionary.
void registerFactoryDefaults(Preferences &preferences, const Result<Value> &readDefaults);

class SettingsModel {
  public:
    // Loads at once; the factory defaults must already be registered on the preferences.
    SettingsModel(Preferences &preferences, Notifier &notifier);
    SettingsModel(const SettingsModel &) = delete;
    SettingsModel &operator=(const SettingsModel &) = delete;

    // Takes every stored value over the current one; a key with no value leaves its setting as it is. A stored
    // value of another type is read as the platform reads a switch.
    void load();

    bool value(Setting setting) const { return values_[static_cast<std::size_t>(setting)]; }

    // Every change, even to the same value, is written under the stored key and flushed; a change of
    // disableUpdateBlocker then tells the store daemon, whether or not the flush worked. Returns the flush.
    Result<void> set(Setting setting, bool on);

    // The address of the person's own version service, "" while the built-in one serves.
    std::string serviceAddress() const;
    // Keeps the address with surrounding white space dropped ("" goes back to the built-in one) and flushes. Text
    // that is no service address (see checkServiceAddress) is refused and the kept address stays as it was.
    Result<void> setServiceAddress(std::string_view address);

    // The settings screen flushes again when it goes away.
    Result<void> flush() { return preferences_.flush(); }

    Preferences &preferences() { return preferences_; }

  private:
    Preferences &preferences_;
    Notifier &notifier_;
    std::array<bool, kAllSettings.size()> values_{};
};

} // namespace qv

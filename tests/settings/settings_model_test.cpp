// The settings model: loading over the factory defaults, and what each change writes, flushes and posts.
#include "settings/settings_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/fake_notifier.h"
#include "fakes/fake_preferences.h"
#include "service/service_endpoints.h"

namespace qv {
namespace {

const std::string kDaemonReload(kDaemonReloadNotification);

struct LoadCase {
    const char *name;
    Result<Value> defaults;
    std::vector<std::pair<std::string, Value>> stored;
    std::array<bool, 5> expected; // in declaration order
};

class SettingsLoad : public testing::TestWithParam<LoadCase> {};

TEST_P(SettingsLoad, StoredValuesOverTheFactoryDefaults) {
    const LoadCase &c = GetParam();
    FakePreferences preferences;
    for (const auto &[key, value] : c.stored) {
        preferences.set(key, value);
    }
    registerFactoryDefaults(preferences, c.defaults);
    FakeNotifier notifier;
    const SettingsModel model(preferences, notifier);
    for (std::size_t i = 0; i < kAllSettings.size(); ++i) {
        EXPECT_EQ(model.value(kAllSettings[i]), c.expected[i]) << settingName(kAllSettings[i]);
    }
    EXPECT_TRUE(notifier.posts.empty());
    EXPECT_EQ(preferences.flushes, 0);
}

const Value kShippedDefaults(Dictionary{{"enableDowngradeOptions_QV", true},
                                        {"longPressToShowDowngradeOptions_QV", true},
                                        {"holdToDowngradeTipsShown_QV", false},
                                        {"disableAppCaching_QV", false},
                                        {"disableUpdateBlocker_QV", false}});

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsLoad,
    testing::Values(LoadCase{"NoStoreNoDefaultsFile", fail(ErrorCode::FileUnreadable, "missing"), {}, {}},
                    LoadCase{"DefaultsFileWithoutDictionary", Value(Array{Value(true)}), {}, {}},
                    LoadCase{"ShippedDefaults", kShippedDefaults, {}, {true, true, false, false, false}},
                    LoadCase{"StoredOverDefault",
                             kShippedDefaults,
                             {{"enableDowngradeOptions_QV", false}, {"disableUpdateBlocker_QV", true}},
                             {false, true, false, false, true}},
                    LoadCase{"StoredOfOtherTypesReadAsSwitches",
                             fail(ErrorCode::FileUnreadable, "missing"),
                             {{"disableAppCaching_QV", "YES"},
                              {"holdToDowngradeTipsShown_QV", 2},
                              {"disableUpdateBlocker_QV", "no"}},
                             {false, false, true, true, false}}),
    [](const auto &info) { return std::string(info.param.name); });

struct ChangeCase {
    const char *name;
    Setting setting;
    bool initial;
    bool value;
    int daemonPosts;
};

class SettingsChange : public testing::TestWithParam<ChangeCase> {};

TEST_P(SettingsChange, WritesThroughFlushesAndTellsTheDaemonOnlyForTheBlocker) {
    const ChangeCase &c = GetParam();
    FakePreferences preferences;
    const std::string key = storedKey(settingName(c.setting));
    preferences.set(key, c.initial);
    FakeNotifier notifier;
    SettingsModel model(preferences, notifier);
    ASSERT_TRUE(model.set(c.setting, c.value).ok());
    EXPECT_EQ(model.value(c.setting), c.value);
    EXPECT_EQ(preferences.flushes, 1);
    EXPECT_EQ(preferences.flushedValues.at(key), Value(c.value));
    EXPECT_EQ(preferences.flushedValues.size(), 1U);
    const std::vector<FakeNotifier::Post> expected(static_cast<std::size_t>(c.daemonPosts),
                                                   {FakeNotifier::Centre::SystemWide, kDaemonReload});
    EXPECT_EQ(notifier.posts, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsChange,
    testing::Values(ChangeCase{"AppCachingOn", Setting::DisableAppCaching, false, true, 0},
                    ChangeCase{"DowngradeOptionsOff", Setting::EnableDowngradeOptions, true, false, 0},
                    ChangeCase{"LongPressOn", Setting::LongPressToShowDowngradeOptions, false, true, 0},
                    ChangeCase{"BlockerOn", Setting::DisableUpdateBlocker, false, true, 1},
                    ChangeCase{"BlockerOff", Setting::DisableUpdateBlocker, true, false, 1},
                    ChangeCase{"BlockerSetToTheSameValue", Setting::DisableUpdateBlocker, false, false, 1}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(SettingsChange, AFailedFlushIsReportedAndTheDaemonIsStillTold) {
    FakePreferences preferences;
    preferences.failFlush = true;
    FakeNotifier notifier;
    SettingsModel model(preferences, notifier);
    EXPECT_EQ(model.set(Setting::DisableUpdateBlocker, true).error().code, ErrorCode::FileUnwritable);
    EXPECT_EQ(notifier.posts.size(), 1U);
}

struct AddressChange {
    const char *name;
    const char *typed;
    const char *kept; // what the model keeps afterwards, starting from kOwnService
    bool accepted;
};
const char *const kOwnService = "http://10.0.0.2:8080/";

class ServiceAddressChange : public testing::TestWithParam<AddressChange> {};

TEST_P(ServiceAddressChange, KeepsAnAddressOrNothingAndRefusesTheRest) {
    const AddressChange &c = GetParam();
    FakePreferences preferences;
    preferences.set(std::string(kServiceAddressKey), Value(kOwnService));
    FakeNotifier notifier;
    SettingsModel model(preferences, notifier);
    const Result<void> changed = model.setServiceAddress(c.typed);
    EXPECT_EQ(changed.ok(), c.accepted);
    EXPECT_EQ(model.serviceAddress(), c.kept);
    // Only a change that was kept is written; a refused one leaves the stored file alone.
    EXPECT_EQ(preferences.flushes, c.accepted ? 1 : 0);
    EXPECT_TRUE(notifier.posts.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ServiceAddressChange,
    testing::Values(AddressChange{"Another", "https://versions.example.org/", "https://versions.example.org/", true},
                    AddressChange{"SurroundingSpaceDropped", "  https://versions.example.org/\n",
                                  "https://versions.example.org/", true},
                    AddressChange{"EmptyMeansBuiltIn", "", "", true},
                    AddressChange{"OnlySpaceMeansBuiltIn", " \t", "", true},
                    AddressChange{"NoTrailingSlashRefused", "https://versions.example.org", kOwnService, false},
                    AddressChange{"NotAUrlRefused", "my server", kOwnService, false}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv

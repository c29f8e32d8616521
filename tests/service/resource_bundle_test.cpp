// Resource bundle location, localisation fallback and the resource override decision.
#include "service/resource_bundle.h"

#include "fakes/fake_resource_files.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace qv {
namespace {

constexpr const char *kBundle = "/var/quorvane_tweak_resources/qvdovrinkit/QVVPPResources.bundle";

struct LocalizationCase {
    const char *name;
    const char *key;
    const char *expected;
};

class Localization : public ::testing::TestWithParam<LocalizationCase> {};

TEST_P(Localization, FallsBackToEnglishThenToTheKey) {
    FakeResourceFiles files;
    files.tables[kBundle] = {{"Hide update", "Aktualisierung ausblenden"}, {"This Update", "This Update"}};
    files.tables[std::string(kBundle) + "/en.lproj"] = {{"This Update", "Only this update"},
                                                        {"Send Email", "Send Email"}};
    const ResourceBundle bundle(files, kBundle);
    EXPECT_EQ(bundle.localizedString(GetParam().key), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, Localization,
    ::testing::Values(LocalizationCase{"CurrentLanguage", "Hide update", "Aktualisierung ausblenden"},
                      LocalizationCase{"TextEqualToKeyAsksEnglish", "This Update", "Only this update"},
                      LocalizationCase{"EnglishOnly", "Send Email", "Send Email"},
                      LocalizationCase{"MissingEverywhere", "Nope", "Nope"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(Localization, MissingBundleAnswersTheKey) {
    FakeResourceFiles files;
    const ResourceBundle bundle(files, kBundle);
    EXPECT_EQ(bundle.localizedString("Hey There!"), "Hey There!");
}

struct OverrideCase {
    const char *name;
    std::optional<std::string> resource;
    std::optional<std::string> type;
    std::optional<std::string> expected;
};

class ResourceOverride : public ::testing::TestWithParam<OverrideCase> {};

TEST_P(ResourceOverride, AnswersOnlyForFilesAtTheTopLevel) {
    FakeResourceFiles files;
    files.files = {std::string(kBundle) + "/settings.png", std::string(kBundle) + "/share.png",
                   std::string(kBundle) + "/DefaultPreferences.plist", std::string(kBundle) + "/README",
                   std::string(kBundle)};
    const ResourceBundle bundle(files, kBundle);
    EXPECT_EQ(bundle.overridePath(GetParam().resource, GetParam().type), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, ResourceOverride,
    ::testing::Values(OverrideCase{"NameAndType", "settings", "png", std::string(kBundle) + "/settings.png"},
                      OverrideCase{"TypeInName", "share.png", std::nullopt, std::string(kBundle) + "/share.png"},
                      OverrideCase{"EmptyType", "README", "", std::string(kBundle) + "/README"},
                      OverrideCase{"AbsentName", std::nullopt, "png", std::nullopt},
                      OverrideCase{"EmptyNameIsNotTheDirectory", "", std::nullopt, std::nullopt},
                      OverrideCase{"NotInBundle", "Info", "plist", std::nullopt},
                      OverrideCase{"LocalisationFoldersAreNotSearched", "Localizable", "strings", std::nullopt}),
    [](const auto &info) { return std::string(info.param.name); });

struct LayoutCase {
    const char *name;
    InstallLayout layout;
    const char *libraryPath;
    std::string expected;
};

class BundleLocation : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(BundleLocation, FollowsTheInstallLayout) {
    const auto &param = GetParam();
    EXPECT_EQ(resourceBundlePath(param.layout, jailbreakRootFromLibraryPath(param.libraryPath)), param.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, BundleLocation,
    ::testing::Values(
        LayoutCase{"RootfulIsFixed", InstallLayout::Rootful, "/Library/MobileSubstrate/DynamicLibraries/Verdigo.dylib",
                   kBundle},
        LayoutCase{"RootlessUnderVarJb", InstallLayout::Rootless,
                   "/var/jb/Library/MobileSubstrate/DynamicLibraries/Verdigo.dylib", std::string("/var/jb") + kBundle},
        LayoutCase{"RootlessUnderRandomisedRoot", InstallLayout::Rootless,
                   "/private/preboot/ABC/jb-x/procursus/Library/MobileSubstrate/DynamicLibraries/Verdigo.dylib",
                   std::string("/private/preboot/ABC/jb-x/procursus") + kBundle},
        LayoutCase{"RootlessFromUnknownPathFallsBack", InstallLayout::Rootless, "/usr/lib/TweakInject/Verdigo.dylib",
                   std::string("/var/jb") + kBundle},
        LayoutCase{"RootlessLoadedFromRootfulPlaceFallsBack", InstallLayout::Rootless,
                   "/Library/MobileSubstrate/DynamicLibraries/Verdigo.dylib", std::string("/var/jb") + kBundle},
        LayoutCase{"RootlessWithoutPath", InstallLayout::Rootless, "", std::string("/var/jb") + kBundle}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv

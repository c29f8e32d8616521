// The settings screen's form: its sections, switches bound to the settings, appearing, leaving, and the way to
// the blocked-updates screen and back.
#include "settings/settings_form_model.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_archive_file.h"
#include "fakes/fake_notifier.h"
#include "fakes/fake_preferences.h"
#include "fakes/scripted_ui.h"
#include "updates/blocked_list_model.h"

namespace qv {
namespace {

const std::string kFile = "/c/Documents/com.quorvane.qvdovrinkit.plist";

struct NoApps : InstalledApps {
    std::optional<InstalledApp> appForKey(const Value & /*key*/) const override { return std::nullopt; }
};

struct FormRig {
    ScriptedUi ui;
    FakePreferences preferences;
    FakeNotifier notifier;
    FakeArchiveFile file;
    NoApps apps;
    std::unique_ptr<BlockedUpdates> store;
    std::unique_ptr<SettingsModel> settings;
    std::unique_ptr<SettingsFormModel> form;

    explicit FormRig(Dictionary records = {}) {
        file.files[kFile] = Value(std::move(records));
        store = std::make_unique<BlockedUpdates>(BlockedUpdates::Environment{
            &file, &notifier, [] { return std::optional<std::string>(kFile); }, kOffersCoreFoundationVersion});
        settings = std::make_unique<SettingsModel>(preferences, notifier);
        form = std::make_unique<SettingsFormModel>(ui, *settings, notifier, [this](std::function<void()> deleted) {
            return std::make_shared<BlockedListModel>(*store, apps, std::move(deleted));
        });
    }
};

struct SectionCase {
    const char *header;
    const char *title;
    FormRow::Kind kind;
    std::optional<Setting> setting;
    std::optional<std::string> footer;
};

TEST(SettingsForm, FiveSectionsInOrderOneRowEach) {
    FormRig rig;
    const std::vector<SectionCase> expected = {
        {"Update Block Options", "Manage Blocked/Hidden Updates", FormRow::Kind::Action, std::nullopt, std::nullopt},
        {"Downgrade Options", "Enable Downgrade Options", FormRow::Kind::Switch, Setting::EnableDowngradeOptions,
         std::nullopt},
        {"Crowdsource Options", "Disable App Caching", FormRow::Kind::Switch, Setting::DisableAppCaching,
         std::string(kCrowdsourceFooter)},
        {"Update Blocking Options", "Disable Update Blocker", FormRow::Kind::Switch, Setting::DisableUpdateBlocker,
         "Disable the update blocking feature."},
        {"Service Options", "Service address", FormRow::Kind::Text, std::nullopt,
         "Where the known versions come from. Leave it empty for the built-in service, or give the address of your "
         "own: an http or https URL ending in \"/\"."}};
    const auto &sections = rig.form->sections();
    ASSERT_EQ(sections.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(expected[i].header);
        EXPECT_EQ(sections[i].header, expected[i].header);
        ASSERT_EQ(sections[i].rows.size(), 1U);
        EXPECT_EQ(sections[i].rows[0].title, expected[i].title);
        EXPECT_EQ(sections[i].rows[0].kind, expected[i].kind);
        EXPECT_EQ(sections[i].rows[0].setting, expected[i].setting);
        EXPECT_EQ(sections[i].footer, expected[i].footer);
    }
    EXPECT_EQ(sections[0].rows[0].action, "didTapBlockedUpdates:");
    EXPECT_TRUE(sections[0].rows[0].disclosure);
}

TEST(SettingsForm, SwitchesWriteThroughAppearingShowsChangesLeavingFlushes) {
    FormRig rig;
    ASSERT_TRUE(rig.form->setSwitch(3, 0, true).ok());
    EXPECT_EQ(rig.preferences.flushedValues.at("disableUpdateBlocker_QV"), Value(true));
    EXPECT_FALSE(rig.form->setSwitch(0, 0, true).ok()); // the action row is no switch

    ASSERT_TRUE(rig.settings->set(Setting::DisableAppCaching, true).ok()); // changed elsewhere
    EXPECT_FALSE(rig.form->sections()[2].rows[0].on);
    rig.form->appeared();
    EXPECT_TRUE(rig.form->sections()[2].rows[0].on);
    EXPECT_EQ(rig.form->title(), "Verdigo Settings");

    const int flushes = rig.preferences.flushes;
    ASSERT_TRUE(rig.form->disappearing().ok());
    EXPECT_EQ(rig.form->title(), "");
    EXPECT_EQ(rig.preferences.flushes, flushes + 1);
}

struct AddressEntry {
    const char *name;
    const char *typed;
    const char *shown;   // the row's text afterwards, starting from an empty one
    const char *refusal; // the alert's message, or nullptr when the address is taken
};

TEST(SettingsForm, ServiceAddressRowKeepsAnAddressAndRefusesTheRestWithAMessage) {
    const std::vector<AddressEntry> cases = {
        {"own service", " http://10.0.0.2:8080/ ", "http://10.0.0.2:8080/", nullptr},
        {"no trailing slash", "http://10.0.0.2:8080", "",
         "\"http://10.0.0.2:8080\" cannot be used: the address must end in \"/\"."},
        {"not a URL", "my server", "",
         "\"my server\" cannot be used: the address must start with http:// or https://."},
    };
    for (const AddressEntry &c : cases) {
        SCOPED_TRACE(c.name);
        FormRig rig;
        const FormRow &row = rig.form->sections()[4].rows[0];
        EXPECT_EQ(row.placeholder, ServiceEndpoints().apiBaseUrl); // an empty field stands for the built-in one
        EXPECT_EQ(rig.form->setText(4, 0, c.typed).ok(), c.refusal == nullptr);
        EXPECT_EQ(rig.form->sections()[4].rows[0].text, c.shown);
        EXPECT_EQ(rig.settings->serviceAddress(), c.shown);
        if (c.refusal == nullptr) {
            EXPECT_TRUE(rig.ui.dialogs.empty());
            continue;
        }
        ASSERT_EQ(rig.ui.dialogs.size(), 1U);
        EXPECT_EQ(rig.ui.dialogs[0].title, "Service address");
        EXPECT_EQ(rig.ui.dialogs[0].message, c.refusal);
        EXPECT_EQ(rig.ui.titles(), std::vector<std::string>{"OK"});
    }
}

TEST(SettingsForm, OnlyTheTextRowTakesText) {
    FormRig rig;
    EXPECT_EQ(rig.form->setText(1, 0, "https://versions.example.org/").error().code, ErrorCode::NotFound);
    EXPECT_EQ(rig.form->setText(9, 0, "https://versions.example.org/").error().code, ErrorCode::NotFound);
    EXPECT_EQ(rig.settings->serviceAddress(), "");
}

TEST(SettingsForm, EachDeletionOnTheBlockedScreenTellsTheUpdateScreensOnce) {
    FormRig rig(Dictionary{{Value(111), BlockedUpdates::makeRecord("2.0", false)},
                           {Value("com.b"), BlockedUpdates::makeRecord("", true)}});
    rig.form->tapRow(1, 0); // a switch: nothing to push
    EXPECT_TRUE(rig.ui.pushed.empty());
    rig.form->tapRow(0, 0);
    ASSERT_EQ(rig.ui.pushed.size(), 1U);
    const auto blocked = std::dynamic_pointer_cast<BlockedListModel>(rig.ui.pushed[0]);
    ASSERT_NE(blocked, nullptr);
    ASSERT_TRUE(blocked->deleteRow(1).ok());
    ASSERT_TRUE(blocked->deleteRow(0).ok());
    const FakeNotifier::Post daemon{FakeNotifier::Centre::SystemWide,
                                    std::string(kBlockedUpdatesDaemonReloadNotification)};
    const FakeNotifier::Post screens{FakeNotifier::Centre::Local, std::string(kReloadUpdatesNotification)};
    EXPECT_EQ(rig.notifier.posts, (std::vector<FakeNotifier::Post>{daemon, screens, daemon, screens}));
    EXPECT_EQ(blocked->rowCount(), 0U);
    EXPECT_TRUE(rig.file.files[kFile].asDictionary()->empty());
}

TEST(SettingsForm, MakerProfileOpensInTheFirstClientThatCanTakeIt) {
    struct Case {
        std::vector<std::string_view> installed;
        std::string address;
    };
    const std::vector<Case> cases = {
        {{}, "https://mobile.twitter.com/quorvane"},
        {{"twitter:"}, "twitter://user?screen_name=quorvane"},
        {{"twitter:", "tweetbot:"}, "tweetbot:///user_profile/quorvane"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(makerProfileAddress([&](std::string_view scheme) {
                      return std::find(c.installed.begin(), c.installed.end(), scheme) != c.installed.end();
                  }),
                  c.address);
    }
}

} // namespace
} // namespace qv

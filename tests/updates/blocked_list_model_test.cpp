// The blocked-updates screen model: its keys, and rows drawn from the records and the installed apps.
#include "updates/blocked_list_model.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_archive_file.h"
#include "fakes/fake_notifier.h"

namespace qv {
namespace {

const std::string kFile = "/c/Documents/com.quorvane.qvdovrinkit.plist";

// Apps found by bundle identifier for text keys and by store item identifier for numbers, as the phone finds them.
struct MapApps : InstalledApps {
    std::map<std::string, InstalledApp> byBundle;
    std::map<std::int64_t, InstalledApp> byItem;
    std::optional<InstalledApp> appForKey(const Value &key) const override {
        if (const auto *bundle = key.asString()) {
            const auto found = byBundle.find(*bundle);
            return found == byBundle.end() ? std::nullopt : std::optional<InstalledApp>(found->second);
        }
        std::int64_t item = 0;
        if (!key.toInteger(item) || byItem.count(item) == 0) {
            return std::nullopt;
        }
        return byItem.at(item);
    }
};

struct ListRig {
    FakeArchiveFile file;
    FakeNotifier notifier;
    MapApps apps;
    std::unique_ptr<BlockedUpdates> store;

    explicit ListRig(Value records) {
        file.files[kFile] = std::move(records);
        store = std::make_unique<BlockedUpdates>(BlockedUpdates::Environment{
            &file, &notifier, [] { return std::optional<std::string>(kFile); }, kOffersCoreFoundationVersion});
        apps.byBundle["com.a"] = {"com.a", "Alpha", "2.1", "210"};
        apps.byItem[222] = {"com.b", "Beta", std::nullopt, "77"};
    }
    BlockedListModel screen() { return BlockedListModel(*store, apps, nullptr); }
};

struct RowCase {
    const char *name;
    Value key;
    Value record;
    BlockedListModel::Row expected;
};

class BlockedListRows : public testing::TestWithParam<RowCase> {};

TEST_P(BlockedListRows, ShowTheAppAndWhatIsBlocked) {
    const RowCase &c = GetParam();
    Dictionary records;
    records.set(c.key, c.record);
    ListRig rig{Value(records)};
    const BlockedListModel screen = rig.screen();
    ASSERT_EQ(screen.rowCount(), 1U);
    const BlockedListModel::Row row = screen.row(0);
    EXPECT_EQ(row.iconBundleIdentifier, c.expected.iconBundleIdentifier);
    EXPECT_EQ(row.title, c.expected.title);
    EXPECT_EQ(row.detail, c.expected.detail);
}

INSTANTIATE_TEST_SUITE_P(Cases, BlockedListRows,
                         testing::Values(RowCase{"ByBundleIdentifier",
                                                 "com.a",
                                                 BlockedUpdates::makeRecord("2.0", false),
                                                 {"com.a", "Alpha", "Current Version: 2.1 Blocked: 2.0"}},
                                         RowCase{"ByStoreIdentifierFallsBackToTheBuildNumber",
                                                 222,
                                                 BlockedUpdates::makeRecord("", true),
                                                 {"com.b", "Beta", "Current Version: 77 Blocked: All"}},
                                         RowCase{"AllAsText",
                                                 "com.a",
                                                 Value(Dictionary{{"version", "3"}, {"all", "YES"}}),
                                                 {"com.a", "Alpha", "Current Version: 2.1 Blocked: All"}},
                                         RowCase{"AppGone",
                                                 999,
                                                 BlockedUpdates::makeRecord("1.0", false),
                                                 {"", "", "Current Version: (null) Blocked: 1.0"}},
                                         RowCase{"NoVersionInTheRecord",
                                                 "com.a",
                                                 Value(Dictionary{{"all", false}}),
                                                 {"com.a", "Alpha", "Current Version: 2.1 Blocked: (null)"}}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(BlockedList, KeysAreTakenOnceInTheStoresOrder) {
    ListRig rig{Value(Dictionary{{"com.z", BlockedUpdates::makeRecord("1", false)},
                                 {222, BlockedUpdates::makeRecord("", true)},
                                 {"com.a", BlockedUpdates::makeRecord("2", false)}})};
    const BlockedListModel screen = rig.screen();
    ASSERT_TRUE(rig.store->saveRecord(Value("com.new"), BlockedUpdates::makeRecord("", true)).ok());
    EXPECT_EQ(screen.keys(), (std::vector<Value>{Value("com.z"), Value(222), Value("com.a")}));
}

struct LayoutCase {
    const char *name;
    bool hasIcon;
    AppCellFrames expected;
};

class AppCellLayout : public testing::TestWithParam<LayoutCase> {};

// As the table lays out a subtitle cell: a 40-point icon at 16, the texts after it.
const AppCellFrames kLaidOut{{16, 25, 40, 40}, {72, 20, 200, 22}, {72, 44, 200, 18}};

TEST_P(AppCellLayout, SizesTheIconAndMovesTheTextsOnlyBesideAnIcon) {
    EXPECT_EQ(appCellLayout(kLaidOut, GetParam().hasIcon), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AppCellLayout,
    testing::Values(LayoutCase{"WithIcon", true, {{16, 15, 60, 60}, {90, 20, 200, 22}, {90, 44, 200, 18}}},
                    LayoutCase{"WithoutIcon", false, {{16, 15, 60, 60}, {72, 20, 200, 22}, {72, 44, 200, 18}}}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv

// Blocked-updates store: the decision rule, reload rules, unblocking and the update filters.
#include "updates/blocked_updates.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/json.h"
#include "fakes/fake_archive_file.h"
#include "fakes/fake_notifier.h"

namespace {

using qv::Array;
using qv::BlockedUpdates;
using qv::Dictionary;
using qv::FakeNotifier;
using qv::StoreUpdateItem;
using qv::Value;

constexpr double kModernCoreFoundation = 1556.0;
constexpr double kLegacyCoreFoundation = 1140.0;
const std::string kContainer = "/containers/AppStore";
const std::string kFile = kContainer + "/Documents/com.quorvane.qvdovrinkit.plist";

Value record(const std::string &version, bool all) {
    return BlockedUpdates::makeRecord(version, all);
}

Value records(std::initializer_list<Dictionary::Entry> entries) {
    Dictionary dictionary(entries);
    dictionary.setMutable(true);
    return Value(dictionary);
}

// An update record as the daemon's database holds it on newer systems, the version inside the first offer.
Value modernUpdate(const std::string &bundleId, const std::string &version) {
    return Value(
        Dictionary{{"bundleId", Value(bundleId)},
                   {"offers", Value(Array{Value(Dictionary{{"version", Dictionary{{"display", version}}}})})}});
}

struct Rig {
    qv::FakeArchiveFile file;
    FakeNotifier notifier;
    qv::FixedAppStoreContainer container{kContainer};

    std::unique_ptr<BlockedUpdates> open(double coreFoundation = kModernCoreFoundation) {
        return std::make_unique<BlockedUpdates>(
            BlockedUpdates::Environment{&file, &notifier, BlockedUpdates::fileInContainer(container), coreFoundation});
    }
};

struct DecisionCase {
    std::string name;
    Value stored;
    Value update;
    double coreFoundation;
    bool blocked;
};

class DecisionRule : public testing::TestWithParam<DecisionCase> {};

TEST_P(DecisionRule, DecidesFromTheRecordOfTheBundleIdentifier) {
    Rig rig;
    rig.file.files[kFile] = GetParam().stored;
    EXPECT_EQ(rig.open(GetParam().coreFoundation)->updateBlocked(GetParam().update), GetParam().blocked);
}

INSTANTIATE_TEST_SUITE_P(
    BlockedUpdates, DecisionRule,
    testing::Values(
        DecisionCase{"AllBlocksEveryVersion", records({{"com.a", record("1.0", true)}}), modernUpdate("com.a", "9"),
                     kModernCoreFoundation, true},
        DecisionCase{"ExactVersionBlocks", records({{"com.a", record("1.2", false)}}), modernUpdate("com.a", "1.2"),
                     kModernCoreFoundation, true},
        DecisionCase{"LongerVersionDoesNotMatch", records({{"com.a", record("1.2", false)}}),
                     modernUpdate("com.a", "1.2.0"), kModernCoreFoundation, false},
        DecisionCase{"VersionsCompareCaseSensitively", records({{"com.a", record("1.2a", false)}}),
                     modernUpdate("com.a", "1.2A"), kModernCoreFoundation, false},
        DecisionCase{"EmptyVersionMatchesOnlyEmpty", records({{"com.a", record("", false)}}), modernUpdate("com.a", ""),
                     kModernCoreFoundation, true},
        DecisionCase{"EmptyVersionDoesNotMatchOthers", records({{"com.a", record("", false)}}),
                     modernUpdate("com.a", "2.0"), kModernCoreFoundation, false},
        DecisionCase{"RecordWithoutVersionNeverMatches", records({{"com.a", Value(Dictionary{{"all", false}})}}),
                     modernUpdate("com.a", ""), kModernCoreFoundation, false},
        DecisionCase{"EmptyOffersAreNeverBlocked", records({{"com.a", record("", true)}}),
                     Value(Dictionary{{"bundleId", "com.a"}, {"offers", Value(Array{})}}), kModernCoreFoundation,
                     false},
        DecisionCase{"MissingOffersAreNeverBlocked", records({{"com.a", record("", true)}}),
                     Value(Dictionary{{"bundleId", "com.a"}, {"version", "1.0"}}), kModernCoreFoundation, false},
        DecisionCase{"OlderSystemsReadTheTopLevelVersion", records({{"com.a", record("2.0", false)}}),
                     Value(Dictionary{{"bundleId", "com.a"}, {"version", "2.0"}, {"offers", Value(Array{})}}),
                     kLegacyCoreFoundation, true},
        DecisionCase{"OlderSystemsIgnoreOffers", records({{"com.a", record("2.0", false)}}),
                     modernUpdate("com.a", "2.0"), kLegacyCoreFoundation, false},
        DecisionCase{"StoreIdentifierRecordsAreNotFoundByBundleIdentifier",
                     records({{Value(284882215LL), record("", true)}}), modernUpdate("com.a", "1.0"),
                     kModernCoreFoundation, false},
        DecisionCase{"UpdateWithoutBundleIdentifier", records({{"com.a", record("", true)}}),
                     Value(Dictionary{{"offers", Value(Array{Value(Dictionary{})})}}), kModernCoreFoundation, false},
        // Records written by hand or by older tools carry "all" as text; it reads as the platform reads a switch.
        DecisionCase{"AllAsYes", records({{"com.a", Value(Dictionary{{"version", "1"}, {"all", "YES"}})}}),
                     modernUpdate("com.a", "9"), kModernCoreFoundation, true},
        DecisionCase{"AllAsOne", records({{"com.a", Value(Dictionary{{"version", "1"}, {"all", "1"}})}}),
                     modernUpdate("com.a", "9"), kModernCoreFoundation, true},
        DecisionCase{"AllAsTrue", records({{"com.a", Value(Dictionary{{"version", "1"}, {"all", "true"}})}}),
                     modernUpdate("com.a", "9"), kModernCoreFoundation, true},
        DecisionCase{"AllAsNo", records({{"com.a", Value(Dictionary{{"version", "1"}, {"all", "NO"}})}}),
                     modernUpdate("com.a", "9"), kModernCoreFoundation, false},
        DecisionCase{"AllAsZero", records({{"com.a", Value(Dictionary{{"version", "1"}, {"all", "0"}})}}),
                     modernUpdate("com.a", "9"), kModernCoreFoundation, false}),
    [](const auto &info) { return info.param.name; });

TEST(BlockedUpdates, UpdateItemsAreDecidedByTheSameRule) {
    Rig rig;
    rig.file.files[kFile] = records({{"com.a", record("2.0", false)}, {"com.b", record("", true)}});
    const auto store = rig.open();
    const std::vector<std::pair<StoreUpdateItem, bool>> cases = {
        {{Value("com.a"), Value("2.0")}, true}, {{Value("com.a"), Value("2.1")}, false},
        {{Value("com.b"), Value()}, true},      {{Value("com.c"), Value("2.0")}, false},
        {{Value(), Value("2.0")}, false},       {{Value("com.a"), Value()}, false},
    };
    for (const auto &[item, blocked] : cases) {
        EXPECT_EQ(store->updateBlocked(item), blocked) << qv::toJson(item.bundleIdentifier);
    }
}

struct ReloadCase {
    std::string name;
    std::function<void(Rig &)> changeFile;
    Value expected;
};

class Reload : public testing::TestWithParam<ReloadCase> {};

TEST_P(Reload, FollowsTheFileOnlyWhenItCanBeRead) {
    Rig rig;
    rig.file.files[kFile] = records({{"com.old", record("1", false)}});
    const auto store = rig.open();
    GetParam().changeFile(rig);
    store->reloadBlockedUpdatesDict();
    EXPECT_EQ(Value(store->snapshot()), GetParam().expected);
    EXPECT_TRUE(store->snapshot().isMutable());
}

INSTANTIATE_TEST_SUITE_P(
    BlockedUpdates, Reload,
    testing::Values(ReloadCase{"NewContentReplaces",
                               [](Rig &rig) {
                                   rig.file.files[kFile] = records({{"com.new", record("2", true)}});
                               },
                               records({{"com.new", record("2", true)}})},
                    ReloadCase{"MissingFileKeepsMemory", [](Rig &rig) { rig.file.files.clear(); },
                               records({{"com.old", record("1", false)}})},
                    ReloadCase{"UndecodableFileEmpties", [](Rig &rig) { rig.file.corrupt[kFile] = true; }, records({})},
                    ReloadCase{"NonDictionaryRootEmpties", [](Rig &rig) { rig.file.files[kFile] = Value(Array{"x"}); },
                               records({})},
                    ReloadCase{"ImmutableArchiveBecomesMutable",
                               [](Rig &rig) {
                                   rig.file.files[kFile] = Value(Dictionary{{"com.new", record("3", false)}});
                               },
                               records({{"com.new", record("3", false)}})}),
    [](const auto &info) { return info.param.name; });

TEST(BlockedUpdates, UnknownContainerNeitherLoadsNorSaves) {
    qv::FakeArchiveFile file;
    FakeNotifier notifier;
    qv::FixedAppStoreContainer nowhere{std::nullopt};
    BlockedUpdates store({&file, &notifier, BlockedUpdates::fileInContainer(nowhere), kModernCoreFoundation});
    store.setRecord(Value("com.a"), record("1", false));
    EXPECT_FALSE(store.saveBlockedUpdatesToDisk());
    store.reloadBlockedUpdatesDict();
    EXPECT_EQ(store.snapshot().size(), 1U);
    EXPECT_EQ(file.loads + file.saves, 0);
}

// The block flow edits the records it was handed and then asks for a save: the save must carry those edits.
TEST(BlockedUpdates, SaveWritesTheRecordsAsEditedInPlace) {
    Rig rig;
    rig.file.files[kFile] = records({{"com.a", record("1", false)}, {"com.b", record("", true)}});
    const auto store = rig.open();
    store->setRecord(Value(std::int64_t{284882215}), record("2.0", false));
    store->removeRecord(Value("com.a"));
    store->removeRecord(Value("com.absent"));
    ASSERT_TRUE(store->saveBlockedUpdatesToDisk().ok());
    EXPECT_EQ(rig.file.files[kFile],
              records({{"com.b", record("", true)}, {std::int64_t{284882215}, record("2.0", false)}}));
}

struct UnblockCase {
    std::string name;
    Value key;
    std::optional<bool> notify;
    std::vector<FakeNotifier::Post> posts;
};

class Unblock : public testing::TestWithParam<UnblockCase> {};

TEST_P(Unblock, RemovesSavesAndNotifiesInOrder) {
    Rig rig;
    rig.file.files[kFile] = records({{"com.a", record("1", false)}, {"com.b", record("", true)}});
    const auto store = rig.open();
    const auto unblocked = GetParam().notify ? store->unblockUpdate(GetParam().key, *GetParam().notify)
                                             : store->unblockUpdate(GetParam().key);
    EXPECT_TRUE(unblocked.ok());
    EXPECT_EQ(rig.file.saves, 1);
    EXPECT_FALSE(rig.file.files[kFile].asDictionary()->contains(GetParam().key));
    EXPECT_TRUE(rig.file.files[kFile].asDictionary()->contains(Value("com.b")));
    EXPECT_EQ(rig.notifier.posts, GetParam().posts);
}

const FakeNotifier::Post kDaemonReload{FakeNotifier::Centre::SystemWide, "com.quorvane.dovrinkit.itunestored.reload"};
const FakeNotifier::Post kScreensReload{FakeNotifier::Centre::Local,
                                        "com.quorvane.dovrinkit.itunestored.reloadupdates"};

INSTANTIATE_TEST_SUITE_P(BlockedUpdates, Unblock,
                         testing::Values(UnblockCase{"Present", Value("com.a"), std::nullopt, {kDaemonReload}},
                                         UnblockCase{"Absent", Value("com.zzz"), std::nullopt, {kDaemonReload}},
                                         UnblockCase{
                                             "NotifyScreens", Value("com.a"), true, {kDaemonReload, kScreensReload}},
                                         UnblockCase{"QuietForScreens", Value("com.a"), false, {kDaemonReload}}),
                         [](const auto &info) { return info.param.name; });

struct FailedSaveCase {
    std::string name;
    std::function<qv::Result<void>(BlockedUpdates &)> change;
};

class FailedSave : public testing::TestWithParam<FailedSaveCase> {};

// What the file does not take, memory does not keep: this process would otherwise hide or show updates that the
// daemon, reading the file, treats differently, and the user was told the change failed.
TEST_P(FailedSave, LeavesRecordsFileAndDaemonAsTheyWere) {
    Rig rig;
    const Value before = records({{"com.a", record("1", false)}, {"com.b", record("", true)}});
    rig.file.files[kFile] = before;
    const auto store = rig.open();
    rig.file.failSaves = true;
    const qv::Result<void> changed = GetParam().change(*store);
    ASSERT_FALSE(changed.ok());
    EXPECT_EQ(changed.error().code, qv::ErrorCode::FileUnwritable);
    EXPECT_EQ(Value(store->snapshot()), before);
    EXPECT_EQ(rig.file.files[kFile], before);
    EXPECT_TRUE(rig.notifier.posts.empty());
}

INSTANTIATE_TEST_SUITE_P(
    BlockedUpdates, FailedSave,
    testing::Values(
        FailedSaveCase{"Unblock", [](BlockedUpdates &store) { return store.unblockUpdate(Value("com.a")); }},
        FailedSaveCase{"NewRecord",
                       [](BlockedUpdates &store) { return store.saveRecord(Value("com.c"), record("", true)); }},
        FailedSaveCase{"ReplacedRecord",
                       [](BlockedUpdates &store) { return store.saveRecord(Value("com.a"), record("2", true)); }}),
    [](const auto &info) { return info.param.name; });

struct MergeCase {
    std::string name;
    std::vector<Value> updates;
    std::vector<std::size_t> kept;
};

class Merge : public testing::TestWithParam<MergeCase> {};

TEST_P(Merge, KeepsUnblockedUpdatesInOrderAndCountsThem) {
    Rig rig;
    const auto store = rig.open();
    // Written after the store opened: the merge must read the file itself.
    rig.file.files[kFile] = records({{"com.hidden", record("", true)}, {"com.one", record("1.0", false)}});
    std::int64_t count = -1;
    EXPECT_EQ(store->mergeAvailableUpdates(GetParam().updates, &count), GetParam().kept);
    EXPECT_EQ(count, static_cast<std::int64_t>(GetParam().kept.size()));
}

INSTANTIATE_TEST_SUITE_P(
    BlockedUpdates, Merge,
    testing::Values(MergeCase{"Empty", {}, {}},
                    MergeCase{"Mixed",
                              {modernUpdate("com.a", "1"), modernUpdate("com.hidden", "3"),
                               modernUpdate("com.one", "1.0"), modernUpdate("com.one", "1.1"), Value("not a record")},
                              {0, 3, 4}},
                    MergeCase{"AllHidden", {modernUpdate("com.hidden", "1"), modernUpdate("com.hidden", "2")}, {}}),
    [](const auto &info) { return info.param.name; });

TEST(BlockedUpdates, IdentifierFiltersMatchStoreIdentifierKeysAfterReloading) {
    Rig rig;
    const auto store = rig.open();
    rig.file.files[kFile] = records({{Value(1234LL), record("", true)}, {"com.a", record("", true)}});
    EXPECT_EQ(store->filteredCandidates({Value(1234), Value("com.a"), Value(99), Value()}),
              (std::vector<std::size_t>{2, 3}));
    EXPECT_EQ(store->filteredASDSoftwareUpdates({5, 1234, 6}), (std::vector<std::size_t>{0, 2}));
}

struct SectionCase {
    std::string name;
    std::optional<std::string> title;
    bool filtered;
};

class SectionFilter : public testing::TestWithParam<SectionCase> {};

TEST_P(SectionFilter, FiltersOnlyTheUpdateSections) {
    const qv::UpdatesSectionTitles titles{"Available Updates", "Pending"};
    EXPECT_EQ(qv::sectionHidesBlockedUpdates(GetParam().title, titles), GetParam().filtered);
}

INSTANTIATE_TEST_SUITE_P(BlockedUpdates, SectionFilter,
                         testing::Values(SectionCase{"Available", "Available Updates", true},
                                         SectionCase{"Pending", "Pending", true},
                                         SectionCase{"OtherTitle", "Updated Recently", false},
                                         SectionCase{"DifferentCase", "available updates", false},
                                         SectionCase{"NoTitle", std::nullopt, false}),
                         [](const auto &info) { return info.param.name; });

TEST(BlockedUpdates, SectionItemsDropBlockedOnesWithoutReloading) {
    Rig rig;
    rig.file.files[kFile] = records({{"com.hidden", record("", true)}});
    const auto store = rig.open();
    rig.file.files[kFile] = records({});
    const int loadsBefore = rig.file.loads;
    const std::vector<StoreUpdateItem> items = {
        {Value("com.a"), Value("1")}, {Value("com.hidden"), Value("2")}, {Value("com.b"), Value("3")}};
    EXPECT_EQ(qv::unblockedSectionItems(items, *store), (std::vector<std::size_t>{0, 2}));
    EXPECT_EQ(rig.file.loads, loadsBefore);
}

} // namespace

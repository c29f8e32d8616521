// Block action: the record it writes, the order of save and notifications, and the failure path.
#include "updates/block_action.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "fakes/fake_archive_file.h"
#include "fakes/fake_block_failure_alert.h"
#include "fakes/order_notifier.h"

namespace {

using qv::BlockableItem;
using qv::BlockedUpdates;
using qv::Dictionary;
using qv::Value;

const std::string kFile = "/c/Documents/com.quorvane.qvdovrinkit.plist";

const std::string kDaemon = "system:com.quorvane.dovrinkit.itunestored.reload after 1 save(s)";
const std::string kScreens = "local:com.quorvane.dovrinkit.itunestored.reloadupdates after 1 save(s)";
const std::string kScreensUnsaved = "local:com.quorvane.dovrinkit.itunestored.reloadupdates after 0 save(s)";

struct BlockCase {
    std::string name;
    BlockableItem item;
    bool allUpdates;
    std::optional<bool> notify;
    Value expectedRecords; // the file afterwards; null when nothing may be written
    std::vector<std::string> posts;
    bool failureShown;
};

class BlockAction : public testing::TestWithParam<BlockCase> {};

TEST_P(BlockAction, WritesTheRecordSavesAndNotifiesInOrder) {
    qv::FakeArchiveFile file;
    qv::OrderNotifier notifier(file);
    qv::FakeBlockFailureAlert alert;
    BlockedUpdates store({&file, &notifier, [] { return std::optional<std::string>(kFile); }, 1556.0});
    qv::UpdateBlocker blocker(store, notifier, alert);
    const BlockCase &c = GetParam();
    const bool blocked =
        c.notify ? blocker.blockUpdate(c.item, c.allUpdates, *c.notify) : blocker.blockUpdate(c.item, c.allUpdates);
    EXPECT_EQ(blocked, !c.failureShown);
    EXPECT_EQ(notifier.posts, c.posts);
    if (c.expectedRecords.isNull()) {
        EXPECT_EQ(file.saves, 0);
    } else {
        ASSERT_EQ(file.files.count(kFile), 1U);
        EXPECT_EQ(file.files[kFile], c.expectedRecords);
        EXPECT_TRUE(file.files[kFile].asDictionary()->isMutable());
    }
    ASSERT_EQ(alert.shown.size(), c.failureShown ? 1U : 0U);
    if (c.failureShown) {
        EXPECT_EQ(alert.shown[0].itemDescription, c.item.description);
        EXPECT_TRUE(alert.shown[0].key.isNull());
    }
}

Value recordsOf(long long key, const std::string &version, bool all) {
    return Value(Dictionary{{Value(key), Dictionary{{"version", Value(version)}, {"all", Value(all)}}}});
}

using Kind = BlockableItem::Kind;

INSTANTIATE_TEST_SUITE_P(
    BlockUpdate, BlockAction,
    testing::Values(
        BlockCase{"ThisUpdate",
                  {Kind::UpdateItem, 284882215, "1.2", "item"},
                  false,
                  std::nullopt,
                  recordsOf(284882215, "1.2", false),
                  {kDaemon},
                  false},
        BlockCase{"AllUpdatesOfAnInstalledApp",
                  {Kind::ApplicationProxy, 42, "3.0", "proxy"},
                  true,
                  std::nullopt,
                  recordsOf(42, "3.0", true),
                  {kDaemon},
                  false},
        BlockCase{"UnknownVersionIsEmpty",
                  {Kind::UpdateItem, 7, std::nullopt, "item"},
                  false,
                  std::nullopt,
                  recordsOf(7, "", false),
                  {kDaemon},
                  false},
        BlockCase{"NotifyPostsLocalAfterDaemon",
                  {Kind::UpdateItem, 7, "1", "item"},
                  true,
                  true,
                  recordsOf(7, "1", true),
                  {kDaemon, kScreens},
                  false},
        BlockCase{
            "NoNotify", {Kind::UpdateItem, 7, "1", "item"}, true, false, recordsOf(7, "1", true), {kDaemon}, false},
        BlockCase{"OtherItemFails", {Kind::Other, 7, "1", "<UIView>"}, false, std::nullopt, Value(), {}, true},
        BlockCase{"ProxyWithoutItemIdFails",
                  {Kind::ApplicationProxy, std::nullopt, "1", "proxy"},
                  false,
                  std::nullopt,
                  Value(),
                  {},
                  true},
        BlockCase{"FailureStillTellsScreensWhenAsked",
                  {Kind::Other, std::nullopt, std::nullopt, "x"},
                  false,
                  true,
                  Value(),
                  {kScreensUnsaved},
                  true}),
    [](const auto &info) { return info.param.name; });

TEST(BlockAction, ALaterBlockReplacesTheEarlierRecord) {
    qv::FakeArchiveFile file;
    qv::SilentNotifier notifier;
    qv::FakeBlockFailureAlert alert;
    BlockedUpdates store({&file, &notifier, [] { return std::optional<std::string>(kFile); }, 1556.0});
    qv::UpdateBlocker blocker(store, notifier, alert);
    blocker.blockUpdate({Kind::UpdateItem, 9, "1.0", "item"}, false);
    blocker.blockUpdate({Kind::UpdateItem, 9, "1.1", "item"}, true);
    EXPECT_EQ(file.files[kFile], recordsOf(9, "1.1", true));
}

TEST(BlockAction, FailureReportsTheVersionAsDetermined) {
    qv::FakeArchiveFile file;
    qv::SilentNotifier notifier;
    qv::FakeBlockFailureAlert alert;
    BlockedUpdates store({&file, &notifier, [] { return std::optional<std::string>(kFile); }, 1556.0});
    qv::UpdateBlocker blocker(store, notifier, alert);
    blocker.blockUpdate({Kind::ApplicationProxy, std::nullopt, "2.0", "proxy"}, false);
    blocker.blockUpdate({Kind::Other, std::nullopt, "2.0", "other"}, false);
    ASSERT_EQ(alert.shown.size(), 2U);
    EXPECT_EQ(alert.shown[0].version, std::optional<std::string>("2.0"));
    EXPECT_EQ(alert.shown[1].version, std::nullopt);
}

TEST(BlockAction, AFailedSaveIsAFailure) {
    qv::FakeArchiveFile file;
    qv::OrderNotifier notifier(file);
    qv::FakeBlockFailureAlert alert;
    BlockedUpdates store({&file, &notifier, [] { return std::optional<std::string>(kFile); }, 1556.0});
    qv::UpdateBlocker blocker(store, notifier, alert);
    file.failSaves = true;
    EXPECT_FALSE(blocker.blockUpdate({Kind::UpdateItem, 7, "1.2", "item"}, false, true));
    EXPECT_TRUE(store.snapshot().empty());
    EXPECT_EQ(file.files.count(kFile), 0U);
    EXPECT_EQ(notifier.posts, std::vector<std::string>{kScreens}); // the daemon has nothing to reload
    ASSERT_EQ(alert.shown.size(), 1U);
    EXPECT_EQ(alert.shown[0].key, Value(7));
    EXPECT_EQ(alert.shown[0].version, std::optional<std::string>("1.2"));
}

// The store daemon's merge reloads the records from the file while the App Store app blocks. A reload that lands
// between setting a record and saving it would drop the record from memory, and the save would then drop it from
// the file.
TEST(BlockAction, ARecordIsSetAndSavedWithoutAReloadInBetween) {
    qv::FakeArchiveFile file;
    qv::SilentNotifier notifier;
    qv::FakeBlockFailureAlert alert;
    BlockedUpdates store({&file, &notifier, [] { return std::optional<std::string>(kFile); }, 1556.0});
    qv::UpdateBlocker blocker(store, notifier, alert);
    constexpr int kBlocks = 400;
    std::atomic<int> blocksDone{0};
    // One reload per block at most: a free-running reloader can win the lock back again and again and starve the
    // blocking thread under a slow scheduler.
    std::thread reloader([&] {
        for (int seen = 0; seen < kBlocks; seen = blocksDone) {
            store.reloadBlockedUpdatesDict();
            while (blocksDone == seen) {
                std::this_thread::yield();
            }
        }
    });
    for (int identifier = 1; identifier <= kBlocks; ++identifier) {
        blocker.blockUpdate({Kind::UpdateItem, identifier, "1", "item"}, false);
        ++blocksDone;
    }
    reloader.join();
    EXPECT_EQ(file.files[kFile].asDictionary()->size(), static_cast<std::size_t>(kBlocks));
}

TEST(BlockFailureMail, BodyPadsEachLineAndShowsMissingValuesAsNull) {
    const std::string pad(60, ' ');
    EXPECT_EQ(qv::blockFailureMailBody(std::string("<ASUpdateItem>"), std::nullopt, std::string("42")),
              "update: <ASUpdateItem>, \n" + pad + "version: (null) \n" + pad + "itemIdentifier: 42 \n" + pad);
    EXPECT_EQ(qv::blockFailureMailBody(std::string("%@"), std::string("%@"), std::string("%@")).size(), 226U);
    EXPECT_EQ(qv::blockFailureMailBody(qv::BlockFailure{"x", "1", Value()}),
              "update: x, \n" + pad + "version: 1 \n" + pad + "itemIdentifier: (null) \n" + pad);
}

TEST(BlockFailureMail, SubjectNamesTheUserWhenKnown) {
    EXPECT_EQ(qv::blockFailureMailSubject(std::string("sam")), "Verdigo Help - username: sam");
    EXPECT_EQ(qv::blockFailureMailSubject(std::nullopt), "Verdigo Help");
}

} // namespace

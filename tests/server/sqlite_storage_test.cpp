// SQLite storage limits and failures: what it keeps, what it refuses, and that it writes again once it can.
#include "server/sqlite_storage.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "support/unprivileged_child.h"

namespace qv::server {
namespace {

constexpr std::int64_t kEventBytes = 100; // query and stored JSON of every event below

SearchEvent eventNumber(int number) {
    std::string json = "{\"n\":" + std::to_string(number) + "}";
    json.resize(kEventBytes - 1, ' ');
    return SearchEvent{"q", json};
}

VersionReport reportOf(const std::vector<std::int64_t> &externalIds, const std::string &title = "t") {
    VersionReport report{42, "com.example", title, {}};
    for (const auto id : externalIds) {
        report.versions.push_back(ReportedVersion{id, std::to_string(id)});
    }
    return report;
}

Result<std::unique_ptr<SqliteStorage>> openAt(const std::string &path, const SqliteOptions &limits = {}) {
    SqliteOptions options = limits;
    options.path = path;
    options.readers = 1;
    return SqliteStorage::open(options);
}

struct BudgetCase {
    const char *name;
    std::int64_t maxEvents;
    std::int64_t maxBytes;
    int recorded;
    bool reopenHalfway; // the byte total must survive a restart
    std::int64_t kept;
};
class SearchEventBudget : public ::testing::TestWithParam<BudgetCase> {};
TEST_P(SearchEventBudget, KeepsTheNewestWithinBothCaps) {
    const test::TemporaryDirectory directory("qv-budget");
    SqliteOptions limits;
    limits.maxSearchEvents = GetParam().maxEvents;
    limits.maxSearchEventBytes = GetParam().maxBytes;
    auto storage = openAt(directory.file("v.sqlite"), limits);
    ASSERT_TRUE(storage) << storage.error().describe();
    for (int i = 0; i < GetParam().recorded; ++i) {
        if (GetParam().reopenHalfway && i == GetParam().recorded / 2) {
            storage->reset();
            storage = openAt(directory.file("v.sqlite"), limits);
            ASSERT_TRUE(storage);
        }
        ASSERT_TRUE((*storage)->recordSearchEvent(eventNumber(i)));
    }
    EXPECT_EQ((*storage)->searchEventCount().valueOr(-1), GetParam().kept);
}
INSTANTIATE_TEST_SUITE_P(Caps, SearchEventBudget,
                         ::testing::Values(BudgetCase{"UnderBoth", 10, 10 * kEventBytes, 6, false, 6},
                                           BudgetCase{"CountBinds", 3, 10 * kEventBytes, 6, false, 3},
                                           BudgetCase{"BytesBind", 10, 4 * kEventBytes, 9, false, 4},
                                           BudgetCase{"BytesBindBetweenWholeEvents", 10, 4 * kEventBytes - 1, 9, false,
                                                      3},
                                           BudgetCase{"BytesBindAcrossARestart", 10, 4 * kEventBytes, 9, true, 4},
                                           BudgetCase{"CountThenBytes", 5, 2 * kEventBytes, 12, true, 2}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(VersionsPerApp, ARefusedReportLeavesTheAppAsItWas) {
    const test::TemporaryDirectory directory("qv-cap");
    SqliteOptions limits;
    limits.maxVersionsPerApp = 3;
    auto storage = openAt(directory.file("v.sqlite"), limits);
    ASSERT_TRUE(storage);
    ASSERT_TRUE((*storage)->recordReport(reportOf({1, 2, 3})));
    const auto refused = (*storage)->recordReport(reportOf({3, 4}, "renamed"));
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, ErrorCode::TooManyVersions);
    EXPECT_EQ(refused.error().detail, "app 42 would hold 4 versions; the service keeps 3 per app");
    EXPECT_EQ((*storage)->versionsOf(42)->size(), 3U);
    EXPECT_EQ((*storage)->appsWithId(42)->at(0).title, "t");
    // Versions the app already holds cost nothing.
    EXPECT_TRUE((*storage)->recordReport(reportOf({1, 2, 3}, "again")));
}

// Another process's exclusive lock: a real write failure that passes once the lock is gone, as root too.
class ForeignLock {
  public:
    explicit ForeignLock(const std::string &path) {
        sqlite3_open(path.c_str(), &db_);
        sqlite3_exec(db_, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
    }
    ~ForeignLock() { sqlite3_close(db_); }
    ForeignLock(const ForeignLock &) = delete;
    ForeignLock &operator=(const ForeignLock &) = delete;
    void release() { sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr); }

  private:
    sqlite3 *db_ = nullptr;
};

TEST(WriteFailure, WritesResumeByThemselvesOnceTheDatabaseTakesThemAgain) {
    const test::TemporaryDirectory directory("qv-lock");
    const std::string path = directory.file("v.sqlite");
    SqliteOptions impatient;
    impatient.busyTimeoutMilliseconds = 0;
    auto storage = openAt(path, impatient);
    ASSERT_TRUE(storage);
    ForeignLock lock(path);
    const auto report = (*storage)->recordReport(reportOf({1}));
    const auto event = (*storage)->recordSearchEvent(eventNumber(1));
    ASSERT_FALSE(report);
    ASSERT_FALSE(event);
    EXPECT_EQ(report.error().code, ErrorCode::StorageFailed);
    const auto opened = openAt(path, impatient);
    ASSERT_FALSE(opened);
    EXPECT_EQ(opened.error().describe().rfind(path + ": cannot write: ", 0), 0U) << opened.error().describe();
    lock.release();
    EXPECT_TRUE((*storage)->recordReport(reportOf({1})));
    EXPECT_TRUE((*storage)->recordSearchEvent(eventNumber(1)));
    EXPECT_EQ((*storage)->versionsOf(42)->size(), 1U);
}

struct UnwritableCase {
    const char *name;
    mode_t fileMode;
    mode_t folderMode;
    const char *reason; // after "<path>: "
};
class UnwritableAtOpen : public ::testing::TestWithParam<UnwritableCase> {};
TEST_P(UnwritableAtOpen, IsRefusedNamingThePathAndTheReason) {
    const test::TemporaryDirectory directory("qv-readonly");
    const std::string path = directory.file("v.sqlite");
    const auto outcome = test::runUnprivileged(directory.path(), [&] {
        if (!openAt(path)) {
            return 2;
        }
        ::chmod(path.c_str(), GetParam().fileMode);
        ::chmod(directory.path().c_str(), GetParam().folderMode);
        const auto refused = openAt(path);
        std::fputs(refused ? "opened" : refused.error().describe().c_str(), stdout);
        return refused ? 1 : 0;
    });
    ::chmod(directory.path().c_str(), 0700);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_EQ(outcome.output, path + ": " + GetParam().reason);
}
INSTANTIATE_TEST_SUITE_P(Modes, UnwritableAtOpen,
                         ::testing::Values(UnwritableCase{"ReadOnlyFile", 0444, 0755, "the file is read-only"},
                                           UnwritableCase{"ReadOnlyFolder", 0644, 0555,
                                                          "attempt to write a readonly database"}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv::server

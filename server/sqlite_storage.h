// VersionStorage on an embedded SQLite database (WAL, prepared statements, one writer, a pool of readers).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "server/storage.h"

namespace qv::server {

struct SqliteOptions : StorageLimits {
    std::string path;
    std::size_t readers = kDefaultReaders;
    // How long a statement waits for another process's lock before it fails.
    int busyTimeoutMilliseconds = kDefaultBusyTimeoutMilliseconds;

    static constexpr std::size_t kDefaultReaders = 8;
    static constexpr int kDefaultBusyTimeoutMilliseconds = 5000;
};

class SqliteStorage : public VersionStorage {
  public:
    // Opens (creating the file and schema on first start) and proves the file writable with a real write;
    // StorageFailed naming the path and the database's reason otherwise.
    static Result<std::unique_ptr<SqliteStorage>> open(const SqliteOptions &options);
    ~SqliteStorage() override;

    Result<void> recordReport(const VersionReport &report) override;
    Result<std::vector<StoredVersion>> versionsOf(std::int64_t appId) override;
    Result<std::vector<AppSummary>> appsWithId(std::int64_t appId) override;
    Result<std::vector<AppSummary>> appsWithBundleId(const std::string &bundleId) override;
    Result<std::vector<VersionHistory>> versionHistoryOf(std::int64_t appId) override;
    Result<std::vector<AppSummary>> searchApps(const AppSearch &search, std::size_t limit) override;
    Result<std::vector<AppSummary>> recentlyReportedApps(std::size_t limit) override;
    Result<StorageTotals> totals() override;
    Result<void> recordSearchEvent(const SearchEvent &event) override;
    Result<std::int64_t> searchEventCount() override;
    Result<std::int64_t> versionBytes() override;
    std::string clientKey() const override;
    // Also fails once the file has been deleted or replaced, even before a write has noticed.
    Result<void> ping() override;
    // Whether a write found the file deleted or replaced since it was opened; writes fail from then on.
    bool fileLost() const;

    class Connection;

  private:
    explicit SqliteStorage(SqliteOptions options);

    // A reader connection for the duration of one query.
    class Lease;
    Connection *acquireReader();
    void releaseReader(Connection *reader);
    // The writer, opened again (and proven writable) after a failed write; called with writerMutex_ held.
    Result<Connection *> writerLocked();
    Result<void> writeLocked(Connection &db, const std::function<Result<void>()> &work);
    Result<void> trimSearchEvents(Connection &db, std::int64_t addedBytes);
    Result<void> recordLocked(Connection &db, const VersionReport &report);
    bool sameFileAsOpened() const;

    const SqliteOptions options_;
    std::string clientKey_;
    // The file as it was opened; writerLocked() compares the path with it before every write.
    dev_t fileDevice_ = 0;
    ino_t fileInode_ = 0;
    std::atomic<bool> fileLost_{false};
    std::mutex writerMutex_;
    // Dropped after a failed write: a connection that met a read-only or vanished file stays that way, a new one
    // sees the file as it is now.
    std::unique_ptr<Connection> writer_;
    std::mutex readersMutex_;
    std::condition_variable readerFree_;
    std::vector<std::unique_ptr<Connection>> readers_;
    std::vector<Connection *> idleReaders_;
};

} // namespace qv::server

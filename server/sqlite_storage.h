// VersionStorage on an embedded SQLite database (WAL, prepared statements, one writer, a pool of readers).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "server/storage.h"

namespace qv::server {

struct SqliteOptions {
    std::string path;
    std::size_t readers = kDefaultReaders;
    std::int64_t maxSearchEvents = kDefaultMaxSearchEvents;

    static constexpr std::size_t kDefaultReaders = 8;
    static constexpr std::int64_t kDefaultMaxSearchEvents = 100000;
};

class SqliteStorage : public VersionStorage {
  public:
    // Opens (creating the file and schema on first start); StorageFailed with the database's reason otherwise.
    static Result<std::unique_ptr<SqliteStorage>> open(const SqliteOptions &options);
    ~SqliteStorage() override;

    Result<void> recordReport(const VersionReport &report) override;
    Result<std::vector<StoredVersion>> versionsOf(std::int64_t appId) override;
    Result<std::vector<AppSummary>> appsWithId(std::int64_t appId) override;
    Result<std::vector<AppSummary>> appsWithBundleId(const std::string &bundleId) override;
    Result<void> recordSearchEvent(const SearchEvent &event) override;
    Result<std::int64_t> searchEventCount() override;

    class Connection;

  private:
    explicit SqliteStorage(std::int64_t maxSearchEvents);

    // A reader connection for the duration of one query.
    class Lease;
    Connection *acquireReader();
    void releaseReader(Connection *reader);

    std::int64_t maxSearchEvents_;
    std::mutex writerMutex_;
    std::unique_ptr<Connection> writer_;
    std::mutex readersMutex_;
    std::condition_variable readerFree_;
    std::vector<std::unique_ptr<Connection>> readers_;
    std::vector<Connection *> idleReaders_;
};

} // namespace qv::server

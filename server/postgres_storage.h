// VersionStorage on a PostgreSQL database that several service instances may share.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "server/storage.h"

namespace qv::server {

struct PostgresOptions : StorageLimits {
    std::string url; // postgresql://… or postgres://…, or libpq's key=value form
    std::size_t connections = kDefaultConnections;

    static constexpr std::size_t kDefaultConnections = 8;
};

// True for the database names that mean PostgreSQL rather than a SQLite file.
bool isPostgresUrl(const std::string &database);

// The connection string with any password taken out, fit for logs and error messages.
std::string withoutPassword(const std::string &url);

class PostgresStorage : public VersionStorage {
  public:
    // Connects, brings the schema up to date (one instance at a time) and proves the database writable;
    // StorageFailed with the URL (without its password) and the server's reason, on one line, otherwise.
    static Result<std::unique_ptr<PostgresStorage>> open(const PostgresOptions &options);
    ~PostgresStorage() override;

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
    Result<void> ping() override;

    class Connection;

  private:
    explicit PostgresStorage(PostgresOptions options);

    // A pooled connection for the duration of one call, connected again first if it was lost.
    class Lease;
    std::unique_ptr<Connection> acquire();
    void release(std::unique_ptr<Connection> connection);
    Result<Connection *> connected(std::unique_ptr<Connection> &slot);

    const PostgresOptions options_;
    std::string clientKey_;
    std::mutex poolMutex_;
    std::condition_variable connectionFree_;
    // Null entries are connections not (or no longer) open; they are made on the next lease.
    std::vector<std::unique_ptr<Connection>> idle_;
};

} // namespace qv::server

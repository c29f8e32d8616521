// Storage behind the version service: what it records and answers, independent of the database behind it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/result.h"
#include "server/app_search.h"

namespace qv::server {

// Runs work between begin and COMMIT on connection (anything with execute(sql) and rollBack()): committed when the
// work and the commit succeed, rolled back otherwise, and the first failure is the one returned.
template <typename Connection, typename Work>
Result<void> runInTransaction(Connection &connection, const char *begin, Work &&work) {
    if (auto begun = connection.execute(begin); !begun) {
        return begun;
    }
    Result<void> outcome = work();
    if (outcome) {
        outcome = connection.execute("COMMIT");
    }
    if (!outcome) {
        connection.rollBack();
    }
    return outcome;
}

// One version as a report carries it.
struct ReportedVersion {
    std::int64_t externalId = 0;
    std::string display;
};

// A version report, validated: the app's store identifier, names and the versions it carries, and who sent it.
struct VersionReport {
    std::int64_t appId = 0;
    std::string bundleId;
    std::string title;
    std::vector<ReportedVersion> versions;
    // The sender as a keyed hash of its address, never the address; reports without one count as one sender.
    std::string client;
};

struct StoredVersion {
    std::string display;
    std::int64_t externalId = 0;
};

struct AppSummary {
    std::int64_t appId = 0;
    std::string bundleId;
    std::string title;
    std::string newestDisplay; // display text of the highest external identifier whose display is known
    // Seconds since the epoch of the app's first and latest report.
    std::int64_t firstReportedAt = 0;
    std::int64_t lastReportedAt = 0;
};

// A version with when it was first and last reported, in seconds since the epoch.
struct VersionHistory {
    std::string display;
    std::int64_t externalId = 0;
    std::int64_t firstReportedAt = 0;
    std::int64_t lastReportedAt = 0;
};

struct StorageTotals {
    std::int64_t apps = 0;
    std::int64_t versions = 0;
};

// What a storage keeps at most, whatever the database behind it.
struct StorageLimits {
    std::int64_t maxSearchEvents = kDefaultMaxSearchEvents;
    std::int64_t maxSearchEventBytes = kDefaultMaxSearchEventBytes; // query and stored JSON of every kept event
    std::int64_t maxVersionsPerApp = kDefaultMaxVersionsPerApp;
    std::int64_t maxVersionBytes = kDefaultMaxVersionBytes; // apps and versions, as versionBytes() counts them

    static constexpr std::int64_t kDefaultMaxSearchEvents = 100000;
    static constexpr std::int64_t kDefaultMaxSearchEventBytes = std::int64_t{256} * 1024 * 1024;
    static constexpr std::int64_t kDefaultMaxVersionsPerApp = 5000;
    static constexpr std::int64_t kDefaultMaxVersionBytes = std::int64_t{1024} * 1024 * 1024;
    // What one stored app or version costs beyond its texts: keys, times and index entries.
    static constexpr std::int64_t kRowBytes = 64;
    // Distinct senders remembered per version and per app; enough to tell a lone sender from real support.
    static constexpr std::int64_t kCountedClients = 8;
};

struct SearchEvent {
    std::string query;
    std::string bodyJson; // the event's known fields, in compact JSON
};

// Every call either succeeds or fails with ErrorCode::StorageFailed and the database's own words as detail; a
// failed call leaves nothing half-written, and a later call tries again from scratch.
class VersionStorage {
  public:
    VersionStorage() = default;
    VersionStorage(const VersionStorage &) = delete;
    VersionStorage &operator=(const VersionStorage &) = delete;
    virtual ~VersionStorage() = default;

    // Records the report atomically. The first report of an app sets its bundle identifier and title for good: a
    // later one naming another bundle identifier fails with Conflict, recording nothing. Each version is added or its
    // display text replaced; an empty display text means "not known yet": it is stored for a new version but never
    // replaces a known one, so a later report with the text fills it in. The sender is counted among the version's
    // and the app's distinct senders. When the app would hold more versions than the storage keeps per app, the
    // versions with the fewest distinct senders (the oldest first among equals) make room. Fails with StorageFull,
    // recording nothing, when the versions of all apps would pass the byte budget, and with TooManyVersions when the
    // report alone carries more versions than an app may hold.
    virtual Result<void> recordReport(const VersionReport &report) = 0;
    // Every known version of the app, highest external identifier first.
    virtual Result<std::vector<StoredVersion>> versionsOf(std::int64_t appId) = 0;
    virtual Result<std::vector<AppSummary>> appsWithId(std::int64_t appId) = 0;
    // The one app that claims the bundle identifier with the most distinct senders (the lowest store identifier
    // among equals), or none.
    virtual Result<std::vector<AppSummary>> appsWithBundleId(const std::string &bundleId) = 0;
    // The app's versions as versionsOf lists them, with when each was first and last reported.
    virtual Result<std::vector<VersionHistory>> versionHistoryOf(std::int64_t appId) = 0;
    // The apps whose words begin with every word searched (and the app with the store identifier searched), the
    // most recently reported first, through the search index: never a scan of every app.
    virtual Result<std::vector<AppSummary>> searchApps(const AppSearch &search, std::size_t limit) = 0;
    // The most recently reported apps first.
    virtual Result<std::vector<AppSummary>> recentlyReportedApps(std::size_t limit) = 0;
    virtual Result<StorageTotals> totals() = 0;
    // Keeps at most the configured number of events and bytes of events, dropping the oldest.
    virtual Result<void> recordSearchEvent(const SearchEvent &event) = 0;
    virtual Result<std::int64_t> searchEventCount() = 0;
    // What the stored apps and versions cost against the byte budget.
    virtual Result<std::int64_t> versionBytes() = 0;
    // The secret that senders' addresses are hashed with; made once per database, so every instance sharing it
    // counts one sender once.
    virtual std::string clientKey() const = 0;
    // Whether the database answers a trivial query now; for health checks, so it must stay cheap.
    virtual Result<void> ping() = 0;
};

} // namespace qv::server

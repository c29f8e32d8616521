// Storage behind the version service: what it records and answers, independent of the database behind it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/result.h"

namespace qv::server {

// One version as a report carries it.
struct ReportedVersion {
    std::int64_t externalId = 0;
    std::string display;
};

// A version report, validated: the app's store identifier, names and the versions it carries.
struct VersionReport {
    std::int64_t appId = 0;
    std::string bundleId;
    std::string title;
    std::vector<ReportedVersion> versions;
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
};

// What a storage keeps at most, whatever the database behind it.
struct StorageLimits {
    std::int64_t maxSearchEvents = kDefaultMaxSearchEvents;
    std::int64_t maxSearchEventBytes = kDefaultMaxSearchEventBytes; // query and stored JSON of every kept event
    std::int64_t maxVersionsPerApp = kDefaultMaxVersionsPerApp;

    static constexpr std::int64_t kDefaultMaxSearchEvents = 100000;
    static constexpr std::int64_t kDefaultMaxSearchEventBytes = std::int64_t{256} * 1024 * 1024;
    static constexpr std::int64_t kDefaultMaxVersionsPerApp = 5000;
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

    // Records the report atomically: the app's names become the report's, each version is added or its display
    // text replaced. An empty display text means "not known yet": it is stored for a new version but never replaces
    // a known one, so a later report with the text fills it in. Fails with TooManyVersions, recording nothing, when the
    // app would then hold more versions than the storage keeps per app.
    virtual Result<void> recordReport(const VersionReport &report) = 0;
    // Every known version of the app, highest external identifier first.
    virtual Result<std::vector<StoredVersion>> versionsOf(std::int64_t appId) = 0;
    virtual Result<std::vector<AppSummary>> appsWithId(std::int64_t appId) = 0;
    virtual Result<std::vector<AppSummary>> appsWithBundleId(const std::string &bundleId) = 0;
    // Keeps at most the configured number of events and bytes of events, dropping the oldest.
    virtual Result<void> recordSearchEvent(const SearchEvent &event) = 0;
    virtual Result<std::int64_t> searchEventCount() = 0;
};

} // namespace qv::server

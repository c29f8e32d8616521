// When the phone tells the version service what it sees: each decision to report or not, and the small file of what
// was already sent that keeps it from saying the same thing twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "platform/app_store_container.h"
#include "platform/archive_file.h"
#include "platform/http.h"
#include "platform/preferences.h"
#include "platform/queue.h"
#include "service/service_client.h"

namespace qv {

// Inside the App Store app's data container, beside the library's other files; both store processes use it.
inline constexpr std::string_view kSentReportsFile = "Library/com.quorvane.qvdovrinkit.sent-reports.plist";
inline constexpr std::string_view kCrowdsourcingQueueLabel = "com.quorvane.qvdovrinkit.crowdsourcing";
// Enough for every app of a well-filled phone; past it the longest-untouched entries go first.
inline constexpr std::size_t kMaxRememberedReports = 1000;

// The file of what was sent inside the container; nothing when the container is unknown.
std::optional<std::string> sentReportsFileIn(const AppStoreContainer &container);

// Days since 1970-01-01 in UTC: the unit of "at most once a day".
using DayClock = std::function<std::int64_t()>;
std::int64_t currentDay();

enum class ReportVerdict {
    Send,
    SwitchedOff,     // the user turned crowdsourcing off
    NothingToReport, // the metadata or item lacks what a report needs
    AlreadySent,     // the service took this app's version already
    TriedToday,      // a try for this app's version went out today; a failed one is retried tomorrow
};
std::string_view describe(ReportVerdict verdict);

// What was reported, by app and version: the day of the last try and whether the service took it. Bounded: past
// kMaxRememberedReports entries, the ones tried longest ago are forgotten.
class SentReports {
  public:
    SentReports() = default;
    // The file's root as stored; entries of another shape are ignored, so a damaged file costs a few repeats.
    static SentReports fromValue(const Value &stored);
    Value toValue() const;

    ReportVerdict verdict(const std::string &key, std::int64_t day) const;
    void tried(const std::string &key, std::int64_t day);
    void sent(const std::string &key, std::int64_t day);
    // Takes what the other has that this one lacks or knows less of (a later day, a success).
    void merge(const SentReports &other);
    std::size_t size() const { return entries_.size(); }

  private:
    struct Entry {
        std::int64_t day = 0;
        bool sent = false;
    };
    void record(const std::string &key, Entry entry);
    void forgetOldest();

    std::map<std::string, Entry, std::less<>> entries_;
};

// Which store process sends which report: the daemon can read every installed app's metadata file, the App Store
// app sees the store's items.
bool crowdsourcesInstalledApps(std::string_view mainBundleIdentifier);
bool crowdsourcesStoreItems(std::string_view mainBundleIdentifier);

// The key of a built report: which app, and which of its versions.
std::string sentReportKey(std::string_view kind, const VersionReportRequest &request);

// Sends the installed-app and store-item reports in the background, each app version at most once a day until the
// service has taken it, and never when the user switched crowdsourcing off. Failures are dropped: the report goes
// out again on the next day it is seen. Search events are not sent from here.
class Crowdsourcing {
  public:
    // sentReportsPath: the file of what was sent; without one, only this process's memory bounds the reports.
    // apiBaseUrl is asked at each send, so that the address a user sets applies at once.
    Crowdsourcing(Http &http, Queues &queues, const Preferences &preferences, ArchiveFile &files,
                  std::optional<std::string> sentReportsPath, std::function<std::string()> apiBaseUrl,
                  DayClock clock = currentDay);
    Crowdsourcing(const Crowdsourcing &) = delete;
    Crowdsourcing &operator=(const Crowdsourcing &) = delete;
    ~Crowdsourcing() = default;

    // Reads the installed apps' metadata on the background queue (file access the store must not wait for) and
    // reports each one.
    void reportInstalledApps(std::function<std::vector<Value>()> readAllMetadata);
    // The store shows an app: reports the versions its item lists.
    void storeItemShown(Value item);

    // The same decisions, made at once on the caller's thread; what the background work runs.
    ReportVerdict reportInstalledApp(const Value &metadata);
    ReportVerdict reportStoreItem(const Value &item);

  private:
    ReportVerdict report(std::string_view kind, const BuiltReport &built);
    SentReports loadMerged();
    void save(const SentReports &reports);

    Http &http_;
    const Preferences &preferences_;
    ArchiveFile &files_;
    std::optional<std::string> sentReportsPath_;
    std::function<std::string()> apiBaseUrl_;
    DayClock clock_;
    std::mutex mutex_;
    SentReports remembered_;
    // Last, so that it is destroyed first: its pending tasks still use the members above.
    std::unique_ptr<Queue> queue_;
};

} // namespace qv

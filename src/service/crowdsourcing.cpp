// The phone's crowdsourcing: which reports go out, when, and the bounded record of what went out.
#include "service/crowdsourcing.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/text.h"
#include "core/hook_installer.h"

namespace qv {

namespace {

constexpr std::string_view kInstalledKind = "installed";
constexpr std::string_view kStoreItemKind = "item";

} // namespace

std::optional<std::string> sentReportsFileIn(const AppStoreContainer &container) {
    auto directory = container.dataContainerDirectory();
    if (!directory || directory->empty()) {
        return std::nullopt;
    }
    if (directory->back() != '/') {
        directory->push_back('/');
    }
    return *directory + std::string(kSentReportsFile);
}

std::int64_t currentDay() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::hours>(now).count() / 24;
}

std::string_view describe(ReportVerdict verdict) {
    switch (verdict) {
    case ReportVerdict::Send:
        return "sent";
    case ReportVerdict::SwitchedOff:
        return "crowdsourcing is switched off";
    case ReportVerdict::NothingToReport:
        return "nothing to report";
    case ReportVerdict::AlreadySent:
        return "already sent";
    case ReportVerdict::TriedToday:
        return "already tried today";
    }
    return "unknown verdict";
}

SentReports SentReports::fromValue(const Value &stored) {
    SentReports reports;
    const Dictionary *entries = stored.asDictionary();
    if (entries == nullptr) {
        return reports;
    }
    for (const auto &[key, entry] : *entries) {
        const std::string *name = key.asString();
        const std::int64_t *day = entry["day"].asInteger();
        if (name != nullptr && day != nullptr) {
            reports.record(*name, Entry{*day, entry["sent"].truthy()});
        }
    }
    return reports;
}

Value SentReports::toValue() const {
    Dictionary stored;
    for (const auto &[key, entry] : entries_) {
        stored.set(Value(key), Value(Dictionary{{"day", entry.day}, {"sent", entry.sent}}));
    }
    return Value(std::move(stored));
}

ReportVerdict SentReports::verdict(const std::string &key, std::int64_t day) const {
    const auto found = entries_.find(key);
    if (found == entries_.end()) {
        return ReportVerdict::Send;
    }
    if (found->second.sent) {
        return ReportVerdict::AlreadySent;
    }
    // A clock set back counts as the same day: better one report late than two on one day.
    return found->second.day >= day ? ReportVerdict::TriedToday : ReportVerdict::Send;
}

void SentReports::tried(const std::string &key, std::int64_t day) {
    record(key, Entry{day, false});
}

void SentReports::sent(const std::string &key, std::int64_t day) {
    record(key, Entry{day, true});
}

void SentReports::merge(const SentReports &other) {
    for (const auto &[key, entry] : other.entries_) {
        const auto found = entries_.find(key);
        if (found == entries_.end()) {
            record(key, entry);
        } else {
            found->second.day = std::max(found->second.day, entry.day);
            found->second.sent = found->second.sent || entry.sent;
        }
    }
}

void SentReports::record(const std::string &key, Entry entry) {
    entries_[key] = entry;
    while (entries_.size() > kMaxRememberedReports) {
        forgetOldest();
    }
}

void SentReports::forgetOldest() {
    const auto oldest = std::min_element(entries_.begin(), entries_.end(), [](const auto &left, const auto &right) {
        return left.second.day < right.second.day;
    });
    entries_.erase(oldest);
}

bool crowdsourcesInstalledApps(std::string_view mainBundleIdentifier) {
    return isStoreDaemon(mainBundleIdentifier);
}

bool crowdsourcesStoreItems(std::string_view mainBundleIdentifier) {
    return !isStoreDaemon(mainBundleIdentifier);
}

std::string sentReportKey(std::string_view kind, const VersionReportRequest &request) {
    std::string key = std::string(kind) + ":" + request.storeIdentifier + ":";
    const Array *versions = request.body["versions"].asArray();
    bool first = true;
    for (const Value &version : versions != nullptr ? *versions : Array()) {
        // A store item's version may lack an identifier; its display text then tells versions apart.
        const Value &externalId = version["externalId"];
        key += (first ? "" : ",") + textOf(externalId.isNull() ? version["display"] : externalId);
        first = false;
    }
    return key;
}

Crowdsourcing::Crowdsourcing(Http &http, Queues &queues, const Preferences &preferences, ArchiveFile &files,
                             std::optional<std::string> sentReportsPath, std::function<std::string()> apiBaseUrl,
                             DayClock clock)
    : http_(http), preferences_(preferences), files_(files), sentReportsPath_(std::move(sentReportsPath)),
      apiBaseUrl_(std::move(apiBaseUrl)), clock_(std::move(clock)),
      queue_(queues.makeSerial(std::string(kCrowdsourcingQueueLabel))) {}

void Crowdsourcing::reportInstalledApps(std::function<std::vector<Value>()> readAllMetadata) {
    if (preferences_.boolForKey(std::string(kDisableAppCachingKey))) {
        return;
    }
    queue_->async([this, readAllMetadata = std::move(readAllMetadata)] {
        for (const Value &metadata : readAllMetadata()) {
            reportInstalledApp(metadata);
        }
    });
}

void Crowdsourcing::storeItemShown(Value item) {
    if (preferences_.boolForKey(std::string(kDisableAppCachingKey))) {
        return;
    }
    queue_->async([this, item = std::move(item)] { reportStoreItem(item); });
}

ReportVerdict Crowdsourcing::reportInstalledApp(const Value &metadata) {
    return report(kInstalledKind, reportFromMetadata(metadata));
}

ReportVerdict Crowdsourcing::reportStoreItem(const Value &item) {
    return report(kStoreItemKind, reportFromStoreItem(item));
}

ReportVerdict Crowdsourcing::report(std::string_view kind, const BuiltReport &built) {
    // The switch is read again at the moment of sending: the user may have turned it off since the work was queued.
    if (preferences_.boolForKey(std::string(kDisableAppCachingKey))) {
        return ReportVerdict::SwitchedOff;
    }
    if (!built.request) {
        return ReportVerdict::NothingToReport;
    }
    const std::string key = sentReportKey(kind, *built.request);
    const std::int64_t day = clock_();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        SentReports reports = loadMerged();
        const ReportVerdict verdict = reports.verdict(key, day);
        if (verdict != ReportVerdict::Send) {
            return verdict;
        }
        // Written before sending, so that a crash or a kill during the send still counts as today's try.
        reports.tried(key, day);
        save(reports);
    }
    const HttpResult result =
        http_.fetch(makeJsonPost(versionsPath(built.request->storeIdentifier), apiBaseUrl_(), built.request->body));
    if (result.succeeded()) {
        const std::lock_guard<std::mutex> lock(mutex_);
        SentReports reports = loadMerged();
        reports.sent(key, day);
        save(reports);
    }
    return ReportVerdict::Send;
}

SentReports Crowdsourcing::loadMerged() {
    if (sentReportsPath_) {
        // A missing or damaged file reads as empty; the other store process's entries arrive through it.
        const auto stored = files_.load(*sentReportsPath_);
        if (stored) {
            remembered_.merge(SentReports::fromValue(*stored));
        }
    }
    return remembered_;
}

void Crowdsourcing::save(const SentReports &reports) {
    remembered_ = reports;
    if (sentReportsPath_) {
        // A file that cannot be written leaves this process's memory as the bound until it can.
        (void)files_.save(*sentReportsPath_, reports.toValue());
    }
}

} // namespace qv

// Version storage that fails every call, as a full disk or a locked database would, until it is mended; mended, it
// passes every call to the storage behind it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "server/storage.h"

namespace qv::server {

class BrokenStorage : public VersionStorage {
  public:
    BrokenStorage() = default;
    explicit BrokenStorage(VersionStorage &behind) : behind_(&behind) {}

    void mend() { broken_ = false; }
    void breakAgain() { broken_ = true; }

    Result<void> recordReport(const VersionReport &report) override {
        return working() ? behind_->recordReport(report) : diskFull();
    }
    Result<std::vector<StoredVersion>> versionsOf(std::int64_t appId) override {
        return working() ? behind_->versionsOf(appId) : ioError();
    }
    Result<std::vector<AppSummary>> appsWithId(std::int64_t appId) override {
        return working() ? behind_->appsWithId(appId) : ioError();
    }
    Result<std::vector<AppSummary>> appsWithBundleId(const std::string &bundleId) override {
        return working() ? behind_->appsWithBundleId(bundleId) : ioError();
    }
    Result<std::vector<VersionHistory>> versionHistoryOf(std::int64_t appId) override {
        return working() ? behind_->versionHistoryOf(appId) : ioError();
    }
    Result<std::vector<AppSummary>> searchApps(const AppSearch &search, std::size_t limit) override {
        return working() ? behind_->searchApps(search, limit) : ioError();
    }
    Result<std::vector<AppSummary>> recentlyReportedApps(std::size_t limit) override {
        return working() ? behind_->recentlyReportedApps(limit) : ioError();
    }
    Result<StorageTotals> totals() override { return working() ? behind_->totals() : ioError(); }
    Result<void> recordSearchEvent(const SearchEvent &event) override {
        return working() ? behind_->recordSearchEvent(event) : diskFull();
    }
    Result<std::int64_t> searchEventCount() override { return working() ? behind_->searchEventCount() : ioError(); }
    Result<std::int64_t> versionBytes() override { return working() ? behind_->versionBytes() : ioError(); }
    Result<void> ping() override { return working() ? behind_->ping() : ioError(); }
    std::string clientKey() const override { return behind_ != nullptr ? behind_->clientKey() : "key"; }

  private:
    bool working() const { return !broken_ && behind_ != nullptr; }
    static Error diskFull() { return fail(ErrorCode::StorageFailed, "disk full"); }
    static Error ioError() { return fail(ErrorCode::StorageFailed, "disk I/O error"); }

    VersionStorage *behind_ = nullptr;
    std::atomic<bool> broken_{true};
};

} // namespace qv::server

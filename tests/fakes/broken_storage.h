// Version storage that fails every call, as a full disk or a locked database would.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "server/storage.h"

namespace qv::server {

class BrokenStorage : public VersionStorage {
  public:
    StorageResult<Done> recordReport(const VersionReport &) override {
        return StorageResult<Done>::failure("disk full");
    }
    StorageResult<std::vector<StoredVersion>> versionsOf(std::int64_t) override {
        return StorageResult<std::vector<StoredVersion>>::failure("disk I/O error");
    }
    StorageResult<std::vector<AppSummary>> appsWithId(std::int64_t) override {
        return StorageResult<std::vector<AppSummary>>::failure("disk I/O error");
    }
    StorageResult<std::vector<AppSummary>> appsWithBundleId(const std::string &) override {
        return StorageResult<std::vector<AppSummary>>::failure("disk I/O error");
    }
    StorageResult<Done> recordSearchEvent(const SearchEvent &) override {
        return StorageResult<Done>::failure("disk full");
    }
    StorageResult<std::int64_t> searchEventCount() override { return StorageResult<std::int64_t>::failure("x"); }
};

} // namespace qv::server

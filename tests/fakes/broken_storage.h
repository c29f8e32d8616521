// Version storage that fails every call, as a full disk or a locked database would.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "server/storage.h"

namespace qv::server {

class BrokenStorage : public VersionStorage {
  public:
    Result<void> recordReport(const VersionReport &) override { return diskFull(); }
    Result<std::vector<StoredVersion>> versionsOf(std::int64_t) override { return ioError(); }
    Result<std::vector<AppSummary>> appsWithId(std::int64_t) override { return ioError(); }
    Result<std::vector<AppSummary>> appsWithBundleId(const std::string &) override { return ioError(); }
    Result<void> recordSearchEvent(const SearchEvent &) override { return diskFull(); }
    Result<std::int64_t> searchEventCount() override { return ioError(); }

  private:
    static Error diskFull() { return fail(ErrorCode::StorageFailed, "disk full"); }
    static Error ioError() { return fail(ErrorCode::StorageFailed, "disk I/O error"); }
};

} // namespace qv::server

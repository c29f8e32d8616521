// The package source on the service's own address: a folder of package indexes and packages served under /repo/.
#pragma once

#include <string>
#include <string_view>

#include "base/result.h"
#include "server/version_service.h"

namespace qv::server {

inline constexpr std::string_view kPackageSourcePrefix = "/repo/";

// The content type a file is served with, from its name; package indexes are text.
std::string_view contentTypeFor(std::string_view fileName);

// Serves the regular files inside one folder, read-only. A path with a ".." or hidden segment, or one that
// resolves (through links) outside the folder, is not found; nothing outside the folder is ever read.
class PackageSource {
  public:
    // The folder must exist; its real path is fixed now, so moving a link later does not move the source.
    static Result<PackageSource> open(const std::string &folder);

    // GET or HEAD of "/repo/…"; a folder answers with its index.html. Replies carry an ETag made from the file's
    // identity, size and time, and If-None-Match gets 304 as the JSON replies do.
    ServiceResponse answer(const ServiceRequest &request) const;
    const std::string &root() const { return root_; }

  private:
    explicit PackageSource(std::string root) : root_(std::move(root)) {}
    std::string root_;
};

} // namespace qv::server

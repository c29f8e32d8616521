// Static files of the package source: path checks, content types and cache validators.
#include "server/package_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "server/request_bodies.h"

namespace qv::server {

namespace {

// Larger files are not served from memory; a package source holds indexes and packages of a few megabytes.
constexpr off_t kMaxServedBytes = off_t{256} * 1024 * 1024;
constexpr std::string_view kIndexFile = "index.html";
constexpr std::string_view kIfNoneMatch = "if-none-match";

struct TypeRow {
    std::string_view suffix;
    std::string_view type;
};

constexpr std::array<TypeRow, 12> kTypes{{
    {".deb", "application/vnd.debian.binary-package"},
    {".gz", "application/gzip"},
    {".bz2", "application/x-bzip2"},
    {".xz", "application/x-xz"},
    {".lzma", "application/x-lzma"},
    {".zst", "application/zstd"},
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".png", "image/png"},
    {".json", "application/json"},
    {".gpg", "application/pgp-signature"},
    {".txt", "text/plain; charset=utf-8"},
}};

ServiceResponse notFound(const std::string &path) {
    return errorResponse(fail(ErrorCode::NotFound, std::string(errorMessage(ErrorCode::NotFound)) + ": " + path));
}

// The relative path with "." and empty segments dropped (package managers ask for "./Packages"), or nothing when a
// segment is ".." or a hidden name. A trailing "/" stays: it asks for the folder's index.
std::optional<std::string> plainRelativePath(std::string_view relative) {
    std::string plain;
    std::size_t at = 0;
    while (at <= relative.size()) {
        const auto slash = std::min(relative.find('/', at), relative.size());
        const auto segment = relative.substr(at, slash - at);
        at = slash + 1;
        if (segment.empty() || segment == ".") {
            continue;
        }
        if (segment.front() == '.' || segment.find('\\') != std::string_view::npos) {
            return std::nullopt;
        }
        plain.append(plain.empty() ? "" : "/").append(segment);
    }
    if (!plain.empty() && !relative.empty() && relative.back() == '/') {
        plain.push_back('/');
    }
    return plain;
}

// The real path, or empty when it does not exist.
std::string realPath(const std::string &path) {
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::string(resolved.get()) : std::string();
}

class OpenFile {
  public:
    explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
    ~OpenFile() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

// A strong tag from what identifies this version of the file: a rebuilt index has a new time or size.
std::string fileTag(const struct stat &info) {
    char tag[80];
    std::snprintf(tag, sizeof tag, "\"%llx-%llx-%llx.%lx\"", static_cast<unsigned long long>(info.st_ino),
                  static_cast<unsigned long long>(info.st_size), static_cast<unsigned long long>(info.st_mtim.tv_sec),
                  static_cast<unsigned long>(info.st_mtim.tv_nsec));
    return tag;
}

} // namespace

std::string_view contentTypeFor(std::string_view fileName) {
    for (const auto &row : kTypes) {
        if (fileName.size() >= row.suffix.size() &&
            fileName.substr(fileName.size() - row.suffix.size()) == row.suffix) {
            return row.type;
        }
    }
    const auto slash = fileName.rfind('/');
    const auto base = slash == std::string_view::npos ? fileName : fileName.substr(slash + 1);
    // The package indexes have no extension and are text.
    if (base == "Packages" || base == "Release" || base == "InRelease" || base == "Sources") {
        return "text/plain; charset=utf-8";
    }
    return "application/octet-stream";
}

Result<PackageSource> PackageSource::open(const std::string &folder) {
    const std::string root = realPath(folder);
    struct stat info {};
    if (root.empty() || ::stat(root.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        return fail(ErrorCode::FileUnreadable, "the package source " + folder + " is not a folder");
    }
    return PackageSource(root);
}

ServiceResponse PackageSource::answer(const ServiceRequest &request) const {
    if (request.method != "GET" && request.method != "HEAD") {
        return methodNotAllowed("GET, HEAD", "GET");
    }
    const std::string_view path = request.path;
    if (path.substr(0, kPackageSourcePrefix.size()) != kPackageSourcePrefix &&
        path != kPackageSourcePrefix.substr(0, kPackageSourcePrefix.size() - 1)) {
        return notFound(request.path);
    }
    const std::string_view asked =
        path.size() > kPackageSourcePrefix.size() ? path.substr(kPackageSourcePrefix.size()) : "";
    auto plain = isCleanText(asked) ? plainRelativePath(asked) : std::nullopt;
    if (!plain) {
        return notFound(request.path);
    }
    std::string relative = std::move(*plain);
    if (relative.empty() || relative.back() == '/') {
        relative.append(kIndexFile);
    }
    const std::string resolved = realPath(root_ + "/" + relative);
    if (resolved.empty() || resolved.compare(0, root_.size() + 1, root_ + "/") != 0) {
        return notFound(request.path);
    }
    const OpenFile file(::open(resolved.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct stat info {};
    if (file.get() < 0 || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxServedBytes) {
        return notFound(request.path);
    }
    const std::string tag = fileTag(info);
    ServiceResponse reply{status::kOk,
                          {},
                          {{"Content-Type", std::string(contentTypeFor(resolved))},
                           {"ETag", tag},
                           {"Cache-Control", std::string(kReadCacheControl)},
                           {"X-Content-Type-Options", "nosniff"}}};
    const auto size = std::to_string(info.st_size);
    const auto [first, last] = request.headers.equal_range(std::string(kIfNoneMatch));
    for (auto header = first; header != last; ++header) {
        if (ifNoneMatchNames(header->second, tag)) {
            reply.status = status::kNotModified;
            reply.headers.emplace_back("Content-Length", size);
            return reply;
        }
    }
    if (request.method == "HEAD") {
        // The front sends no body for HEAD; the length is the file's.
        reply.headers.emplace_back("Content-Length", size);
        return reply;
    }
    reply.body.resize(static_cast<std::size_t>(info.st_size));
    std::size_t read = 0;
    while (read < reply.body.size()) {
        const ssize_t got = ::read(file.get(), reply.body.data() + read, reply.body.size() - read);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return errorResponse(fail(ErrorCode::FileUnreadable, request.path));
        }
        read += static_cast<std::size_t>(got);
    }
    return reply;
}

} // namespace qv::server

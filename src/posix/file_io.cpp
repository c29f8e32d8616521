// Whole-file I/O on POSIX: bounded reads of regular files, writes by temporary file plus rename, change locks.
#include "posix/file_io.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

namespace qv::posix {

namespace {

// A temporary file is the target's name, this infix and six letters or digits chosen by mkstemp.
constexpr std::string_view kTemporaryInfix = ".tmp.";
constexpr std::string_view kTemporaryRandom = "XXXXXX";
// A writer holds a lock on its temporary file from just after creating it; this margin covers that moment.
constexpr std::time_t kStaleTemporaryAgeSeconds = 10;
// As many links as the kernel itself follows before giving up.
constexpr int kMaxSymbolicLinks = 40;
constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kPermissionBits = 07777;
constexpr std::size_t kReadChunk = 65536;

Error systemError(ErrorCode code, const std::string &what, const std::string &path, int number = errno) {
    return Error{code, what + " " + path + ": " + std::strerror(number)};
}

std::string directoryOf(const std::string &path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseNameOf(const std::string &path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Closes the descriptor when it goes out of scope.
class Descriptor {
  public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    int get() const { return descriptor_; }
    bool valid() const { return descriptor_ >= 0; }

  private:
    int descriptor_;
};

const char *kindOf(mode_t mode) {
    if (S_ISDIR(mode)) {
        return "a directory";
    }
    if (S_ISFIFO(mode)) {
        return "a FIFO";
    }
    if (S_ISSOCK(mode)) {
        return "a socket";
    }
    if (S_ISCHR(mode) || S_ISBLK(mode)) {
        return "a device";
    }
    return "not a plain file";
}

Error notRegular(ErrorCode code, const std::string &path, mode_t mode) {
    return Error{code, path + " is " + kindOf(mode) + ", not a regular file"};
}

Error tooLarge(const std::string &path, std::size_t maxBytes) {
    return Error{ErrorCode::FileUnreadable,
                 path + " is larger than " + std::to_string(maxBytes) + " bytes, more than such a file ever holds"};
}

bool isTemporaryNameOf(const std::string &name, const std::string &prefix) {
    if (name.size() != prefix.size() + kTemporaryRandom.size() || name.compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    for (std::size_t index = prefix.size(); index < name.size(); ++index) {
        if (std::isalnum(static_cast<unsigned char>(name[index])) == 0) {
            return false;
        }
    }
    return true;
}

// A temporary file of the target is stale when no writer holds its lock and it is older than the moment between
// its creation and its locking. Live writers' files are left alone.
void removeStaleTemporaries(const std::string &target) {
    const std::string directory = directoryOf(target);
    const std::string prefix = baseNameOf(target) + std::string(kTemporaryInfix);
    DIR *listing = ::opendir(directory.c_str());
    if (listing == nullptr) {
        return;
    }
    const std::time_t now = std::time(nullptr);
    while (const dirent *entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (!isTemporaryNameOf(name, prefix)) {
            continue;
        }
        std::string candidate = directory;
        candidate.append("/").append(name);
        const Descriptor file(::open(candidate.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
        struct stat opened {};
        if (!file.valid() || ::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode) ||
            now - opened.st_mtime < kStaleTemporaryAgeSeconds || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
            continue;
        }
        // Only the file that was checked: the name may have been reused since.
        struct stat named {};
        if (::lstat(candidate.c_str(), &named) == 0 && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino) {
            ::unlink(candidate.c_str());
        }
    }
    ::closedir(listing);
}

Result<void> writeAll(int descriptor, const std::string &bytes, const std::string &temporary) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t put = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            return systemError(ErrorCode::FileUnwritable, "cannot write", temporary);
        }
        written += static_cast<std::size_t>(put);
    }
    return {};
}

} // namespace

Result<std::string> readFile(const std::string &path, std::size_t maxBytes) {
    // Non-blocking, so that opening a FIFO without a writer returns at once and can be refused.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.valid()) {
        return systemError(ErrorCode::FileUnreadable, "cannot open", path);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        return systemError(ErrorCode::FileUnreadable, "cannot inspect", path);
    }
    if (!S_ISREG(status.st_mode)) {
        return notRegular(ErrorCode::FileUnreadable, path, status.st_mode);
    }
    if (static_cast<std::size_t>(status.st_size) > maxBytes) {
        return tooLarge(path, maxBytes);
    }
    const int flags = ::fcntl(file.get(), F_GETFL);
    if (flags < 0 || ::fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
        return systemError(ErrorCode::FileUnreadable, "cannot read", path);
    }
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(status.st_size));
    char buffer[kReadChunk];
    while (true) {
        const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return systemError(ErrorCode::FileUnreadable, "cannot read", path);
        }
        if (got == 0) {
            break;
        }
        // The file may grow while it is read.
        if (bytes.size() + static_cast<std::size_t>(got) > maxBytes) {
            return tooLarge(path, maxBytes);
        }
        bytes.append(buffer, static_cast<std::size_t>(got));
    }
    return bytes;
}

Result<std::string> writeTarget(const std::string &path) {
    std::string current = path;
    for (int links = 0; links <= kMaxSymbolicLinks; ++links) {
        struct stat status {};
        if (::lstat(current.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
            // A missing file is created here; any other trouble is reported by the write itself.
            return current;
        }
        std::string link(PATH_MAX, '\0');
        const ssize_t length = ::readlink(current.c_str(), link.data(), link.size());
        if (length < 0) {
            return systemError(ErrorCode::FileUnwritable, "cannot follow the link", current);
        }
        link.resize(static_cast<std::size_t>(length));
        if (link.front() == '/') {
            current = std::move(link);
        } else {
            current = directoryOf(current).append("/").append(link);
        }
    }
    return fail(ErrorCode::FileUnwritable, "too many symbolic links from " + path);
}

Result<void> writeFileAtomically(const std::string &path, const std::string &bytes) {
    const auto resolved = writeTarget(path);
    if (!resolved) {
        return resolved.error();
    }
    const std::string &target = *resolved;
    struct stat existing {};
    const bool exists = ::stat(target.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) {
        return notRegular(ErrorCode::FileUnwritable, target, existing.st_mode);
    }
    removeStaleTemporaries(target);

    std::string temporary = target + std::string(kTemporaryInfix) + std::string(kTemporaryRandom);
    const Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.valid()) {
        return systemError(ErrorCode::FileUnwritable, "cannot create a temporary file for", target);
    }
    // Held until the rename, so that a writer beside this one never takes this file for a stale one.
    ::flock(file.get(), LOCK_EX | LOCK_NB);
    const auto abandon = [&temporary](Error error) {
        ::unlink(temporary.c_str());
        return error;
    };
    if (auto written = writeAll(file.get(), bytes, temporary); !written) {
        return abandon(written.error());
    }
    if (::fchmod(file.get(), exists ? existing.st_mode & kPermissionBits : kNewFileMode) != 0) {
        return abandon(systemError(ErrorCode::FileUnwritable, "cannot set the permissions of", temporary));
    }
    if (exists && ::geteuid() == 0) {
        // Root editing someone else's file leaves it theirs; failing that, it stays readable as before.
        (void)::fchown(file.get(), existing.st_uid, existing.st_gid);
    }
    if (::fsync(file.get()) != 0) {
        return abandon(systemError(ErrorCode::FileUnwritable, "cannot flush", temporary));
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
        return abandon(systemError(ErrorCode::FileUnwritable, "cannot replace", target));
    }
    // Make the rename itself durable.
    const Descriptor directory(::open(directoryOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.valid()) {
        ::fsync(directory.get());
    }
    return {};
}

Result<FileChangeLock> FileChangeLock::acquire(const std::string &path, std::chrono::milliseconds maxWait,
                                               const std::function<void(const std::string &lockPath)> &onWaiting) {
    const auto target = writeTarget(path);
    if (!target) {
        return target.error();
    }
    const std::string lockPath = *target + ".lock";
    int descriptor = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kNewFileMode);
    if (descriptor < 0 && errno == EACCES) {
        // Another user's lock file: a read-only descriptor locks as well.
        descriptor = ::open(lockPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    }
    if (descriptor < 0) {
        return systemError(ErrorCode::FileUnwritable, "cannot open the lock file", lockPath);
    }
    constexpr std::chrono::milliseconds kPoll{50};
    const auto deadline = std::chrono::steady_clock::now() + maxWait;
    bool told = false;
    while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            const Error error = systemError(ErrorCode::FileUnwritable, "cannot lock", lockPath);
            ::close(descriptor);
            return error;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            ::close(descriptor);
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(maxWait).count();
            return fail(ErrorCode::FileUnwritable,
                        lockPath + ": another process holds it; gave up after " + std::to_string(seconds) + " s");
        }
        if (!told && onWaiting) {
            onWaiting(lockPath);
        }
        told = true;
        std::this_thread::sleep_for(kPoll);
    }
    return FileChangeLock(descriptor);
}

FileChangeLock::FileChangeLock(FileChangeLock &&other) noexcept : descriptor_(other.descriptor_) {
    other.descriptor_ = -1;
}

FileChangeLock &FileChangeLock::operator=(FileChangeLock &&other) noexcept {
    if (this != &other) {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        descriptor_ = other.descriptor_;
        other.descriptor_ = -1;
    }
    return *this;
}

FileChangeLock::~FileChangeLock() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

} // namespace qv::posix

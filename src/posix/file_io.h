// Whole-file reading with a size bound, crash-safe whole-file writing, and a lock around read–change–write.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "base/result.h"

namespace qv::posix {

// Every file this system reads whole is small; a larger one is refused before a byte is read.
inline constexpr std::size_t kMaxReadBytes = std::size_t{16} * 1024 * 1024;

// The file's bytes, or FileUnreadable with a one-line reason naming the path. Only regular files are read: a FIFO,
// a device, a socket or a directory is refused without blocking, and so is a file of more than maxBytes.
Result<std::string> readFile(const std::string &path, std::size_t maxBytes = kMaxReadBytes);

// Writes to a temporary file beside the target, flushes it to disk and renames it over the target, so a reader
// sees either the old or the new complete file. A symbolic link is written through (the file it points to is
// replaced, the link stays); an existing file keeps its permission bits. Temporary files that an earlier, killed
// writer left beside the target are removed. Fails with FileUnwritable and a one-line reason.
Result<void> writeFileAtomically(const std::string &path, const std::string &bytes);

// The file a write to path replaces: path itself, or the end of its chain of symbolic links (which need not
// exist yet).
Result<std::string> writeTarget(const std::string &path);

// An exclusive advisory lock for changing one file: every writer that reads, changes and rewrites the file under
// this lock sees the others' changes. The lock lives in a sibling file (the target's name plus ".lock"), because
// the target itself is replaced on each write. Released when destroyed, or when the process dies.
class FileChangeLock {
  public:
    static constexpr std::chrono::milliseconds kDefaultWait{std::chrono::seconds(10)};

    // Waits until no other holder has the lock, at most maxWait; beyond it FileUnwritable says which lock file
    // another process holds. onWaiting runs once, with the lock file's path, when the lock is not free at first.
    static Result<FileChangeLock> acquire(const std::string &path, std::chrono::milliseconds maxWait = kDefaultWait,
                                          const std::function<void(const std::string &lockPath)> &onWaiting = {});

    FileChangeLock(FileChangeLock &&other) noexcept;
    FileChangeLock &operator=(FileChangeLock &&other) noexcept;
    FileChangeLock(const FileChangeLock &) = delete;
    FileChangeLock &operator=(const FileChangeLock &) = delete;
    ~FileChangeLock();

  private:
    explicit FileChangeLock(int descriptor) : descriptor_(descriptor) {}
    int descriptor_ = -1;
};

} // namespace qv::posix

// Whole-file I/O on POSIX: plain reads, and writes by temporary file plus rename.
#include "posix/file_io.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::posix {

namespace {

Error systemError(ErrorCode code, const std::string &what, const std::string &path) {
    return Error{code, what + " " + path + ": " + std::strerror(errno)};
}

std::string directoryOf(const std::string &path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

Result<std::string> readFile(const std::string &path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return systemError(ErrorCode::FileUnreadable, "cannot open", path);
    }
    std::string bytes;
    char buffer[65536];
    while (true) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            const Error error = systemError(ErrorCode::FileUnreadable, "cannot read", path);
            ::close(fd);
            return error;
        }
        if (got == 0) {
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(fd);
    return bytes;
}

Result<void> writeFileAtomically(const std::string &path, const std::string &bytes) {
    std::string temporary = path + ".tmp.XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        return systemError(ErrorCode::FileUnwritable, "cannot create a temporary file for", path);
    }
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            const Error error = systemError(ErrorCode::FileUnwritable, "cannot write", temporary);
            ::close(fd);
            ::unlink(temporary.c_str());
            return error;
        }
        written += static_cast<std::size_t>(put);
    }
    if (::fchmod(fd, 0644) != 0 || ::fsync(fd) != 0) {
        const Error error = systemError(ErrorCode::FileUnwritable, "cannot flush", temporary);
        ::close(fd);
        ::unlink(temporary.c_str());
        return error;
    }
    ::close(fd);
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const Error error = systemError(ErrorCode::FileUnwritable, "cannot replace", path);
        ::unlink(temporary.c_str());
        return error;
    }
    // Make the rename itself durable.
    const int directory = ::open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return {};
}

} // namespace qv::posix

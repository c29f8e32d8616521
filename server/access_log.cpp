// The access log: lines formatted on the socket threads, gathered in memory and written out in batches, so that a
// busy service makes one write per many requests.
#include "server/access_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace qv::server {

namespace {

// Written out at once beyond this; otherwise by the flusher within a second.
constexpr std::size_t kBatchBytes = std::size_t{64} * 1024;
constexpr std::chrono::seconds kFlushInterval{1};
constexpr mode_t kLogFileMode = 0640;
constexpr unsigned kHttpMajor = 10;

void appendEscaped(std::string &line, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7f || c == '"' || c == '\\') { // NOLINT(readability-magic-numbers): ASCII
            line.append("\\x");
            line.push_back(kHex[byte >> 4U]);
            line.push_back(kHex[byte & 0xfU]); // NOLINT(readability-magic-numbers): low nibble
        } else {
            line.push_back(c);
        }
    }
}

// The date as the line writes it; formatted once a second per thread, not once a request.
std::string_view dateOf(std::time_t when) {
    struct Cached {
        std::time_t second = -1;
        char text[40] = {};
    };
    thread_local Cached cached;
    if (cached.second != when) {
        std::tm utc{};
        ::gmtime_r(&when, &utc);
        std::strftime(cached.text, sizeof cached.text, "[%d/%b/%Y:%H:%M:%S +0000]", &utc);
        cached.second = when;
    }
    return cached.text;
}

void appendLine(std::string &line, const AnsweredRequest &request, std::time_t when) {
    appendEscaped(line, request.peer.empty() ? "-" : request.peer);
    line.append(" - - ").append(dateOf(when)).append(" \"");
    appendEscaped(line, request.method);
    line.push_back(' ');
    appendEscaped(line, request.path);
    line.append(" HTTP/").append(std::to_string(request.version / kHttpMajor));
    line.push_back('.');
    line.append(std::to_string(request.version % kHttpMajor)).append("\" ");
    line.append(std::to_string(request.status)).push_back(' ');
    line.append(request.bodyBytes == 0 ? "-" : std::to_string(request.bodyBytes)).push_back('\n');
}

} // namespace

std::string accessLogLine(const AnsweredRequest &request, std::time_t when) {
    std::string line;
    appendLine(line, request, when);
    return line;
}

namespace {

Result<int> openForAppending(const std::string &path) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kLogFileMode);
    if (descriptor < 0) {
        return fail(ErrorCode::FileUnwritable, "cannot open the access log " + path + ": " + std::strerror(errno));
    }
    return descriptor;
}

} // namespace

Result<std::unique_ptr<AccessLog>> AccessLog::open(const std::string &destination) {
    if (destination == "-") {
        return std::unique_ptr<AccessLog>(new AccessLog(STDOUT_FILENO, {}));
    }
    auto descriptor = openForAppending(destination);
    if (!descriptor) {
        return descriptor.error();
    }
    return std::unique_ptr<AccessLog>(new AccessLog(*descriptor, destination));
}

Result<void> AccessLog::reopen() {
    const std::lock_guard<std::mutex> lock(mutex_);
    writeOutLocked();
    if (path_.empty()) {
        return {};
    }
    auto descriptor = openForAppending(path_);
    if (!descriptor) {
        return descriptor.error();
    }
    ::close(descriptor_);
    descriptor_ = *descriptor;
    return {};
}

AccessLog::AccessLog(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {
    flusher_ = std::thread([this] {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stopping_) {
            wake_.wait_for(lock, kFlushInterval);
            writeOutLocked();
        }
    });
}

AccessLog::~AccessLog() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    flusher_.join();
    const std::lock_guard<std::mutex> lock(mutex_);
    writeOutLocked();
    if (!path_.empty()) {
        ::close(descriptor_);
    }
}

void AccessLog::answered(const AnsweredRequest &request) {
    // Formatted outside the lock, into a buffer each socket thread keeps.
    thread_local std::string line;
    line.clear();
    appendLine(line, request, std::time(nullptr));
    const std::lock_guard<std::mutex> lock(mutex_);
    pending_.append(line);
    if (pending_.size() >= kBatchBytes) {
        writeOutLocked();
    }
}

void AccessLog::flush() {
    const std::lock_guard<std::mutex> lock(mutex_);
    writeOutLocked();
}

void AccessLog::writeOutLocked() {
    std::size_t written = 0;
    while (written < pending_.size()) {
        const ssize_t wrote = ::write(descriptor_, pending_.data() + written, pending_.size() - written);
        if (wrote < 0 && errno == EINTR) {
            continue;
        }
        if (wrote <= 0) {
            // A full disk or a closed pipe loses log lines, never requests.
            break;
        }
        written += static_cast<std::size_t>(wrote);
    }
    pending_.clear();
}

} // namespace qv::server

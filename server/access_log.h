// One line per answered request in the common log format, written to a file or to standard output.
#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/result.h"
#include "server/http_front.h"

namespace qv::server {

// The line for one request: `PEER - - [DATE] "METHOD PATH HTTP/x.y" STATUS BYTES`. The path is written without its
// query, which may carry what a client keeps private, and with quotes, backslashes and bytes that are not printable
// ASCII as \xHH, so that a line is always one line and one request.
std::string accessLogLine(const AnsweredRequest &request, std::time_t when);

class AccessLog : public FrontObserver {
  public:
    // "-" is standard output; anything else a file, created (mode 0640) or appended to.
    static Result<std::unique_ptr<AccessLog>> open(const std::string &destination);
    ~AccessLog() override;
    AccessLog(const AccessLog &) = delete;
    AccessLog &operator=(const AccessLog &) = delete;

    void answered(const AnsweredRequest &request) override;
    // Writes out what is buffered.
    void flush();
    // Writes out what is buffered and opens the file by its name again, for a rotation that renamed it; standard
    // output stays. When the name cannot be opened the old file is kept, and the reason returned.
    Result<void> reopen();

  private:
    AccessLog(int descriptor, std::string path);
    void writeOutLocked();

    int descriptor_;
    const std::string path_; // empty for standard output
    std::mutex mutex_;
    std::condition_variable wake_;
    std::string pending_;
    bool stopping_ = false;
    // Lines reach the file within a second even when the service is quiet.
    std::thread flusher_;
};

} // namespace qv::server

// Http port on libcurl: blocking fetches on the caller's thread, sends on a small pool of their own.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "platform/http.h"
#include "posix/thread_queues.h"

namespace qv::posix {

// What became of a sent request; the core drops it, the command-line tool reports it.
struct SentRequest {
    HttpRequest request;
    HttpResult result;
};

class CurlHttp : public Http {
  public:
    CurlHttp();
    ~CurlHttp() override;

    void send(const HttpRequest &request) override;
    HttpResult fetch(const HttpRequest &request) override;

    // Blocks until every request passed to send has completed.
    void waitForSends();
    std::vector<SentRequest> completedSends() const;

    // Replies larger than this are cut off and reported as an error.
    static constexpr std::size_t kMaxReplyBytes = std::size_t{16} * 1024 * 1024;

  private:
    static constexpr std::size_t kSendThreads = 2;

    mutable std::mutex mutex_;
    std::condition_variable idle_;
    std::size_t inFlight_ = 0;
    std::vector<SentRequest> completed_;
    ThreadQueue senders_{kSendThreads, "http-send"};
};

} // namespace qv::posix

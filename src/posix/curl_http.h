// Http port on libcurl: blocking fetches on the caller's thread, sends on a small pool of their own.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/http.h"
#include "posix/thread_queues.h"

namespace qv::posix {

// What became of a sent request; the core drops it, the command-line tool reports it.
struct SentRequest {
    HttpRequest request;
    HttpResult result;
};

// A POST is never sent on to where a redirect points (its answer is the redirect itself); other requests follow up
// to a few redirects, over HTTP and HTTPS only. Failures read as one line a person can act on: "timed out after
// S s (URL)", "cannot reach HOST (reason)", "no usable reply from HOST (reason)".
class CurlHttp : public Http {
  public:
    CurlHttp();
    // Every request waits at most this long, whatever its own timeout says.
    explicit CurlHttp(double timeoutSeconds);
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

    std::optional<double> timeoutSeconds_;

    mutable std::mutex mutex_;
    std::condition_variable idle_;
    std::size_t inFlight_ = 0;
    std::vector<SentRequest> completed_;
    ThreadQueue senders_{kSendThreads, "http-send"};
};

} // namespace qv::posix

// In-memory Http for tests and dry runs: records every request and answers fetches from a table of canned replies.
#pragma once

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/http.h"

namespace qv {

class FakeHttp : public Http {
  public:
    void send(const HttpRequest &request) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        sent_.push_back(request);
    }

    HttpResult fetch(const HttpRequest &request) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        fetched_.push_back(request);
        const auto reply = replies_.find(request.url);
        if (reply == replies_.end()) {
            return HttpResult{0, {}, "could not connect to " + request.url};
        }
        return reply->second;
    }

    void reply(const std::string &url, HttpResult result) {
        const std::lock_guard<std::mutex> lock(mutex_);
        replies_[url] = std::move(result);
    }

    std::vector<HttpRequest> sent() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return sent_;
    }
    std::vector<HttpRequest> fetched() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return fetched_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<HttpRequest> sent_;
    std::vector<HttpRequest> fetched_;
    std::map<std::string, HttpResult> replies_;
};

} // namespace qv

// An Http adapter that sends nothing: it keeps every request so a dry run can show what would have gone out.
#pragma once

#include <mutex>
#include <vector>

#include "platform/http.h"

namespace qv::posix {

class RecordingHttp final : public Http {
  public:
    void send(const HttpRequest &request) override;
    // Answers no fetch: a dry run must not pretend that a service replied.
    HttpResult fetch(const HttpRequest &request) override;

    std::vector<HttpRequest> recorded() const;

  private:
    mutable std::mutex mutex_;
    std::vector<HttpRequest> recorded_;
};

} // namespace qv::posix

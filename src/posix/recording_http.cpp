// Keeps requests instead of sending them.
#include "posix/recording_http.h"

namespace qv::posix {

void RecordingHttp::send(const HttpRequest &request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    recorded_.push_back(request);
}

HttpResult RecordingHttp::fetch(const HttpRequest &request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    recorded_.push_back(request);
    return HttpResult{0, {}, "dry run: " + request.url + " was not fetched"};
}

std::vector<HttpRequest> RecordingHttp::recorded() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return recorded_;
}

} // namespace qv::posix

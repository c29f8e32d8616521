// Shared helpers of the Http port.
#include "platform/http.h"

namespace qv {

namespace {
constexpr int kFirstSuccessStatus = 200;
constexpr int kFirstRedirectStatus = 300;
} // namespace

bool HttpResult::succeeded() const {
    return answered() && status >= kFirstSuccessStatus && status < kFirstRedirectStatus;
}

} // namespace qv

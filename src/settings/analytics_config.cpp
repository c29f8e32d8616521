// Answers for the analytics configuration hooks.
#include "settings/analytics_config.h"

#include <array>
#include <utility>

#ifndef QV_ANALYTICS_TRACKING_ID
#define QV_ANALYTICS_TRACKING_ID ""
#endif

namespace qv {

std::string_view analyticsTrackingId() {
    return QV_ANALYTICS_TRACKING_ID;
}

std::string_view releaseVersion() {
    return QV_RELEASE_VERSION;
}

std::optional<std::string_view> analyticsAnswer(std::string_view selector) {
    const std::array<std::pair<std::string_view, std::string_view>, 6> answers{{
        {"tweakGAID", analyticsTrackingId()},
        {"tweakName", kTweakName},
        {"tweakVersion", releaseVersion()},
        {"tweakPackageId", kTweakPackageId},
        {"twitterHandle", kTwitterHandle},
        {"twitterMessage", kTwitterMessage},
    }};
    for (const auto &[name, answer] : answers) {
        if (name == selector) {
            return answer;
        }
    }
    return std::nullopt;
}

bool remoteMessagesEnabled() {
    return false;
}

void noteAppLifecycleEvent(AppLifecycleEvent /*event*/) {
    // Nothing is reported yet; the pass-throughs exist so reporting can be attached without new hooks.
}

} // namespace qv

// The constant answers given to the maker's analytics component, and the lifecycle points kept for reporting.
#pragma once

#include <optional>
#include <string_view>

namespace qv {

inline constexpr std::string_view kTweakName = "qvdovrinkit";
inline constexpr std::string_view kTweakPackageId = "com.quorvane.qvdovrinkit";
inline constexpr std::string_view kTwitterHandle = "quorvane";
inline constexpr std::string_view kTwitterMessage =
    "To get the latest updates about Verdigo follow @quorvane on Twitter!";

// The tracking identifier supplied with the build (empty when the build gives none).
std::string_view analyticsTrackingId();
std::string_view releaseVersion();

// The answer for one of the analytics configuration class methods, by selector; nothing for any other selector.
std::optional<std::string_view> analyticsAnswer(std::string_view selector);

// Remote messages are switched off for this library.
bool remoteMessagesEnabled();

// The App Store app's lifecycle calls that pass through unchanged; they are where lifecycle reporting attaches.
enum class AppLifecycleEvent { LoadApplication, DidBecomeActive, WillResignActive, WillTerminate };
void noteAppLifecycleEvent(AppLifecycleEvent event);

} // namespace qv

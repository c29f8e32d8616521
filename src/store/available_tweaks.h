// The available-tweaks page: resolving the shown app's bundle identifier and opening the package manager's page.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/ui.h"

// The package manager's web address for applications (a deployment value, set with -DQV_TWEAKS_PAGE_URL=...).
#ifndef QV_DEFAULT_TWEAKS_PAGE_URL
#define QV_DEFAULT_TWEAKS_PAGE_URL "https://quorvane.com/packages/"
#endif

namespace qv {

inline constexpr std::string_view kTweaksPageBaseUrl = QV_DEFAULT_TWEAKS_PAGE_URL;

// The base address followed by "application/%@/" with the bundle identifier put in as it is.
std::string tweaksPageAddress(std::string_view baseUrl, std::string_view bundleIdentifier);

// Opens the page for a bundle identifier in the in-app browser.
void displayTweaksController(Ui &ui, std::string_view bundleIdentifier, std::string_view baseUrl = kTweaksPageBaseUrl);

// Store identifier -> bundle identifier; the answer ("" on any failure) arrives on the main queue.
using BundleIdentifierLookup =
    std::function<void(const std::string &storeIdentifier, std::function<void(std::string)>)>;

// The product header's action: the overlay while the lookup runs, always gone before the browser appears.
void showAvailableTweaks(Ui &ui, const BundleIdentifierLookup &lookup, const std::string &storeIdentifier,
                         std::string_view baseUrl = kTweaksPageBaseUrl);

} // namespace qv

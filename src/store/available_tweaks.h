// The available-tweaks page: resolving the shown app's bundle identifier and opening the package manager's page.
#pragma once

#include <functional>
#include <optional>
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

// The in-app browser's page. The address can be asked for before the browser's view exists (it is presented first
// and loads after); it is kept until the view is there and then loaded, once.
class BrowserPage {
  public:
    // The address to load now; nothing while the view does not exist yet, when it is kept for then.
    std::optional<std::string> open(std::string address);
    // The kept address, when there is one, now that the view exists.
    std::optional<std::string> viewLoaded();

  private:
    std::optional<std::string> waiting_;
    bool viewLoaded_ = false;
};

inline constexpr std::string_view kPageLoadErrorTitle = "The page could not be opened";

// What the browser shows when a page cannot be loaded, instead of a blank page: a small HTML document with the
// address and the reason, both escaped.
std::string pageLoadErrorDocument(std::string_view address, std::string_view reason);

} // namespace qv

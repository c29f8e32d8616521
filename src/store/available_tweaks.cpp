// Opening the available-tweaks page for an app.
#include "store/available_tweaks.h"

#include "store/purchase_initiated.h"

#include <utility>

namespace qv {

std::string tweaksPageAddress(std::string_view baseUrl, std::string_view bundleIdentifier) {
    std::string address(baseUrl);
    address += "application/";
    address += bundleIdentifier;
    address += '/';
    return address;
}

void displayTweaksController(Ui &ui, std::string_view bundleIdentifier, std::string_view baseUrl) {
    ui.openBrowser(tweaksPageAddress(baseUrl, bundleIdentifier));
}

void showAvailableTweaks(Ui &ui, const BundleIdentifierLookup &lookup, const std::string &storeIdentifier,
                         std::string_view baseUrl) {
    ui.showProgress(std::string(kLoadingText));
    lookup(storeIdentifier, [&ui, base = std::string(baseUrl)](const std::string &bundleIdentifier) {
        ui.dismissProgress();
        displayTweaksController(ui, bundleIdentifier, base);
    });
}

std::optional<std::string> BrowserPage::open(std::string address) {
    if (viewLoaded_) {
        return address;
    }
    waiting_ = std::move(address);
    return std::nullopt;
}

std::optional<std::string> BrowserPage::viewLoaded() {
    viewLoaded_ = true;
    std::optional<std::string> address = std::move(waiting_);
    waiting_.reset();
    return address;
}

namespace {

std::string htmlEscaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

} // namespace

std::string pageLoadErrorDocument(std::string_view address, std::string_view reason) {
    return "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
           "content=\"width=device-width, initial-scale=1\"></head><body style=\"font-family: -apple-system, "
           "sans-serif; padding: 1em\"><h3>" +
           std::string(kPageLoadErrorTitle) + "</h3><p>" + htmlEscaped(reason) + "</p><p style=\"color: gray\">" +
           htmlEscaped(address) + "</p></body></html>";
}

} // namespace qv

// Opening the available-tweaks page for an app.
#include "store/available_tweaks.h"

#include "store/purchase_initiated.h"

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

} // namespace qv

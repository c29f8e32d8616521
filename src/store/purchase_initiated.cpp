// The downgrade flows that end in a purchase: rewriting the redesigned store's purchase, or submitting our own.
#include "store/purchase_initiated.h"

#include <utility>

#include "base/text.h"
#include "service/buy_parameters.h"
#include "service/service_endpoints.h"

namespace qv {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Percent-decoded text; text whose escapes are broken or do not decode to UTF-8 stays as written.
std::string percentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        if (i + 2 >= text.size()) {
            return std::string(text);
        }
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) {
            return std::string(text);
        }
        decoded += static_cast<char>((high << 4) | low);
        i += 2;
    }
    return isValidUtf8(decoded) ? decoded : std::string(text);
}

// What a query item may carry unencoded besides letters and digits: the query's own punctuation, less the "&" that
// ends an item and, in names, the "=" that ends the name.
inline constexpr std::string_view kQueryItemNamePunctuation = "-._~!$'()*+,;:@/?";
inline constexpr std::string_view kQueryItemValuePunctuation = "-._~!$'()*+,;=:@/?";

// A copy of the purchase dictionary with its buy parameters replaced; the one handed in is never changed.
Value withBuyParameters(const Value &purchase, std::string buyParameters) {
    Value rewritten = purchase;
    if (Dictionary *dictionary = rewritten.asDictionary()) {
        dictionary->set(Value(kPurchaseBuyParamsKey), Value(std::move(buyParameters)));
    }
    return rewritten;
}

} // namespace

std::vector<QueryItem> queryItemsOf(std::string_view query) {
    std::vector<QueryItem> items;
    if (query.empty()) {
        return items;
    }
    std::size_t start = 0;
    while (true) {
        const std::size_t end = query.find('&', start);
        const std::string_view item = query.substr(start, end == std::string_view::npos ? end : end - start);
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos) {
            items.push_back({percentDecoded(item), std::nullopt});
        } else {
            items.push_back({percentDecoded(item.substr(0, equals)), percentDecoded(item.substr(equals + 1))});
        }
        if (end == std::string_view::npos) {
            return items;
        }
        start = end + 1;
    }
}

std::string queryOf(const std::vector<QueryItem> &items) {
    std::string query;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            query += '&';
        }
        query += percentEncoded(items[i].name, kQueryItemNamePunctuation);
        if (items[i].value) {
            query += '=';
            query += percentEncoded(*items[i].value, kQueryItemValuePunctuation);
        }
    }
    return query;
}

std::string buyParametersAskingForVersion(std::string_view buyParameters, std::string_view version) {
    std::vector<QueryItem> items = queryItemsOf(buyParameters);
    const QueryItem wanted{std::string(kExternalVersionQueryName), std::string(version)};
    bool replaced = false;
    for (QueryItem &item : items) {
        if (item.name == kExternalVersionQueryName) {
            item = wanted;
            replaced = true;
            break;
        }
    }
    if (!replaced) {
        items.push_back(wanted);
    }
    return queryOf(items);
}

void purchaseInitiated(DowngradeFlows &flows, const Value &purchase, const PurchaseCompletion &completion) {
    FlagPromptButtons buttons;
    buttons.continueButton = static_cast<bool>(completion);
    const Prompt prompt = flagPrompt(buttons, flows.updateBlockerDisabled(), flows.ui);
    PromptHandlers handlers;
    handlers.choice = [&flows, purchase, completion](DowngradeChoice choice) {
        if (choice == DowngradeChoice::Continue) {
            if (completion) {
                completion(false, purchase);
            }
            return;
        }
        if (choice != DowngradeChoice::Downgrade) {
            return;
        }
        auto list = flows.makeVersionsList(textOf(purchase[kPurchaseAdamIdKey]));
        list->setCancel([purchase, completion] {
            if (completion) {
                completion(false, purchase);
            }
        });
        list->setCompletion([purchase, completion](const std::optional<std::string> &version) {
            if (!completion) {
                return;
            }
            const Value &buyParameters = purchase[kPurchaseBuyParamsKey];
            // The formatter writes a missing string as "(null)", and that is what gets split.
            const std::string query = buyParameters.isNull() ? std::string(kMissingObjectText) : textOf(buyParameters);
            completion(true, withBuyParameters(purchase, buyParametersAskingForVersion(query, version.value_or(""))));
        });
        flows.ui.presentScreen(list, Presenter::TopMost);
    };
    presentPrompt(flows.ui, prompt, std::move(handlers));
}

void displayDowngradeController(DowngradeFlows &flows, StorePurchasing &purchasing, const std::string &storeIdentifier,
                                const std::string &bundleIdentifier, std::function<void(DowngradeChoice)> completion) {
    auto list = flows.makeVersionsList(storeIdentifier);
    list->setCompletion([&purchasing, storeIdentifier, bundleIdentifier,
                         completion = std::move(completion)](const std::optional<std::string> &version) {
        const bool installed = purchasing.appInstalled(bundleIdentifier);
        purchasing.submitPurchases(storeIdentifier, version.value_or(""), installed);
        if (completion) {
            completion(DowngradeChoice::Downgrade);
        }
    });
    flows.ui.presentScreen(list, Presenter::TopMost);
}

void offerButtonTapped(DowngradeFlows &flows, StorePurchasing &purchasing, const StoreIdentifierLookup &lookup,
                       const OfferButtonTap &tap) {
    FlagPromptButtons buttons;
    buttons.continueButton = static_cast<bool>(tap.completion);
    buttons.cancelButton = true;
    buttons.blockUpdateButton = true;
    buttons.showTweaksAction = true;
    const Prompt prompt = flagPrompt(buttons, flows.updateBlockerDisabled(), flows.ui);
    PromptHandlers handlers;
    handlers.blockAllUpdates = tap.blockAllUpdates;
    handlers.showTweaks = tap.showTweaks;
    handlers.choice = [&flows, &purchasing, lookup, bundleIdentifier = tap.bundleIdentifier,
                       completion = tap.completion](DowngradeChoice choice) {
        if (choice == DowngradeChoice::Continue) {
            if (completion) {
                completion(DowngradeChoice::Continue);
            }
            return;
        }
        if (choice != DowngradeChoice::Downgrade) {
            return;
        }
        flows.ui.showProgress(std::string(kLoadingText));
        lookup(bundleIdentifier,
               [&flows, &purchasing, bundleIdentifier, completion](const std::string &storeIdentifier) {
                   flows.ui.dismissProgress();
                   displayDowngradeController(flows, purchasing, storeIdentifier, bundleIdentifier, completion);
               });
    };
    presentPrompt(flows.ui, prompt, std::move(handlers));
}

MarkedPurchase takePurchaseMarker(const Value &purchase) {
    MarkedPurchase result{false, purchase};
    Dictionary *dictionary = result.purchase.asDictionary();
    if (dictionary != nullptr && dictionary->contains(Value(kCustomPurchaseMarkerKey))) {
        dictionary->erase(Value(kCustomPurchaseMarkerKey));
        result.issuedByUs = true;
    }
    return result;
}

} // namespace qv

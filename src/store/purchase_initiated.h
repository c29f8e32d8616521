// Turning a wish to downgrade into something the store carries out: the purchase-initiated flow of the
// redesigned store, the list-then-submit flow, and the offer button's prompt.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "downgrade/downgrade_flows.h"
#include "downgrade/prompt_model.h"
#include "downgrade/versions_list_model.h"
#include "platform/store_purchasing.h"
#include "platform/ui.h"

namespace qv {

inline constexpr std::string_view kPurchaseBundleIdKey = "bundleId";
inline constexpr std::string_view kPurchaseAdamIdKey = "adamId";
inline constexpr std::string_view kPurchaseBuyParamsKey = "buyParams";
inline constexpr std::string_view kExternalVersionQueryName = "appExtVrsId";
inline constexpr std::string_view kLoadingText = "Loading";
inline constexpr std::string_view kCustomPurchaseMarkerKey = "customQVParams";

// One query item as the platform's URL components see it: a name, and a value unless the item has no "=".
struct QueryItem {
    std::string name;
    std::optional<std::string> value;
    friend bool operator==(const QueryItem &, const QueryItem &) = default;
};

// Splits a query at "&", each item at its first "=", and percent-decodes names and values.
std::vector<QueryItem> queryItemsOf(std::string_view query);
// Joins query items again, percent-encoding what a query item may not carry ("&" anywhere, "=" in names).
std::string queryOf(const std::vector<QueryItem> &items);

// The buy parameters with their first "appExtVrsId" item set to the version in place, or one appended when
// there is none; every other item keeps its place.
std::string buyParametersAskingForVersion(std::string_view buyParameters, std::string_view version);

// Hands back whether the purchase was rewritten and the purchase dictionary to submit.
using PurchaseCompletion = std::function<void(bool rewritten, Value purchase)>;

// A purchase the redesigned store is about to make: ask, then go on unchanged or with the chosen version.
// Leaving the list lets the purchase go on unchanged. Without a completion nothing can go on, so only
// "Downgrade" is offered.
void purchaseInitiated(DowngradeFlows &flows, const Value &purchase, const PurchaseCompletion &completion);

// The versions list for an app; on a choice the downgrade purchase is built and submitted, and the completion
// (when there is one) receives Downgrade whether or not the store took it. Leaving the list does nothing more.
void displayDowngradeController(DowngradeFlows &flows, StorePurchasing &purchasing, const std::string &storeIdentifier,
                                const std::string &bundleIdentifier, std::function<void(DowngradeChoice)> completion);

// Resolves a bundle identifier to a store identifier; the answer ("" on any failure) arrives on the main queue.
using StoreIdentifierLookup =
    std::function<void(const std::string &bundleIdentifier, std::function<void(std::string)>)>;

struct OfferButtonTap {
    std::string bundleIdentifier;                    // the offer action's bundle identifier
    std::function<void(DowngradeChoice)> completion; // may be empty
    std::function<void()> blockAllUpdates;
    std::function<void()> showTweaks;
};

// The redesigned store's held offer button: the flag prompt, then on "Downgrade" the lookup behind a progress
// overlay and the list-then-submit flow.
void offerButtonTapped(DowngradeFlows &flows, StorePurchasing &purchasing, const StoreIdentifierLookup &lookup,
                       const OfferButtonTap &tap);

// The redesigned store's purchase: one the flows issued themselves carries the marker and goes through without it.
struct MarkedPurchase {
    bool issuedByUs = false;
    Value purchase; // without the marker
};
MarkedPurchase takePurchaseMarker(const Value &purchase);

} // namespace qv

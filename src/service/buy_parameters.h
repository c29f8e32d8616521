// The buy-parameter string of a store purchase: reading its identifiers, rewriting its version, building new ones.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qv {

// The pending-table value that asks for the version the purchase already carries, flagged as "previous".
inline constexpr std::string_view kPreviousVersionMarker = "previous";
// What the formatter writes for a missing object, so an absent identifier still leaves a well-formed slot.
inline constexpr std::string_view kMissingObjectText = "(null)";
inline constexpr std::string_view kInstalledSuffix = "&installed=1";
inline constexpr std::string_view kPreviousVersionFlag = "&qvprevious=1";

// The store identifier ("salableAdamId") as decimal text; empty when the key is absent or has no digits.
std::string appIdentifierFromBuyParameters(std::string_view buyParameters);

// The external version identifier ("appExtVrsId") as decimal text; empty when absent.
std::string versionFromBuyParameters(std::string_view buyParameters);

// Replaces every case-insensitive match of the pattern by the replacement followed by capture group 2 (empty when
// the pattern has no such group). Nothing when the pattern does not compile.
std::optional<std::string> stringByReplacingStringWithPattern(std::string_view receiver, std::string_view pattern,
                                                              std::string_view replacement);

// Writes the version into every appExtVrsId pair (any spelling of the key) and drops every "&installed=1".
// An absent version is written as the formatter's text for a missing object.
std::optional<std::string> buyParametersWithVersion(std::string_view buyParameters,
                                                    std::optional<std::string_view> version);

// The buy parameters of a new purchase built by the offer builder; "&installed=1" ends them when installed.
std::string newPurchaseBuyParameters(std::optional<std::string_view> storeIdentifier,
                                     std::optional<std::string_view> version, bool installed);

// The buy parameters that replace an intercepted purchase; they never carry "&installed=1".
std::string rewrittenPurchaseBuyParameters(std::optional<std::string_view> storeIdentifier,
                                           std::optional<std::string_view> version);

// The version slot for a pending value: the value itself, or for the "previous" marker the purchase's current
// version followed by the previous-version flag.
std::string pendingVersionSlot(std::string_view pendingValue, std::string_view currentBuyParameters);

} // namespace qv

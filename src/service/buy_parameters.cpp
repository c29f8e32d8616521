// Buy-parameter codec: fixed patterns compiled once, the purchase templates and the version rewrite.
#include "service/buy_parameters.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "base/regex.h"

namespace qv {

namespace {

constexpr std::string_view kStoreIdentifierPattern = R"(salableAdamId=([\d]*))";
constexpr std::string_view kVersionPattern = R"(appExtVrsId=([\d]*))";
constexpr std::string_view kVersionKeyAssignment = "appExtVrsId=";
// The replacement is followed by a reference to group 2, which the single-group patterns here do not have, so it
// expands to nothing; it is kept so any two-group pattern behaves the same as on the phone.
constexpr std::string_view kReplacementGroupReference = "$2";
constexpr std::size_t kIdentifierGroup = 1;

// Both templates share everything up to the version slot and the purchase counter after it.
constexpr std::string_view kTemplateHead = "productType=C&price=0&salableAdamId=";
constexpr std::string_view kTemplateMiddle = "&pricingParameters=SWUPD&appExtVrsId=";
constexpr std::string_view kTemplateTail = "&clientBuyId=1";

// Function-local statics: compiled once, thread-safe, and never destroyed so late callers cannot see a dead one.
const Regex *storeIdentifierRegex() {
    static const Regex *const regex = Regex::compile(kStoreIdentifierPattern).release();
    return regex;
}

const Regex *versionRegex() {
    static const Regex *const regex = Regex::compile(kVersionPattern).release();
    return regex;
}

const Regex *caseInsensitiveVersionRegex() {
    static const Regex *const regex = Regex::compile(kVersionPattern, RegexCase::Insensitive).release();
    return regex;
}

std::string firstGroupOrEmpty(const Regex *regex, std::string_view subject) {
    if (regex == nullptr) {
        return {};
    }
    const auto match = regex->firstMatch(subject);
    return match ? std::string(match->group(subject, kIdentifierGroup)) : std::string();
}

std::string_view objectText(std::optional<std::string_view> object) {
    return object ? *object : kMissingObjectText;
}

std::string replacementTemplate(std::string_view replacement) {
    std::string result;
    result.reserve(replacement.size() + kReplacementGroupReference.size());
    result.append(replacement).append(kReplacementGroupReference);
    return result;
}

// One pass over the original text: pairs that the removal brings together are not removed again.
void eraseAll(std::string &text, std::string_view needle) {
    std::size_t kept = 0;
    std::size_t read = 0;
    for (std::size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, read)) {
        std::copy(text.begin() + static_cast<std::ptrdiff_t>(read), text.begin() + static_cast<std::ptrdiff_t>(at),
                  text.begin() + static_cast<std::ptrdiff_t>(kept));
        kept += at - read;
        read = at + needle.size();
    }
    if (read == 0) {
        return;
    }
    std::copy(text.begin() + static_cast<std::ptrdiff_t>(read), text.end(),
              text.begin() + static_cast<std::ptrdiff_t>(kept));
    text.resize(kept + (text.size() - read));
}

std::string purchaseBuyParameters(std::optional<std::string_view> storeIdentifier,
                                  std::optional<std::string_view> version, std::string_view suffix) {
    const std::string_view store = objectText(storeIdentifier);
    const std::string_view slot = objectText(version);
    std::string result;
    result.reserve(kTemplateHead.size() + store.size() + kTemplateMiddle.size() + slot.size() + kTemplateTail.size() +
                   suffix.size());
    result.append(kTemplateHead)
        .append(store)
        .append(kTemplateMiddle)
        .append(slot)
        .append(kTemplateTail)
        .append(suffix);
    return result;
}

} // namespace

std::string appIdentifierFromBuyParameters(std::string_view buyParameters) {
    return firstGroupOrEmpty(storeIdentifierRegex(), buyParameters);
}

std::string versionFromBuyParameters(std::string_view buyParameters) {
    return firstGroupOrEmpty(versionRegex(), buyParameters);
}

std::optional<std::string> stringByReplacingStringWithPattern(std::string_view receiver, std::string_view pattern,
                                                              std::string_view replacement) {
    const auto regex = Regex::compile(pattern, RegexCase::Insensitive);
    if (!regex) {
        return std::nullopt;
    }
    return regex->replaceAll(receiver, replacementTemplate(replacement));
}

std::optional<std::string> buyParametersWithVersion(std::string_view buyParameters,
                                                    std::optional<std::string_view> version) {
    const Regex *regex = caseInsensitiveVersionRegex();
    if (regex == nullptr) {
        return std::nullopt;
    }
    std::string replacement(kVersionKeyAssignment);
    replacement.append(objectText(version));
    std::string rewritten = regex->replaceAll(buyParameters, replacementTemplate(replacement));
    eraseAll(rewritten, kInstalledSuffix);
    return rewritten;
}

std::string newPurchaseBuyParameters(std::optional<std::string_view> storeIdentifier,
                                     std::optional<std::string_view> version, bool installed) {
    return purchaseBuyParameters(storeIdentifier, version, installed ? kInstalledSuffix : std::string_view());
}

std::string rewrittenPurchaseBuyParameters(std::optional<std::string_view> storeIdentifier,
                                           std::optional<std::string_view> version) {
    return purchaseBuyParameters(storeIdentifier, version, std::string_view());
}

std::string pendingVersionSlot(std::string_view pendingValue, std::string_view currentBuyParameters) {
    if (pendingValue != kPreviousVersionMarker) {
        return std::string(pendingValue);
    }
    std::string slot = versionFromBuyParameters(currentBuyParameters);
    slot.append(kPreviousVersionFlag);
    return slot;
}

} // namespace qv

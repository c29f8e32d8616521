// Reading stored preferences as switches.
#include "platform/preferences.h"

#include <algorithm>
#include <cctype>

#include "service/version_compare.h"

namespace qv {

namespace {

bool textSaysYes(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text == "yes" || text == "true" || lenientInteger(text) != 0;
}

} // namespace

bool Preferences::boolForKey(const std::string &key) const {
    const auto value = valueForKey(key);
    if (!value) {
        return false;
    }
    if (const auto *text = value->asString()) {
        return textSaysYes(*text);
    }
    return value->truthy();
}

} // namespace qv

// Version-string comparison and the lenient integer reading it relies on.
#include "service/version_compare.h"

#include "base/text.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace qv {

namespace {

std::vector<std::string_view> splitAtDots(std::string_view text) {
    std::vector<std::string_view> components;
    std::size_t start = 0;
    while (true) {
        const std::size_t dot = text.find('.', start);
        if (dot == std::string_view::npos) {
            components.push_back(text.substr(start));
            return components;
        }
        components.push_back(text.substr(start, dot - start));
        start = dot + 1;
    }
}

} // namespace

VersionOrder compareToVersion(std::string_view receiver, std::optional<std::string_view> other) {
    if (other && receiver == *other) {
        return VersionOrder::Same;
    }
    const auto mine = splitAtDots(receiver);
    const auto theirs = other ? splitAtDots(*other) : std::vector<std::string_view>{};
    const std::size_t count = std::max(mine.size(), theirs.size());
    for (std::size_t i = 0; i < count; ++i) {
        const std::int64_t a = i < mine.size() ? lenientInteger(mine[i]) : 0;
        const std::int64_t b = i < theirs.size() ? lenientInteger(theirs[i]) : 0;
        if (a < b) {
            return VersionOrder::Older;
        }
        if (a > b) {
            return VersionOrder::Newer;
        }
    }
    return VersionOrder::Same;
}

bool isOlderThanVersion(std::string_view receiver, std::optional<std::string_view> other) {
    return compareToVersion(receiver, other) == VersionOrder::Older;
}
bool isNewerThanVersion(std::string_view receiver, std::optional<std::string_view> other) {
    return compareToVersion(receiver, other) == VersionOrder::Newer;
}
bool isEqualToVersion(std::string_view receiver, std::optional<std::string_view> other) {
    return compareToVersion(receiver, other) == VersionOrder::Same;
}
bool isEqualOrOlderThanVersion(std::string_view receiver, std::optional<std::string_view> other) {
    return compareToVersion(receiver, other) != VersionOrder::Newer;
}
bool isEqualOrNewerThanVersion(std::string_view receiver, std::optional<std::string_view> other) {
    return compareToVersion(receiver, other) != VersionOrder::Older;
}

} // namespace qv

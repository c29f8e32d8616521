// Version-string comparison and the lenient integer reading it relies on.
#include "service/version_compare.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace qv {

namespace {

bool isLeadingSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

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

std::int64_t lenientInteger(std::string_view text) {
    std::size_t position = 0;
    while (position < text.size() && isLeadingSpace(text[position])) {
        ++position;
    }
    bool negative = false;
    if (position < text.size() && (text[position] == '+' || text[position] == '-')) {
        negative = text[position] == '-';
        ++position;
    }
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    std::int64_t value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        const int digit = text[position] - '0';
        if (!negative) {
            if (value > (kMax - digit) / 10) {
                return kMax;
            }
            value = value * 10 + digit;
        } else {
            if (value < (kMin + digit) / 10) {
                return kMin;
            }
            value = value * 10 - digit;
        }
    }
    return value;
}

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

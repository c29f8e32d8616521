// Dotted version-string comparison: numeric per component, shorter strings padded with zeros.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qv {

enum class VersionOrder : int { Older = -1, Same = 0, Newer = 1 };

// Reads text the way the platform's lenient integer reading does: leading white space, an optional sign, the
// leading run of decimal digits (saturating on overflow); anything else reads as 0.
std::int64_t lenientInteger(std::string_view text);

// Compares the receiver with another version; an absent other version reads as all zeros.
VersionOrder compareToVersion(std::string_view receiver, std::optional<std::string_view> other);

bool isOlderThanVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isNewerThanVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isEqualToVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isEqualOrOlderThanVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isEqualOrNewerThanVersion(std::string_view receiver, std::optional<std::string_view> other);

} // namespace qv

// Dotted version-string comparison: numeric per component, shorter strings padded with zeros.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qv {

enum class VersionOrder : int { Older = -1, Same = 0, Newer = 1 };

// Compares the receiver with another version; an absent other version reads as all zeros.
VersionOrder compareToVersion(std::string_view receiver, std::optional<std::string_view> other);

bool isOlderThanVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isNewerThanVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isEqualToVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isEqualOrOlderThanVersion(std::string_view receiver, std::optional<std::string_view> other);
bool isEqualOrNewerThanVersion(std::string_view receiver, std::optional<std::string_view> other);

} // namespace qv

// Text vocabulary: UTF-8 decoding and validation, UTF-16 with surrogate pairs, and the platform's lenient readings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "base/value.h"

namespace qv {

// One code point read at a position; length is 0 when the bytes there are not well-formed UTF-8 (overlong forms,
// surrogates, code points past U+10FFFF, truncated or broken sequences).
struct Utf8CodePoint {
    std::uint32_t codePoint = 0;
    std::size_t length = 0;
};
Utf8CodePoint decodeUtf8(std::string_view text, std::size_t position);

// Appends the UTF-8 form of a Unicode code point.
void appendUtf8(std::string &out, std::uint32_t codePoint);

// True when the text is well-formed UTF-8: no overlong forms, surrogates or code points past U+10FFFF.
bool isValidUtf8(std::string_view text);

// UTF-16 surrogates: the one place that knows how a supplementary code point is split and joined again.
inline constexpr std::uint32_t kFirstSupplementaryCodePoint = 0x10000;
struct SurrogatePair {
    char16_t high;
    char16_t low;
};
constexpr bool isHighSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}
constexpr bool isSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}
// codePoint must be at least kFirstSupplementaryCodePoint.
constexpr SurrogatePair surrogatePairOf(std::uint32_t codePoint) {
    const std::uint32_t offset = codePoint - kFirstSupplementaryCodePoint;
    return {static_cast<char16_t>(0xD800 + (offset >> 10U)), static_cast<char16_t>(0xDC00 + (offset & 0x3FFU))};
}
constexpr std::uint32_t codePointOfSurrogates(std::uint32_t high, std::uint32_t low) {
    return kFirstSupplementaryCodePoint + ((high - 0xD800) << 10U) + (low - 0xDC00);
}

// UTF-8 text as UTF-16 code units, with the byte offset of every unit, for engines that count in UTF-16.
// Malformed UTF-8 becomes one replacement character per offending byte, as the platform decoders do.
class Utf16Text {
  public:
    explicit Utf16Text(std::string_view utf8);

    const std::u16string &units() const { return units_; }
    // The UTF-8 byte offset where UTF-16 unit `unit` starts; offsets past the end map to the byte length.
    std::size_t byteOffset(std::size_t unit) const;

  private:
    void push(char16_t unit, std::size_t byteOffset);

    std::u16string units_;
    // Empty while the text is pure ASCII, where unit and byte offsets coincide.
    std::vector<std::size_t> byteOffsetOfUnit_;
    std::size_t byteLength_ = 0;
};

// Reads text the way the platform's lenient integer reading does: leading white space, an optional sign, the
// leading run of decimal digits (saturating on overflow); anything else reads as 0.
std::int64_t lenientInteger(std::string_view text);

// Reads outside input (identifiers in paths and bodies, ports, counts, menu choices) as a whole decimal integer
// from least to most: digits only, no white space, base prefix or separator, and a leading "+" or "-" only where
// the range admits negative numbers, so an identifier has exactly one spelling. NotInteger when the text is not
// written that way, IntegerOutOfRange (naming the range) when it is but lies outside it.
Result<std::int64_t> strictInteger(std::string_view text, std::int64_t least = 0,
                                   std::int64_t most = std::numeric_limits<std::int64_t>::max());

// A value read as a switch, the way the platform's boolean reading does: numbers are true when non-zero; texts
// when, after leading white space, a sign and zeros, they start with Y, T (any case) or a non-zero digit ("YES",
// "true", "1"); anything else is false.
bool lenientBool(const Value &value);

// The value's text as "%@" would print it: texts as they are, numbers in decimal, anything else empty.
std::string textOf(const Value &value);

} // namespace qv

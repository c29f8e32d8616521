// UTF-8 to UTF-16 conversion that remembers where each UTF-16 unit came from.
#include "core/utf16_text.h"

#include <algorithm>
#include <cstdint>

#include "core/utf8.h"

namespace qv {
namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;
constexpr unsigned kFirstNonAscii = 0x80;
constexpr std::uint32_t kFirstSupplementary = 0x10000;
constexpr std::uint32_t kHighSurrogateBase = 0xD800;
constexpr std::uint32_t kLowSurrogateBase = 0xDC00;
constexpr std::uint32_t kSurrogateBits = 10;
constexpr std::uint32_t kLowSurrogateMask = 0x3FF;

} // namespace

Utf16Text::Utf16Text(std::string_view utf8) : byteLength_(utf8.size()) {
    // Pure ASCII (the usual buy-parameter string) maps unit for byte and needs no table.
    std::size_t at = 0;
    while (at < utf8.size() && static_cast<unsigned char>(utf8[at]) < kFirstNonAscii) {
        ++at;
    }
    units_.reserve(utf8.size());
    units_.resize(at);
    std::copy(utf8.begin(), utf8.begin() + static_cast<std::ptrdiff_t>(at), units_.begin());
    if (at == utf8.size()) {
        return;
    }
    byteOffsetOfUnit_.reserve(utf8.size() + 1);
    for (std::size_t i = 0; i < at; ++i) {
        byteOffsetOfUnit_.push_back(i);
    }
    while (at < utf8.size()) {
        const std::size_t start = at;
        Utf8CodePoint decoded = decodeUtf8(utf8, at);
        if (decoded.length == 0) {
            decoded = {kReplacementCharacter, 1};
        }
        at += decoded.length;
        if (decoded.codePoint >= kFirstSupplementary) {
            const std::uint32_t offset = decoded.codePoint - kFirstSupplementary;
            push(static_cast<char16_t>(kHighSurrogateBase + (offset >> kSurrogateBits)), start);
            push(static_cast<char16_t>(kLowSurrogateBase + (offset & kLowSurrogateMask)), start);
        } else {
            push(static_cast<char16_t>(decoded.codePoint), start);
        }
    }
    byteOffsetOfUnit_.push_back(utf8.size());
}

std::size_t Utf16Text::byteOffset(std::size_t unit) const {
    if (byteOffsetOfUnit_.empty()) {
        return std::min(unit, byteLength_);
    }
    return unit < byteOffsetOfUnit_.size() ? byteOffsetOfUnit_[unit] : byteLength_;
}

void Utf16Text::push(char16_t unit, std::size_t byteOffset) {
    units_.push_back(unit);
    byteOffsetOfUnit_.push_back(byteOffset);
}

} // namespace qv

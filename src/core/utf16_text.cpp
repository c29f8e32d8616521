// UTF-8 to UTF-16 conversion that remembers where each UTF-16 unit came from.
#include "core/utf16_text.h"

#include <cstdint>

namespace qv {
namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;
constexpr std::uint32_t kFirstSupplementary = 0x10000;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
constexpr std::uint32_t kHighSurrogateBase = 0xD800;
constexpr std::uint32_t kLowSurrogateBase = 0xDC00;
constexpr std::uint32_t kSurrogatesEnd = 0xE000;
constexpr std::uint32_t kSurrogateBits = 10;
constexpr std::uint32_t kLowSurrogateMask = 0x3FF;
constexpr unsigned kContinuationBits = 6;
constexpr unsigned kContinuationMask = 0x3F;
constexpr unsigned kContinuationTagMask = 0xC0;
constexpr unsigned kContinuationTag = 0x80;

struct LeadByte {
    unsigned tagMask;
    unsigned tag;
    std::size_t length;
    std::uint32_t minimum; // shortest value this length may encode; anything less is an overlong form
};

constexpr LeadByte kLeadBytes[] = {
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, kFirstSupplementary},
};

// Decodes one code point at `at`; returns how many bytes it took (at least one).
std::size_t decode(std::string_view utf8, std::size_t at, std::uint32_t &codePoint) {
    const auto lead = static_cast<unsigned char>(utf8[at]);
    if (lead < kContinuationTag) {
        codePoint = lead;
        return 1;
    }
    for (const LeadByte &form : kLeadBytes) {
        if ((lead & form.tagMask) != form.tag) {
            continue;
        }
        if (at + form.length > utf8.size()) {
            break;
        }
        codePoint = lead & ~form.tagMask & 0xFFU;
        bool wellFormed = true;
        for (std::size_t i = 1; i < form.length && wellFormed; ++i) {
            const auto next = static_cast<unsigned char>(utf8[at + i]);
            wellFormed = (next & kContinuationTagMask) == kContinuationTag;
            codePoint = (codePoint << kContinuationBits) | (next & kContinuationMask);
        }
        const bool surrogate = codePoint >= kHighSurrogateBase && codePoint < kSurrogatesEnd;
        if (wellFormed && codePoint >= form.minimum && codePoint <= kLastCodePoint && !surrogate) {
            return form.length;
        }
        break;
    }
    codePoint = kReplacementCharacter;
    return 1;
}

} // namespace

Utf16Text::Utf16Text(std::string_view utf8) {
    units_.reserve(utf8.size());
    byteOffsetOfUnit_.reserve(utf8.size() + 1);
    std::size_t at = 0;
    while (at < utf8.size()) {
        const std::size_t start = at;
        std::uint32_t codePoint = 0;
        at += decode(utf8, at, codePoint);
        if (codePoint >= kFirstSupplementary) {
            const std::uint32_t offset = codePoint - kFirstSupplementary;
            push(static_cast<char16_t>(kHighSurrogateBase + (offset >> kSurrogateBits)), start);
            push(static_cast<char16_t>(kLowSurrogateBase + (offset & kLowSurrogateMask)), start);
        } else {
            push(static_cast<char16_t>(codePoint), start);
        }
    }
    byteOffsetOfUnit_.push_back(utf8.size());
}

std::size_t Utf16Text::byteOffset(std::size_t unit) const {
    return unit < byteOffsetOfUnit_.size() ? byteOffsetOfUnit_[unit] : byteOffsetOfUnit_.back();
}

void Utf16Text::push(char16_t unit, std::size_t byteOffset) {
    units_.push_back(unit);
    byteOffsetOfUnit_.push_back(byteOffset);
}

} // namespace qv

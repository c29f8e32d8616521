// UTF-8 encoding and validation.
#include "core/utf8.h"

namespace qv {

namespace {

constexpr unsigned kContinuationBits = 6;
constexpr unsigned kContinuationPayloadMask = 0x3F;
constexpr unsigned kContinuationTagMask = 0xC0;
constexpr unsigned kContinuationTag = 0x80;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
constexpr std::uint32_t kFirstSurrogate = 0xD800;
constexpr std::uint32_t kPastSurrogates = 0xE000;

struct LeadByte {
    unsigned tagMask;
    unsigned tag;
    std::size_t length;
    std::uint32_t minimum; // shortest value this length may encode; anything less is an overlong form
};

constexpr LeadByte kLeadBytes[] = {
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

} // namespace

Utf8CodePoint decodeUtf8(std::string_view text, std::size_t position) {
    const auto lead = static_cast<unsigned char>(text[position]);
    if (lead < kContinuationTag) {
        return {lead, 1};
    }
    for (const LeadByte &form : kLeadBytes) {
        if ((lead & form.tagMask) != form.tag) {
            continue;
        }
        if (position + form.length > text.size()) {
            return {};
        }
        std::uint32_t codePoint = lead & ~form.tagMask & 0xFFU;
        for (std::size_t i = 1; i < form.length; ++i) {
            const auto next = static_cast<unsigned char>(text[position + i]);
            if ((next & kContinuationTagMask) != kContinuationTag) {
                return {};
            }
            codePoint = (codePoint << kContinuationBits) | (next & kContinuationPayloadMask);
        }
        const bool surrogate = codePoint >= kFirstSurrogate && codePoint < kPastSurrogates;
        if (codePoint < form.minimum || codePoint > kLastCodePoint || surrogate) {
            return {};
        }
        return {codePoint, form.length};
    }
    return {};
}

void appendUtf8(std::string &out, std::uint32_t codePoint) {
    if (codePoint < 0x80U) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800U) {
        out += static_cast<char>(0xC0U | (codePoint >> 6U));
        out += static_cast<char>(0x80U | (codePoint & 0x3FU));
    } else if (codePoint < 0x10000U) {
        out += static_cast<char>(0xE0U | (codePoint >> 12U));
        out += static_cast<char>(0x80U | ((codePoint >> 6U) & 0x3FU));
        out += static_cast<char>(0x80U | (codePoint & 0x3FU));
    } else {
        out += static_cast<char>(0xF0U | (codePoint >> 18U));
        out += static_cast<char>(0x80U | ((codePoint >> 12U) & 0x3FU));
        out += static_cast<char>(0x80U | ((codePoint >> 6U) & 0x3FU));
        out += static_cast<char>(0x80U | (codePoint & 0x3FU));
    }
}

bool isValidUtf8(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const Utf8CodePoint decoded = decodeUtf8(text, position);
        if (decoded.length == 0) {
            return false;
        }
        position += decoded.length;
    }
    return true;
}

} // namespace qv

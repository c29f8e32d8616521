// UTF-8 and UTF-16 conversion, validation, and the platform's lenient readings of text and values.
#include "base/text.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>

namespace qv {

namespace {

constexpr unsigned kContinuationBits = 6;
constexpr unsigned kContinuationPayloadMask = 0x3F;
constexpr unsigned kContinuationTagMask = 0xC0;
constexpr unsigned kContinuationTag = 0x80;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

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

constexpr char16_t kReplacementCharacter = 0xFFFD;
constexpr unsigned kFirstNonAscii = 0x80;
constexpr int kRealTextPrecision = 15;

bool isLeadingSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

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
        const bool surrogate = isSurrogate(codePoint);
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
        if (decoded.codePoint >= kFirstSupplementaryCodePoint) {
            const SurrogatePair pair = surrogatePairOf(decoded.codePoint);
            push(pair.high, start);
            push(pair.low, start);
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

Result<std::int64_t> strictInteger(std::string_view text, std::int64_t least, std::int64_t most) {
    const bool signAllowed = least < 0;
    const bool negative = signAllowed && !text.empty() && text.front() == '-';
    const std::string_view digits =
        signAllowed && !text.empty() && (text.front() == '-' || text.front() == '+') ? text.substr(1) : text;
    const auto shown = [&text] { return "\"" + std::string(text) + "\""; };
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return fail(ErrorCode::NotInteger, shown() + " is not a whole decimal number");
    }
    // The magnitude is gathered unsigned, so the most negative number reads without overflow on the way.
    constexpr std::uint64_t kLargestMagnitude = std::uint64_t{1} << 63U;
    constexpr std::uint64_t kBase = 10;
    std::uint64_t magnitude = 0;
    bool tooLarge = false;
    for (const char c : digits) {
        const auto digit = static_cast<std::uint64_t>(c - '0');
        tooLarge = tooLarge || magnitude > (kLargestMagnitude - digit) / kBase;
        magnitude = tooLarge ? magnitude : magnitude * kBase + digit;
    }
    tooLarge = tooLarge || (!negative && magnitude == kLargestMagnitude);
    const std::int64_t value =
        negative ? static_cast<std::int64_t>(0U - magnitude) : static_cast<std::int64_t>(magnitude);
    if (tooLarge || value < least || value > most) {
        return fail(ErrorCode::IntegerOutOfRange,
                    shown() + " is not from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return value;
}

bool lenientBool(const Value &value) {
    const std::string *text = value.asString();
    if (text == nullptr) {
        return value.truthy();
    }
    // Past white space, a sign and leading zeros, the first character decides: Y or T (any case), or a non-zero
    // digit. What follows it does not matter, so "YES", "true", "Yup" and "07" all read as true.
    std::size_t position = 0;
    while (position < text->size() && isLeadingSpace((*text)[position])) {
        ++position;
    }
    if (position < text->size() && ((*text)[position] == '+' || (*text)[position] == '-')) {
        ++position;
    }
    while (position < text->size() && (*text)[position] == '0') {
        ++position;
    }
    if (position == text->size()) {
        return false;
    }
    const char first = (*text)[position];
    return first == 'Y' || first == 'y' || first == 'T' || first == 't' || (first >= '1' && first <= '9');
}

std::string textOf(const Value &value) {
    if (const auto *text = value.asString()) {
        return *text;
    }
    if (const auto *boolean = value.asBool()) {
        return *boolean ? "1" : "0";
    }
    if (const auto *integer = value.asInteger()) {
        return std::to_string(*integer);
    }
    if (const auto *real = value.asReal()) {
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, "%.*g", kRealTextPrecision, *real);
        return buffer;
    }
    return {};
}

} // namespace qv

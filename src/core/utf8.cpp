// UTF-8 encoding and validation.
#include "core/utf8.h"

namespace qv {

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
    constexpr unsigned kContinuationMask = 0xC0U;
    constexpr unsigned kContinuation = 0x80U;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        std::uint32_t codePoint = 0;
        if (lead < 0x80U) {
            ++i;
            continue;
        }
        if ((lead & 0xE0U) == 0xC0U) {
            length = 2;
            codePoint = lead & 0x1FU;
        } else if ((lead & 0xF0U) == 0xE0U) {
            length = 3;
            codePoint = lead & 0x0FU;
        } else if ((lead & 0xF8U) == 0xF0U) {
            length = 4;
            codePoint = lead & 0x07U;
        } else {
            return false;
        }
        if (text.size() - i < length) {
            return false;
        }
        for (std::size_t j = 1; j < length; ++j) {
            const auto next = static_cast<unsigned char>(text[i + j]);
            if ((next & kContinuationMask) != kContinuation) {
                return false;
            }
            codePoint = (codePoint << 6U) | (next & 0x3FU);
        }
        constexpr std::uint32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
        if (codePoint < kMinimum[length] || codePoint > 0x10FFFFU || (codePoint >= 0xD800U && codePoint < 0xE000U)) {
            return false;
        }
        i += length;
    }
    return true;
}

} // namespace qv

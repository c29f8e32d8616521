// UTF-8 encoding and validation shared by the codecs (JSON, keyed archives).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

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

} // namespace qv

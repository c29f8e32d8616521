// UTF-8 encoding and validation shared by the codecs (JSON, keyed archives).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

// Appends the UTF-8 form of a Unicode code point.
void appendUtf8(std::string &out, std::uint32_t codePoint);

// True when the text is well-formed UTF-8: no overlong forms, surrogates or code points past U+10FFFF.
bool isValidUtf8(std::string_view text);

} // namespace qv

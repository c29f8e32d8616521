// UTF-8 text as UTF-16 code units, with the byte offset of every unit, for engines that count in UTF-16.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

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

} // namespace qv

// Fuzz target: version comparison of arbitrary text must never crash and must stay a consistent ordering.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "base/text.h"
#include "service/version_compare.h"

// Input: two versions separated by the first newline; without one, the second version is absent.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t separator = input.find('\n');
    const std::string_view first = input.substr(0, separator);
    std::optional<std::string_view> second;
    if (separator != std::string_view::npos) {
        second = input.substr(separator + 1);
    }
    const int forward = static_cast<int>(qv::compareToVersion(first, second));
    if (forward < -1 || forward > 1 || qv::compareToVersion(first, first) != qv::VersionOrder::Same) {
        std::abort();
    }
    if (second && static_cast<int>(qv::compareToVersion(*second, first)) != -forward) {
        std::abort();
    }
    (void)qv::lenientInteger(first);
    return 0;
}

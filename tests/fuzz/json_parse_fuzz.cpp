// Fuzz target: the JSON reader must reject or accept any bytes without crashing, and what it accepts must re-read.
#include "base/json.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    if (const auto value = qv::parseJson(text)) {
        const auto again = qv::parseJson(qv::toJson(*value));
        if (!again) {
            std::abort();
        }
    }
    return 0;
}

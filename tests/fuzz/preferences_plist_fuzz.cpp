// Fuzz target: the preferences reader must reject or read any bytes, and what it reads must survive being written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/json.h"
#include "posix/plist_preferences.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const auto values = qv::posix::readPreferencesPropertyList(bytes);
    if (!values.ok()) {
        return 0;
    }
    const auto written = qv::posix::writePreferencesPropertyList(*values);
    if (!written.ok()) {
        return 0; // e.g. a text with an embedded NUL, which the writer refuses
    }
    const auto again = qv::posix::readPreferencesPropertyList(*written);
    if (!again.ok()) {
        std::abort();
    }
    // Reals that never equal themselves (NaN) still match in their JSON text.
    if (!(*again == *values) && qv::toJson(qv::Value(*again)) != qv::toJson(qv::Value(*values))) {
        std::abort();
    }
    return 0;
}

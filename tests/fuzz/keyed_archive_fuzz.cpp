// Fuzz target: the keyed-archive reader must reject or decode any bytes, and what it decodes must survive a round trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/json.h"
#include "posix/keyed_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const qv::posix::KeyedArchiveReadOptions lenient{true};
    (void)qv::posix::decodeKeyedArchiveTop(bytes, lenient);
    const auto root = qv::posix::decodeKeyedArchive(bytes);
    if (!root.ok()) {
        return 0;
    }
    const auto encoded = qv::posix::encodeKeyedArchive(*root);
    if (!encoded.ok()) {
        return 0; // e.g. a string with an embedded NUL, which the writer refuses
    }
    const auto again = qv::posix::decodeKeyedArchive(*encoded);
    if (!again.ok()) {
        std::abort();
    }
    // Reals that never equal themselves (NaN) still match in their JSON text.
    if (!(*again == *root) && qv::toJson(*again) != qv::toJson(*root)) {
        std::abort();
    }
    return 0;
}

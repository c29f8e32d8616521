// Fuzz target: any bytes given as an app archive are refused or yield a report holding only the allowed keys.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/json.h"
#include "posix/app_archive.h"
#include "service/service_client.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const auto metadataBytes = qv::posix::metadataBytesFromArchiveBytes(bytes);
    if (!metadataBytes.ok()) {
        return 0;
    }
    if (metadataBytes->size() > qv::posix::kMaxMetadataBytes) {
        std::abort();
    }
    const auto metadata = qv::posix::readMetadata(*metadataBytes);
    if (!metadata.ok()) {
        return 0;
    }
    const qv::BuiltReport built = qv::reportFromArchiveMetadata(*metadata);
    if (!built.request) {
        return 0;
    }
    const qv::Dictionary *body = built.request->body.asDictionary();
    if (body == nullptr || body->size() != 4 || built.request->body["versions"].asArray() == nullptr) {
        std::abort();
    }
    (void)qv::toJson(built.request->body);
    return 0;
}

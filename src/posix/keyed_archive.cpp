// Keyed-archive codec: the input's size is checked, the property list read by the reader for its format, then
// the archive is decoded; writing goes through the archiver.
#include "posix/keyed_archive.h"

#include <string>

#include "posix/plist/binary_reader.h"
#include "posix/plist/keyed_archiver.h"
#include "posix/plist/keyed_unarchiver.h"
#include "posix/plist/xml_reader.h"

namespace qv::posix {

namespace {

Result<plist::PlistTable> readPropertyList(std::string_view bytes) {
    if (bytes.empty()) {
        return fail(ErrorCode::MalformedArchive, "empty input is not a keyed archive");
    }
    if (bytes.size() > kMaxKeyedArchiveBytes) {
        return fail(ErrorCode::MalformedArchive,
                    "keyed archive is larger than " + std::to_string(kMaxKeyedArchiveBytes) + " bytes");
    }
    return plist::isBinaryPropertyList(bytes) ? plist::readBinaryPropertyList(bytes)
                                              : plist::readXmlPropertyList(bytes);
}

} // namespace

Result<Value> decodeKeyedArchive(std::string_view bytes, const KeyedArchiveReadOptions &options) {
    const auto table = readPropertyList(bytes);
    if (!table) {
        return table.error();
    }
    return plist::unarchiveRoot(*table, bytes.size(), options);
}

Result<Value> decodeKeyedArchiveTop(std::string_view bytes, const KeyedArchiveReadOptions &options) {
    const auto table = readPropertyList(bytes);
    if (!table) {
        return table.error();
    }
    return plist::unarchiveTop(*table, bytes.size(), options);
}

Result<std::string> encodeKeyedArchive(const Value &root) {
    return plist::archiveRoot(root);
}

} // namespace qv::posix

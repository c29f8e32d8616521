// Reads a keyed archive from a file, and writes one to a temporary file that then replaces the old one.
#include "posix/archive_file_posix.h"

#include "posix/file_io.h"
#include "posix/keyed_archive.h"

namespace qv::posix {

Result<Value> PosixArchiveFile::load(const std::string &path) {
    const auto bytes = readFile(path);
    if (!bytes) {
        return bytes.error();
    }
    auto decoded = decodeKeyedArchive(*bytes);
    if (!decoded) {
        return fail(decoded.error().code, path + ": " + decoded.error().detail);
    }
    return decoded;
}

Result<void> PosixArchiveFile::save(const std::string &path, const Value &root) {
    const auto encoded = encodeKeyedArchive(root);
    if (!encoded) {
        return fail(encoded.error().code, "cannot archive for " + path + ": " + encoded.error().detail);
    }
    return writeFileAtomically(path, *encoded);
}

} // namespace qv::posix

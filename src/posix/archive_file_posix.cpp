// Reads a keyed archive from a file, and writes one to a temporary file that then replaces the old one.
#include "posix/archive_file_posix.h"

#include "posix/file_io.h"
#include "posix/keyed_archive.h"

namespace qv::posix {

ArchiveLoad PosixArchiveFile::load(const std::string &path) {
    const auto bytes = readFile(path);
    if (!bytes) {
        return {ArchiveLoad::Status::Unreadable, Value(), bytes.error().detail};
    }
    auto decoded = decodeKeyedArchive(*bytes);
    if (!decoded) {
        return {ArchiveLoad::Status::Undecodable, Value(), path + ": " + decoded.error().detail};
    }
    return {ArchiveLoad::Status::Loaded, std::move(*decoded), {}};
}

bool PosixArchiveFile::save(const std::string &path, const Value &root, std::string *error) {
    const auto encoded = encodeKeyedArchive(root);
    if (!encoded.ok()) {
        if (error != nullptr) {
            *error = "cannot archive for " + path + ": " + encoded.error().detail;
        }
        return false;
    }
    const auto written = writeFileAtomically(path, *encoded);
    if (!written && error != nullptr) {
        *error = written.error().detail;
    }
    return written.ok();
}

} // namespace qv::posix

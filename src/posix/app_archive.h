// The store's metadata of an app out of the files people keep: app archives (zip) and the metadata file itself.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"

namespace qv::posix {

inline constexpr std::string_view kMetadataFileName = "iTunesMetadata.plist";
// A metadata file is a few kilobytes; an entry that claims or turns out to be larger is refused unread.
inline constexpr std::size_t kMaxMetadataBytes = std::size_t{1} * 1024 * 1024;

// The bytes of the archive's top-level metadata entry, read through the zip library with the cap above: only the
// archive's directory and that one entry are read, however large the archive. Fails with MalformedAppArchive (not
// a zip, no such entry, an entry over the cap or that does not inflate) or FileUnreadable.
Result<std::string> metadataBytesFromArchive(const std::string &path);
// The same for an archive held in memory.
Result<std::string> metadataBytesFromArchiveBytes(std::string_view archive);

// The metadata dictionary of an XML or binary property list. Fails with MalformedPropertyList or WrongType.
Result<Value> readMetadata(std::string_view bytes);

} // namespace qv::posix

// ArchiveFile on a POSIX file system: the keyed-archive codec plus whole-file atomic replacement.
#pragma once

#include <string>

#include "platform/archive_file.h"

namespace qv::posix {

class PosixArchiveFile : public ArchiveFile {
  public:
    ArchiveLoad load(const std::string &path) override;
    bool save(const std::string &path, const Value &root, std::string *error = nullptr) override;
};

} // namespace qv::posix

// ArchiveFile on a POSIX file system: the keyed-archive codec plus whole-file atomic replacement.
#pragma once

#include <string>

#include "platform/archive_file.h"

namespace qv::posix {

class PosixArchiveFile : public ArchiveFile {
  public:
    Result<Value> load(const std::string &path) override;
    Result<void> save(const std::string &path, const Value &root) override;
};

} // namespace qv::posix

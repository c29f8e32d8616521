// The phone's ArchiveFile port: the platform's keyed archiver, written atomically over the file.
#pragma once

#include "platform/archive_file.h"

namespace qv::darwin {

// A dictionary root is archived as a mutable dictionary, so that readers get back a dictionary they may change.
class KeyedArchiveFile final : public ArchiveFile {
  public:
    Result<Value> load(const std::string &path) override;
    Result<void> save(const std::string &path, const Value &root) override;
};

} // namespace qv::darwin

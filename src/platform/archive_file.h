// Port: loads and saves the whole keyed archive of one value at a path (the phone uses the platform's archiver).
#pragma once

#include <string>

#include "base/result.h"
#include "base/value.h"

namespace qv {

class ArchiveFile {
  public:
    virtual ~ArchiveFile() = default;
    // The archive's root object. A file that is missing or cannot be read fails with FileUnreadable; bytes that
    // were read but hold no archive this system can decode fail with MalformedArchive (or MalformedPropertyList).
    // Callers tell the two apart: a running store keeps its records when the file goes away, not when it is bad.
    virtual Result<Value> load(const std::string &path) = 0;
    // Replaces the file as a whole, so that a reader sees the old or the new archive and never a mix. Fails with
    // UnencodableValue or FileUnwritable; the file is then unchanged.
    virtual Result<void> save(const std::string &path, const Value &root) = 0;
};

} // namespace qv

// Port: loads and saves the whole keyed archive of one value at a path (the phone uses the platform's archiver).
#pragma once

#include <string>

#include "base/value.h"

namespace qv {

struct ArchiveLoad {
    enum class Status {
        Unreadable,  // the file is missing or cannot be read
        Undecodable, // the bytes were read but are no archive this system can decode
        Loaded,
    };
    Status status = Status::Unreadable;
    Value root;        // the archive's root object when Loaded
    std::string error; // one line when not Loaded
};

class ArchiveFile {
  public:
    virtual ~ArchiveFile() = default;
    virtual ArchiveLoad load(const std::string &path) = 0;
    // Replaces the file as a whole, so that a reader sees the old or the new archive and never a mix.
    virtual bool save(const std::string &path, const Value &root, std::string *error = nullptr) = 0;
};

} // namespace qv

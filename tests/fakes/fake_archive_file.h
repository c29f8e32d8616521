// In-memory ArchiveFile for tests: paths map to stored values, or to bytes that do not decode.
#pragma once

#include <map>
#include <string>

#include "platform/archive_file.h"

namespace qv {

class FakeArchiveFile : public ArchiveFile {
  public:
    Result<Value> load(const std::string &path) override {
        ++loads;
        if (corrupt.count(path) != 0) {
            return fail(ErrorCode::MalformedArchive, "corrupt archive");
        }
        const auto found = files.find(path);
        if (found == files.end()) {
            return fail(ErrorCode::FileUnreadable, "no such file");
        }
        return found->second;
    }

    Result<void> save(const std::string &path, const Value &root) override {
        ++saves;
        if (failSaves) {
            return fail(ErrorCode::FileUnwritable, "disk full");
        }
        corrupt.erase(path);
        files[path] = root;
        return {};
    }

    std::map<std::string, Value> files;
    std::map<std::string, bool> corrupt; // paths whose content cannot be decoded
    bool failSaves = false;
    int loads = 0;
    int saves = 0;
};

} // namespace qv

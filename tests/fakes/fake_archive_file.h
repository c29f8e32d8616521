// In-memory ArchiveFile for tests: paths map to stored values, or to bytes that do not decode.
#pragma once

#include <map>
#include <string>

#include "platform/archive_file.h"

namespace qv {

class FakeArchiveFile : public ArchiveFile {
  public:
    ArchiveLoad load(const std::string &path) override {
        ++loads;
        if (corrupt.count(path) != 0) {
            return {ArchiveLoad::Status::Undecodable, Value(), "corrupt archive"};
        }
        const auto found = files.find(path);
        if (found == files.end()) {
            return {ArchiveLoad::Status::Unreadable, Value(), "no such file"};
        }
        return {ArchiveLoad::Status::Loaded, found->second, {}};
    }

    bool save(const std::string &path, const Value &root, std::string *error) override {
        ++saves;
        if (failSaves) {
            if (error != nullptr) {
                *error = "disk full";
            }
            return false;
        }
        corrupt.erase(path);
        files[path] = root;
        return true;
    }

    std::map<std::string, Value> files;
    std::map<std::string, bool> corrupt; // paths whose content cannot be decoded
    bool failSaves = false;
    int loads = 0;
    int saves = 0;
};

} // namespace qv

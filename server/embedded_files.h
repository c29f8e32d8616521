// The page templates and stylesheet, built into the service from server/pages/ so it needs no files at run time.
#pragma once

#include <string_view>
#include <vector>

namespace qv::server {

struct EmbeddedFile {
    std::string_view name; // the file's name in server/pages/
    std::string_view contents;
};

const std::vector<EmbeddedFile> &embeddedPageFiles();

} // namespace qv::server

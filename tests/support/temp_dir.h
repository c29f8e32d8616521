// A temporary directory for one test, removed with everything in it when the test is done.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace qv::test {

class TemporaryDirectory {
  public:
    explicit TemporaryDirectory(const std::string &prefix = "qv-test") {
        std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
        const char *made = ::mkdtemp(pattern.data());
        path_ = made != nullptr ? made : "";
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

} // namespace qv::test

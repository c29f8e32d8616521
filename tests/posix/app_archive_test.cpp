// Reading the metadata out of app archives: the entry at the top, the size cap, and files that are no archive.
#include "posix/app_archive.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/app_archives.h"
#include "support/temp_dir.h"

namespace qv::posix {
namespace {

struct ArchiveCase {
    const char *name;
    std::vector<std::pair<std::string, std::string>> entries;
    bool found;
    const char *detail; // part of the failure's line
};

class FromArchive : public ::testing::TestWithParam<ArchiveCase> {};

TEST_P(FromArchive, ReadsOnlyTheTopLevelMetadataWithinTheCap) {
    test::TemporaryDirectory directory;
    const std::string path = directory.file("app.ipa");
    ASSERT_TRUE(test::writeZip(path, GetParam().entries));
    const auto bytes = metadataBytesFromArchive(path);
    ASSERT_EQ(bytes.ok(), GetParam().found) << (bytes ? *bytes : bytes.error().describe());
    if (GetParam().found) {
        EXPECT_EQ(*bytes, GetParam().entries.back().second);
    } else {
        EXPECT_EQ(bytes.error().code, ErrorCode::MalformedAppArchive);
        EXPECT_NE(bytes.error().describe().find(GetParam().detail), std::string::npos) << bytes.error().describe();
    }
}

const std::string kAtCap(kMaxMetadataBytes, 'x');

INSTANTIATE_TEST_SUITE_P(
    AppArchive, FromArchive,
    ::testing::Values(
        ArchiveCase{"AtTheTop", {{"Payload/A.app/Info.plist", "i"}, {"iTunesMetadata.plist", "<plist/>"}}, true, ""},
        ArchiveCase{"ExactlyAtTheCap", {{"iTunesMetadata.plist", kAtCap}}, true, ""},
        ArchiveCase{"OneByteOverTheCap", {{"iTunesMetadata.plist", kAtCap + "x"}}, false, "larger than"},
        ArchiveCase{"OnlyInsideTheApp", {{"Payload/A.app/iTunesMetadata.plist", "<plist/>"}}, false, "holds no"}),
    [](const auto &info) { return std::string(info.param.name); });

struct FileCase {
    const char *name;
    std::function<std::string(const test::TemporaryDirectory &)> make; // returns the path to read
    ErrorCode code;
};

class NotAnArchive : public ::testing::TestWithParam<FileCase> {};

TEST_P(NotAnArchive, FailsOnOneLineWithoutBlocking) {
    test::TemporaryDirectory directory;
    const auto bytes = metadataBytesFromArchive(GetParam().make(directory));
    ASSERT_FALSE(bytes);
    EXPECT_EQ(bytes.error().code, GetParam().code);
    EXPECT_EQ(bytes.error().describe().find('\n'), std::string::npos);
}

std::string written(const test::TemporaryDirectory &directory, const std::string &bytes) {
    std::string path = directory.file("file.ipa");
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

INSTANTIATE_TEST_SUITE_P(
    AppArchive, NotAnArchive,
    ::testing::Values(
        FileCase{"Text", [](const auto &d) { return written(d, "not a zip at all"); }, ErrorCode::MalformedAppArchive},
        FileCase{"TruncatedZip", [](const auto &d) { return written(d, std::string("PK\x03\x04", 4) + "abc"); },
                 ErrorCode::MalformedAppArchive},
        FileCase{"Missing", [](const auto &d) { return d.file("none.ipa"); }, ErrorCode::FileUnreadable},
        FileCase{"Folder", [](const auto &d) { return d.path(); }, ErrorCode::FileUnreadable},
        FileCase{"Fifo",
                 [](const auto &d) {
                     ::mkfifo(d.file("fifo.ipa").c_str(), 0600);
                     return d.file("fifo.ipa");
                 },
                 ErrorCode::FileUnreadable}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(AppArchiveInMemory, ReadsWhatTheFileFormReads) {
    test::TemporaryDirectory directory;
    const std::string path = directory.file("app.ipa");
    const std::string metadata = test::metadataPlist("7", "1.0", "70", {"70"});
    ASSERT_TRUE(test::writeZip(path, {{"iTunesMetadata.plist", metadata}}));
    std::ifstream in(path, std::ios::binary);
    const std::string archive((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(metadataBytesFromArchiveBytes(archive).value(), metadata);
    const auto dictionary = readMetadata(metadata);
    ASSERT_TRUE(dictionary) << dictionary.error().describe();
    EXPECT_EQ(*(*dictionary)["itemId"].asInteger(), 7);
}

} // namespace
} // namespace qv::posix

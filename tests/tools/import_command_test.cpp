// The import command without a service: what it finds in files and folders, what it would send, and its exit code.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/app_archives.h"
#include "support/cli_runner.h"
#include "support/temp_dir.h"

namespace qv {
namespace {

class ImportCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(test::writeZip(directory.file("A.ipa"),
                                   {{"iTunesMetadata.plist", test::metadataPlist("1", "1.0", "11", {"10", "11"})}}));
        std::filesystem::create_directory(directory.file("nested"));
        std::ofstream(directory.file("nested/iTunesMetadata.plist"))
            << test::metadataPlist("2", "3.0", "22", {"20", "21", "22"});
        std::ofstream(directory.file("nested/broken.ipa")) << "not a zip";
        std::ofstream(directory.file("nested/readme.txt")) << "ignored";
    }

    test::CliOutcome import(std::vector<std::string> paths) {
        paths.insert(paths.begin(), "import");
        for (const char *option : {"--dry-run", "--json", "--server", "http://127.0.0.1:9/"}) {
            paths.emplace_back(option);
        }
        return test::runInProcess(paths);
    }

    test::TemporaryDirectory directory{"qv-import"};
};

struct ImportCase {
    const char *name;
    std::vector<std::string> paths; // relative to the test's folder
    int exitCode;
    const char *summary; // the JSON summary without the requests
    std::size_t errorLines;
};

class ImportCases : public ImportCommand, public ::testing::WithParamInterface<ImportCase> {};

TEST_P(ImportCases, CountsWhatItFoundAndSaysWhatItSkipped) {
    std::vector<std::string> paths;
    for (const std::string &path : GetParam().paths) {
        paths.push_back(directory.file(path));
    }
    const auto run = import(paths);
    EXPECT_EQ(run.exitCode, GetParam().exitCode) << run.err;
    EXPECT_EQ(run.out.substr(0, run.out.find(",\"requests\"")), GetParam().summary) << run.out;
    EXPECT_EQ(static_cast<std::size_t>(std::count(run.err.begin(), run.err.end(), '\n')), GetParam().errorLines)
        << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Import, ImportCases,
    ::testing::Values(
        ImportCase{"OneArchive", {"A.ipa"}, 0, R"({"apps":1,"versions":1,"idsWithoutDisplay":1,"skipped":0)", 0},
        ImportCase{"AMetadataFile",
                   {"nested/iTunesMetadata.plist"},
                   0,
                   R"({"apps":1,"versions":1,"idsWithoutDisplay":2,"skipped":0)",
                   0},
        ImportCase{
            "AFolderGoesOnPastABrokenFile", {""}, 1, R"({"apps":2,"versions":2,"idsWithoutDisplay":3,"skipped":1)", 1},
        ImportCase{"AMissingPathIsSkipped",
                   {"A.ipa", "gone.ipa"},
                   1,
                   R"({"apps":1,"versions":1,"idsWithoutDisplay":1,"skipped":1)",
                   1},
        ImportCase{"TheSameArchiveTwiceCountsOnce",
                   {"A.ipa", "A.ipa"},
                   0,
                   R"({"apps":1,"versions":1,"idsWithoutDisplay":1,"skipped":0)",
                   0}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ImportCommand, NothingOfTheBuyersAccountIsInWhatWouldBeSent) {
    const auto run = import({directory.path()});
    ASSERT_NE(run.out.find("\"requests\""), std::string::npos) << run.out;
    for (const std::string &secret : test::kAccountSecrets) {
        EXPECT_EQ(run.out.find(secret), std::string::npos) << secret;
    }
}

TEST_F(ImportCommand, AnUnreachableServiceStopsTheImportOnOneLine) {
    const auto run = test::runInProcess({"import", directory.file("A.ipa"), "--server", "http://127.0.0.1:9/"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

} // namespace
} // namespace qv

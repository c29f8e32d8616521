// The file adapter for archives: load outcomes, and crash safety of the whole-file write under SIGKILL.
#include "posix/archive_file_posix.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using qv::Dictionary;
using qv::ErrorCode;
using qv::Value;

using qv::test::TemporaryDirectory;

void writeRaw(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// A table of `count` records, all carrying `version`, so that each generation of the file is recognisable.
Value table(int count, const std::string &version) {
    Dictionary records;
    records.setMutable(true);
    for (int key = 0; key < count; ++key) {
        records.set(Value(1000000 + key), Value(Dictionary{{"version", Value(version)}, {"all", false}}));
    }
    return Value(records);
}

struct LoadCase {
    std::string name;
    std::optional<std::string> content; // nothing: no file at all
    ErrorCode failure;
};

class PosixArchiveLoad : public testing::TestWithParam<LoadCase> {};

TEST_P(PosixArchiveLoad, TellsMissingFromUndecodable) {
    TemporaryDirectory directory;
    const std::string path = directory.file("blocked.plist");
    if (GetParam().content) {
        writeRaw(path, *GetParam().content);
    }
    const auto loaded = qv::posix::PosixArchiveFile().load(path);
    ASSERT_FALSE(loaded.ok());
    EXPECT_EQ(loaded.error().code, GetParam().failure);
}

INSTANTIATE_TEST_SUITE_P(ArchiveFile, PosixArchiveLoad,
                         testing::Values(LoadCase{"Missing", std::nullopt, ErrorCode::FileUnreadable},
                                         LoadCase{"Empty", std::string(), ErrorCode::MalformedArchive},
                                         LoadCase{"Garbage", std::string("garbage"), ErrorCode::MalformedPropertyList}),
                         [](const auto &info) { return info.param.name; });

TEST(ArchiveFile, SavedValueLoadsBackWithItsMutability) {
    TemporaryDirectory directory;
    const std::string path = directory.file("blocked.plist");
    qv::posix::PosixArchiveFile file;
    ASSERT_TRUE(file.save(path, table(3, "1.0")));
    const auto loaded = file.load(path);
    ASSERT_TRUE(loaded.ok()) << loaded.error().describe();
    EXPECT_EQ(*loaded, table(3, "1.0"));
    EXPECT_TRUE(loaded->asDictionary()->isMutable());
}

// A child rewrites the file in a loop, alternating two generations, and is killed at a random moment. Whatever the
// moment, the file must hold one complete generation.
TEST(ArchiveFile, KilledWriterLeavesTheOldOrTheNewCompleteArchive) {
    TemporaryDirectory directory;
    const std::string path = directory.file("blocked.plist");
    const Value generations[] = {table(1500, "old"), table(1500, "new")};
    qv::posix::PosixArchiveFile file;
    ASSERT_TRUE(file.save(path, generations[0]));
    std::mt19937 random(20261123);
    constexpr int kRounds = 20;
    for (int round = 0; round < kRounds; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int write = 0; write < 100000; ++write) {
                (void)file.save(path, generations[write % 2]);
            }
            ::_exit(0);
        }
        ::usleep(std::uniform_int_distribution<useconds_t>(1000, 40000)(random));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        const auto loaded = file.load(path);
        ASSERT_TRUE(loaded.ok()) << "round " << round << ": " << loaded.error().describe();
        EXPECT_TRUE(*loaded == generations[0] || *loaded == generations[1]) << "round " << round;
    }
}

} // namespace

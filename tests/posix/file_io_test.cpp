// Whole-file reads and writes against odd files: links, permissions, leftovers of killed writers, FIFOs, devices.
#include "posix/file_io.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

using qv::test::TemporaryDirectory;
namespace fs = std::filesystem;

void writeRaw(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readRaw(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

mode_t permissionsOf(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

void makeOlder(const std::string &path, int seconds) {
    const timeval now{::time(nullptr) - seconds, 0};
    const timeval times[2] = {now, now};
    ASSERT_EQ(::utimes(path.c_str(), times), 0) << path;
}

TEST(AtomicWrite, KeepsTheReplacedFilesPermissions) {
    const std::vector<std::pair<mode_t, mode_t>> cases = {
        {0600, 0600}, {0640, 0640}, {0644, 0644}, {0604, 0604}, {0, 0644}, // 0: no file yet
    };
    for (const auto &[before, after] : cases) {
        TemporaryDirectory directory;
        const std::string path = directory.file("blocked.plist");
        if (before != 0) {
            writeRaw(path, "old");
            ASSERT_EQ(::chmod(path.c_str(), before), 0);
        }
        ASSERT_TRUE(qv::posix::writeFileAtomically(path, "new").ok());
        EXPECT_EQ(permissionsOf(path), after) << std::oct << before;
        EXPECT_EQ(readRaw(path), "new");
    }
}

struct LinkCase {
    std::string name;
    // Makes the links in the directory; returns the path that is written and the file that must receive the bytes.
    std::function<std::pair<std::string, std::string>(const TemporaryDirectory &)> arrange;
};

TEST(AtomicWrite, WritesThroughSymbolicLinksAndKeepsThem) {
    const std::vector<LinkCase> cases = {
        {"relative",
         [](const TemporaryDirectory &d) {
             writeRaw(d.file("real.plist"), "old");
             fs::create_symlink("real.plist", d.file("link.plist"));
             return std::pair{d.file("link.plist"), d.file("real.plist")};
         }},
        {"absolute into another directory",
         [](const TemporaryDirectory &d) {
             fs::create_directory(d.file("data"));
             writeRaw(d.file("data/real.plist"), "old");
             fs::create_symlink(d.file("data/real.plist"), d.file("link.plist"));
             return std::pair{d.file("link.plist"), d.file("data/real.plist")};
         }},
        {"chain relative to each link",
         [](const TemporaryDirectory &d) {
             fs::create_directory(d.file("data"));
             writeRaw(d.file("data/real.plist"), "old");
             fs::create_symlink("real.plist", d.file("data/inner.plist"));
             fs::create_symlink("data/inner.plist", d.file("outer.plist"));
             return std::pair{d.file("outer.plist"), d.file("data/real.plist")};
         }},
        {"dangling link creates its target",
         [](const TemporaryDirectory &d) {
             fs::create_symlink("later.plist", d.file("link.plist"));
             return std::pair{d.file("link.plist"), d.file("later.plist")};
         }},
    };
    for (const LinkCase &testCase : cases) {
        TemporaryDirectory directory;
        const auto [written, target] = testCase.arrange(directory);
        const auto result = qv::posix::writeFileAtomically(written, "new");
        ASSERT_TRUE(result.ok()) << testCase.name << ": " << result.error().describe();
        EXPECT_TRUE(fs::is_symlink(written)) << testCase.name;
        EXPECT_EQ(readRaw(target), "new") << testCase.name;
    }
}

TEST(AtomicWrite, RefusesToReplaceWhatIsNotARegularFile) {
    TemporaryDirectory directory;
    fs::create_directory(directory.file("dir"));
    ASSERT_EQ(::mkfifo(directory.file("fifo").c_str(), 0600), 0);
    for (const std::string name : {"dir", "fifo"}) {
        const auto result = qv::posix::writeFileAtomically(directory.file(name), "new");
        ASSERT_FALSE(result.ok()) << name;
        EXPECT_EQ(result.error().code, qv::ErrorCode::FileUnwritable);
        EXPECT_NE(result.error().detail.find("not a regular file"), std::string::npos) << result.error().detail;
    }
    EXPECT_TRUE(fs::is_fifo(directory.file("fifo")));
}

struct Leftover {
    std::string name;
    int ageSeconds;
    bool heldByAWriter;
    bool removed;
};

TEST(AtomicWrite, RemovesTemporaryFilesOfKilledWritersOnly) {
    const std::vector<Leftover> leftovers = {
        {"b.plist.tmp.Ab12Cd", 3600, false, true},   // a killed writer's
        {"b.plist.tmp.Zz99zz", 3600, true, false},   // a slow writer still at work
        {"b.plist.tmp.Qq11qq", 0, false, false},     // just created, not yet locked
        {"b.plist.tmp.Ab12Cde", 3600, false, false}, // not a name this writer makes
        {"b.plist.tmp.Ab-2Cd", 3600, false, false},  {"a.plist.tmp.Ab12Cd", 3600, false, false}, // another file's
        {"b.plist.lock", 3600, false, false},
    };
    TemporaryDirectory directory;
    std::vector<int> held;
    for (const Leftover &leftover : leftovers) {
        const std::string path = directory.file(leftover.name);
        writeRaw(path, "partial");
        makeOlder(path, leftover.ageSeconds);
        if (leftover.heldByAWriter) {
            const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            ASSERT_EQ(::flock(descriptor, LOCK_EX), 0);
            held.push_back(descriptor);
        }
    }
    ASSERT_TRUE(qv::posix::writeFileAtomically(directory.file("b.plist"), "new").ok());
    for (const Leftover &leftover : leftovers) {
        EXPECT_EQ(!fs::exists(directory.file(leftover.name)), leftover.removed) << leftover.name;
    }
    for (const int descriptor : held) {
        ::close(descriptor);
    }
}

struct RefusedRead {
    std::string name;
    std::function<std::string(const TemporaryDirectory &)> arrange; // returns the path to read
    std::string said;
};

TEST(BoundedRead, RefusesWithoutBlockingWhatIsNotASmallRegularFile) {
    constexpr std::size_t kCap = 16;
    const std::vector<RefusedRead> cases = {
        {"FIFO without a writer",
         [](const TemporaryDirectory &d) {
             ::mkfifo(d.file("fifo").c_str(), 0600);
             return d.file("fifo");
         },
         "is a FIFO"},
        {"directory", [](const TemporaryDirectory &d) { return d.path(); }, "is a directory"},
        {"character device", [](const TemporaryDirectory &) { return std::string("/dev/zero"); }, "is a device"},
        {"over the cap",
         [](const TemporaryDirectory &d) {
             writeRaw(d.file("big"), std::string(kCap + 1, 'x'));
             return d.file("big");
         },
         "larger than 16 bytes"},
        {"missing", [](const TemporaryDirectory &d) { return d.file("none"); }, "cannot open"},
    };
    for (const RefusedRead &testCase : cases) {
        TemporaryDirectory directory;
        const std::string path = testCase.arrange(directory);
        const auto read = qv::posix::readFile(path, kCap);
        ASSERT_FALSE(read.ok()) << testCase.name;
        EXPECT_EQ(read.error().code, qv::ErrorCode::FileUnreadable) << testCase.name;
        EXPECT_NE(read.error().detail.find(testCase.said), std::string::npos) << read.error().detail;
        EXPECT_NE(read.error().detail.find(path), std::string::npos) << read.error().detail;
    }
    TemporaryDirectory directory;
    writeRaw(directory.file("full"), std::string(kCap, 'x'));
    EXPECT_EQ(qv::posix::readFile(directory.file("full"), kCap).valueOr(""), std::string(kCap, 'x'));
}

// Threads in one process exclude each other too: each acquisition opens the lock file afresh.
TEST(FileChangeLock, NoIncrementIsLostBetweenWriters) {
    constexpr int kWriters = 6;
    constexpr int kIncrements = 25;
    TemporaryDirectory directory;
    const std::string path = directory.file("counter");
    ASSERT_TRUE(qv::posix::writeFileAtomically(path, "0").ok());
    std::vector<std::thread> writers;
    writers.reserve(kWriters);
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&path] {
            for (int step = 0; step < kIncrements; ++step) {
                auto lock = qv::posix::FileChangeLock::acquire(path);
                ASSERT_TRUE(lock.ok());
                const int count = std::stoi(qv::posix::readFile(path).valueOr("-1000000"));
                ASSERT_TRUE(qv::posix::writeFileAtomically(path, std::to_string(count + 1)).ok());
            }
        });
    }
    for (auto &writer : writers) {
        writer.join();
    }
    EXPECT_EQ(readRaw(path), std::to_string(kWriters * kIncrements));
}

} // namespace

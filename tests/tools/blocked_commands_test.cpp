// qvdovrin blocked: exit codes and output of each subcommand, corrupt and odd files, and writers side by side.
#include "posix/keyed_archive.h"
#include "support/cli_runner.h"
#include "support/temp_dir.h"
#include "updates/blocked_updates.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Outcome = qv::test::CliOutcome;

class BlockedCommands : public testing::Test {
  protected:
    std::string path(const std::string &name) const { return directory_.file(name); }

    void write(const std::string &name, const std::string &text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    // Writes the records as the archive a phone or another tool would have left.
    void writeArchive(const std::string &name, const qv::Value &records) const {
        const auto bytes = qv::posix::encodeKeyedArchive(records);
        ASSERT_TRUE(bytes.ok()) << bytes.error().describe();
        write(name, *bytes);
    }

    std::string read(const std::string &name) const {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    // Runs qvdovrin with the arguments; "@name" stands for a file in the test's directory.
    Outcome run(std::vector<std::string> arguments) const {
        for (std::string &argument : arguments) {
            if (!argument.empty() && argument[0] == '@') {
                argument = path(argument.substr(1));
            }
        }
        return qv::test::runInProcess(arguments);
    }

  private:
    qv::test::TemporaryDirectory directory_{"qv-blocked"};
};

TEST_F(BlockedCommands, AddListCheckMergeRemove) {
    write("modern.json", R"({"bundleId":"com.a","offers":[{"version":{"display":"2.0"}}]})");
    write("legacy.json", R"({"bundleId":"com.a","version":"2.0"})");
    write("updates.json", R"([{"bundleId":"com.a","offers":[{"version":{"display":"2.0"}}]},
                              {"bundleId":"com.b","offers":[{"version":{"display":"1"}}]}])");
    struct Step {
        std::vector<std::string> arguments;
        int exitCode;
        std::string out;
    };
    const std::vector<Step> steps = {
        {{"blocked", "add", "@b.plist", "284882215", "--version", "1.2"}, 0, "blocked 284882215 version \"1.2\"\n"},
        {{"blocked", "add", "@b.plist", "com.a", "--version", "2.0"}, 0, "blocked com.a version \"2.0\"\n"},
        {{"blocked", "list", "@b.plist"}, 0, "284882215  version: 1.2  all: no\ncom.a  version: 2.0  all: no\n"},
        {{"blocked", "list", "@b.plist", "--json"},
         0,
         R"([{"key":284882215,"version":"1.2","all":false},{"key":"com.a","version":"2.0","all":false}])"
         "\n"},
        {{"blocked", "check", "@b.plist", "@modern.json"}, 0, "blocked\n"},
        {{"blocked", "check", "@b.plist", "@legacy.json"}, 0, "not blocked\n"},
        {{"blocked", "check", "@b.plist", "@legacy.json", "--cf-version", "1140"}, 0, "blocked\n"},
        {{"blocked", "merge", "@b.plist", "@updates.json"},
         0,
         R"({"updates":[{"bundleId":"com.b","offers":[{"version":{"display":"1"}}]}],"count":1})"
         "\n"},
        {{"blocked", "remove", "@b.plist", "com.a"}, 0, "unblocked com.a\n"},
        {{"blocked", "check", "@b.plist", "@modern.json"}, 0, "not blocked\n"},
        {{"blocked", "add", "@b.plist", "com.a", "--all"}, 0, "blocked com.a (all updates)\n"},
        {{"blocked", "check", "@b.plist", "@modern.json"}, 0, "blocked\n"},
    };
    for (const Step &step : steps) {
        const Outcome outcome = run(step.arguments);
        EXPECT_EQ(outcome.exitCode, step.exitCode) << step.arguments[1] << ": " << outcome.err;
        EXPECT_EQ(outcome.out, step.out) << step.arguments[1];
    }
}

TEST_F(BlockedCommands, BadInputExitsOneWithOneLine) {
    write("b.plist", "");
    ASSERT_EQ(run({"blocked", "add", "@b.plist", "com.a", "--all"}).exitCode, 1); // empty file: not an archive
    ASSERT_EQ(run({"blocked", "add", "@ok.plist", "com.a", "--all"}).exitCode, 0);
    write("array.json", "[]");
    write("broken.json", "{");
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0); // reading it would wait for a writer that never comes
    const std::vector<std::vector<std::string>> cases = {
        {"blocked", "list", "@missing.plist"},
        {"blocked", "add", "@ok.plist", "99999999999999999999", "--all"},
        {"blocked", "add", "@ok.plist", ""},
        {"blocked", "add", "@no-such-dir/b.plist", "com.a"},
        {"blocked", "check", "@ok.plist", "@array.json"},
        {"blocked", "check", "@ok.plist", "@broken.json"},
        {"blocked", "check", "@ok.plist", "@missing.json"},
        {"blocked", "merge", "@ok.plist", "@broken.json"},
        {"blocked", "list", "@fifo"},
        {"blocked", "add", "@fifo", "com.a", "--all"},
        {"blocked", "check", "@ok.plist", "@fifo"},
        {"blocked", "list", "@"}, // the directory
    };
    for (const auto &arguments : cases) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 1) << arguments[1] << " " << arguments[3];
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
    EXPECT_EQ(run({"blocked", "add", "@ok.plist", "com.a", "--all", "--version", "1"}).exitCode, 2);
}

struct RefusalCase {
    const char *name;
    std::vector<std::string> arguments;
    std::string line; // the whole of stderr; @ stands for the test's folder
};
class BlockedRefusal : public BlockedCommands, public testing::WithParamInterface<RefusalCase> {};
TEST_P(BlockedRefusal, SaysWhyInOneLine) {
    const int lock = ::open(path("held.plist.lock").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0); // another process's change under way
    std::string expected = GetParam().line;
    if (const auto at = expected.find('@'); at != std::string::npos) {
        expected.replace(at, 1, path(""));
    }
    const Outcome outcome = run(GetParam().arguments);
    ::close(lock);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, expected);
}
INSTANTIATE_TEST_SUITE_P(
    Inputs, BlockedRefusal,
    testing::Values(
        RefusalCase{"IdentifierPastSignedRange",
                    {"blocked", "add", "@ok.plist", "9223372036854775808", "--all"},
                    "qvdovrin: store item identifier 9223372036854775808 is too large (at most 9223372036854775807)\n"},
        RefusalCase{"VersionsOfAnIdentifierPastSignedRange",
                    {"versions", "18446744073709551616"},
                    "qvdovrin: a store identifier is too large (at most 9223372036854775807): 18446744073709551616\n"},
        RefusalCase{"LockHeldElsewhere",
                    {"blocked", "add", "@held.plist", "com.a", "--all"},
                    "qvdovrin: nothing was blocked: @held.plist.lock: another process holds it; gave up after 10 s\n"}),
    [](const auto &info) { return std::string(info.param.name); });

// Typed lines, one at a time; before each is read, what another process does in the meantime.
class TypedWithPauses : public std::streambuf {
  public:
    explicit TypedWithPauses(std::vector<std::pair<std::function<void()>, std::string>> lines)
        : lines_(std::move(lines)) {}

  protected:
    int_type underflow() override {
        if (next_ == lines_.size()) {
            return traits_type::eof();
        }
        auto &[meanwhile, line] = lines_[next_++];
        if (meanwhile) {
            meanwhile();
        }
        setg(line.data(), line.data(), line.data() + line.size());
        return traits_type::to_int_type(line[0]);
    }

  private:
    std::vector<std::pair<std::function<void()>, std::string>> lines_;
    std::size_t next_ = 0;
};

// The screen is drawn again from the file after each change: a record another process removed is gone from it.
TEST_F(BlockedCommands, ReviewRedrawsFromTheFile) {
    ASSERT_EQ(run({"blocked", "add", "@b.plist", "com.a", "--all"}).exitCode, 0);
    ASSERT_EQ(run({"blocked", "add", "@b.plist", "com.b", "--all"}).exitCode, 0);
    ASSERT_EQ(run({"blocked", "add", "@b.plist", "com.c", "--all"}).exitCode, 0);
    TypedWithPauses typed({{{}, "e\n"},
                           {[this] {
                                EXPECT_EQ(run({"blocked", "remove", "@b.plist", "com.b"}).exitCode, 0);
                            },
                            "d 3\n"},
                           {{}, "q\n"}});
    std::istream in(&typed);
    const Outcome review = qv::test::runInProcess({"blocked", "review", path("b.plist")}, in);
    ASSERT_EQ(review.exitCode, 0) << review.err;
    const std::string last = review.out.substr(review.out.rfind("Blocked App Updates"));
    EXPECT_EQ(last, "Blocked App Updates  [Done]\n  1. com.a\n     Current Version: (null) Blocked: All\n> \n")
        << review.out;
}

TEST_F(BlockedCommands, CorruptFileIsReportedAndLeftUntouched) {
    write("modern.json", R"({"bundleId":"com.a","offers":[]})");
    write("updates.json", "[]");
    const std::string corrupt = "bplist00 this is not a finished archive";
    const std::vector<std::vector<std::string>> cases = {
        {"blocked", "list", "@b.plist"},
        {"blocked", "add", "@b.plist", "com.a", "--all"},
        {"blocked", "remove", "@b.plist", "com.a"},
        {"blocked", "check", "@b.plist", "@modern.json"},
        {"blocked", "merge", "@b.plist", "@updates.json"},
    };
    for (const auto &arguments : cases) {
        write("b.plist", corrupt);
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 1) << arguments[1];
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_EQ(read("b.plist"), corrupt) << arguments[1];
    }
}

// Records written by hand or by older tools carry "all" as text; every command reads it as the phone does.
TEST_F(BlockedCommands, TextualAllReadsAsThePlatformReadsASwitch) {
    writeArchive("b.plist", qv::Value(qv::Dictionary{
                                {"com.yes", qv::Value(qv::Dictionary{{"version", "1"}, {"all", "YES"}})},
                                {"com.one", qv::Value(qv::Dictionary{{"version", "1"}, {"all", "1"}})},
                                {"com.no", qv::Value(qv::Dictionary{{"version", "1"}, {"all", "no"}})},
                            }));
    write("yes.json", R"({"bundleId":"com.yes","offers":[{"version":{"display":"2"}}]})");
    write("updates.json", R"([{"bundleId":"com.one","offers":[{"version":{"display":"2"}}]},
                              {"bundleId":"com.no","offers":[{"version":{"display":"2"}}]}])");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"blocked", "list", "@b.plist"},
         "com.yes  version: 1  all: yes\ncom.one  version: 1  all: yes\ncom.no  version: 1  all: no\n"},
        {{"blocked", "check", "@b.plist", "@yes.json"}, "blocked\n"},
        {{"blocked", "merge", "@b.plist", "@updates.json"},
         R"({"updates":[{"bundleId":"com.no","offers":[{"version":{"display":"2"}}]}],"count":1})"
         "\n"},
    };
    for (const auto &[arguments, out] : cases) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << arguments[1] << ": " << outcome.err;
        EXPECT_EQ(outcome.out, out) << arguments[1];
    }
}

// A change that cannot be saved is no change: exit 1, one line saying nothing was done, the file as it was.
TEST_F(BlockedCommands, UnsavableChangeSaysNothingWasDone) {
    // No temporary file fits beside a name this long, so the file can be read but not replaced (even by root).
    const std::string name = std::string(250, 'b');
    writeArchive(name,
                 qv::Value(qv::Dictionary{{"com.a", qv::Value(qv::Dictionary{{"version", "1"}, {"all", false}})}}));
    const std::string before = read(name);
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"blocked", "remove", "@" + name, "com.a"}, "nothing was unblocked"},
        {{"blocked", "add", "@" + name, "com.b", "--all"}, "nothing was blocked"},
        {{"blocked", "add", "@no-such-dir/b.plist", "com.b", "--all"}, "nothing was blocked"},
    };
    for (const auto &[arguments, said] : cases) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 1) << arguments[1];
        EXPECT_EQ(outcome.out, "") << arguments[1];
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_NE(outcome.err.find(said), std::string::npos) << outcome.err;
        EXPECT_EQ(read(name), before) << arguments[1];
    }
}

// Separate processes adding and removing records of one file at the same moment never undo each other's changes.
TEST_F(BlockedCommands, ConcurrentChangesKeepEveryRecord) {
    constexpr int kWritersOfEachKind = 4;
    constexpr int kChangesEach = 5;
    const auto keyOf = [](const char *kind, int writer, int change) {
        return std::string("com.") + kind + "." + std::to_string(writer) + "." + std::to_string(change);
    };
    qv::Dictionary initial;
    for (int writer = 0; writer < kWritersOfEachKind; ++writer) {
        for (int change = 0; change < kChangesEach; ++change) {
            initial.set(qv::Value(keyOf("old", writer, change)), qv::BlockedUpdates::makeRecord("1", false));
        }
    }
    writeArchive("b.plist", qv::Value(initial));
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWritersOfEachKind; ++writer) {
        for (const char *command : {"add", "remove"}) {
            writers.emplace_back([this, writer, command, &keyOf] {
                for (int change = 0; change < kChangesEach; ++change) {
                    const bool adding = std::string(command) == "add";
                    const std::string key = keyOf(adding ? "new" : "old", writer, change);
                    const Outcome outcome = qv::test::runBinary("blocked " + std::string(command) + " " +
                                                                path("b.plist") + " " + key + (adding ? " --all" : ""));
                    EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
                }
            });
        }
    }
    for (auto &writer : writers) {
        writer.join();
    }
    const auto records = qv::posix::decodeKeyedArchive(read("b.plist"));
    ASSERT_TRUE(records.ok() && records->asDictionary() != nullptr);
    std::set<std::string> keys;
    for (const auto &[key, record] : *records->asDictionary()) {
        keys.insert(*key.asString());
    }
    std::set<std::string> expected;
    for (int writer = 0; writer < kWritersOfEachKind; ++writer) {
        for (int change = 0; change < kChangesEach; ++change) {
            expected.insert(keyOf("new", writer, change));
        }
    }
    EXPECT_EQ(keys, expected);
}

} // namespace

// qvdovrin settings and blocked review: a preferences file written elsewhere edited in place, refusals that leave
// the file as it was, and the blocked-updates screen in the terminal.
#include <plist/plist.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "posix/keyed_archive.h"
#include "posix/plist_preferences.h"
#include "support/cli_runner.h"
#include "support/temp_dir.h"

namespace {

using Outcome = qv::test::CliOutcome;

struct NodeDeleter {
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

class SettingsCommands : public testing::Test {
  protected:
    std::string path(const std::string &name) const { return directory_.file(name); }
    void write(const std::string &name, const std::string &bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
    }
    std::string read(const std::string &name) const {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    // A preferences file as the phone's defaults leave it, written by the property-list library itself.
    void writePhonePreferences(const std::string &name) const {
        Node root(plist_new_dict());
        plist_dict_set_item(static_cast<plist_t>(root.get()), "disableAppCaching_QV", plist_new_bool(1));
        plist_dict_set_item(static_cast<plist_t>(root.get()), "SomeOtherKey", plist_new_string("kept"));
        plist_dict_set_item(static_cast<plist_t>(root.get()), "LastSeen", plist_new_date(700000000, 0));
        char *bytes = nullptr;
        std::uint32_t length = 0;
        plist_to_bin(static_cast<plist_t>(root.get()), &bytes, &length);
        write(name, std::string(bytes, length));
        plist_to_bin_free(bytes);
    }

    Outcome run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(),
                         {"settings", "--prefs", path("prefs.plist"), "--defaults",
                          std::string(QV_SOURCE_DIR) + "/resources/QVVPPResources.bundle/DefaultPreferences.plist"});
        return qv::test::runInProcess(arguments);
    }

    qv::test::TemporaryDirectory directory_{"qv-settings"};
};

TEST_F(SettingsCommands, EditsAFileWrittenByAnotherProgramKeepingWhatItDoesNotKnow) {
    writePhonePreferences("prefs.plist");
    const Outcome set = run({"set", "disableUpdateBlocker", "on"});
    ASSERT_EQ(set.exitCode, 0) << set.err;
    EXPECT_EQ(set.out, "disableUpdateBlocker  on\n"
                       "posted com.quorvane.dovrinkit.itunestored.daemon.reload (system-wide)\n");
    EXPECT_EQ(run({"set", "disableAppCaching", "off"}).out, "disableAppCaching  off\n");

    // The property-list library reads what was written back, and nothing it did not know is lost.
    const std::string bytes = read("prefs.plist");
    plist_t parsed = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
    const Node root(parsed);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(plist_dict_get_size(static_cast<plist_t>(root.get())), 4U);
    const auto values = qv::posix::readPreferencesPropertyList(bytes);
    ASSERT_TRUE(values.ok());
    EXPECT_EQ(*values, (qv::Dictionary{{"disableAppCaching_QV", false},
                                       {"SomeOtherKey", "kept"},
                                       {"LastSeen", qv::Date{700000000}},
                                       {"disableUpdateBlocker_QV", true}}));

    EXPECT_EQ(run({"list"}).out, "enableDowngradeOptions  on\nlongPressToShowDowngradeOptions  on\n"
                                 "holdToDowngradeTipsShown  off\ndisableAppCaching  off\ndisableUpdateBlocker  on\n");
    EXPECT_EQ(run({"get", "disableUpdateBlocker_QV", "--json"}).out, "{\"disableUpdateBlocker\":true}\n");
}

struct RefusalCase {
    const char *name;
    std::string fileBytes; // empty: no file
    std::vector<std::string> arguments;
};

class SettingsRefusals : public SettingsCommands, public testing::WithParamInterface<RefusalCase> {};

TEST_P(SettingsRefusals, OneLineExitOneFileUntouched) {
    const RefusalCase &c = GetParam();
    if (!c.fileBytes.empty()) {
        write("prefs.plist", c.fileBytes);
    }
    const Outcome outcome = run(c.arguments);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_EQ(read("prefs.plist"), c.fileBytes);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsRefusals,
    testing::Values(RefusalCase{"UnknownKey", "", {"set", "adSettings", "on"}},
                    RefusalCase{"UnknownKeyToGet", "", {"get", "superclass"}},
                    RefusalCase{"BadValue", "", {"set", "disableAppCaching", "maybe"}},
                    RefusalCase{"UnreadableFile", "bplist00 broken", {"set", "disableAppCaching", "on"}},
                    RefusalCase{"NotADictionary", "<plist version=\"1.0\"><array><true/></array></plist>", {"list"}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(SettingsCommands, ReviewDeletesRowsAsThePhoneDoes) {
    const auto archive = qv::posix::encodeKeyedArchive(
        qv::Value(qv::Dictionary{{qv::Value(111), qv::Value(qv::Dictionary{{"version", "2.0"}, {"all", false}})},
                                 {qv::Value("com.b"), qv::Value(qv::Dictionary{{"version", ""}, {"all", true}})}}));
    ASSERT_TRUE(archive.ok());
    write("blocked.plist", *archive);
    write("apps.json", R"([{"bundleId":"com.a","itemId":111,"name":"Alpha","shortVersion":"2.1"}])");
    write("input", "e\nd 1\nq\n");
    const Outcome review = qv::test::runBinary("blocked review " + path("blocked.plist") + " --apps " +
                                               path("apps.json") + " < " + path("input"));
    ASSERT_EQ(review.exitCode, 0) << review.out;
    EXPECT_NE(review.out.find("1. Alpha (com.a)\n     Current Version: 2.1 Blocked: 2.0"), std::string::npos);
    EXPECT_NE(review.out.find("Blocked App Updates  [Done]"), std::string::npos);
    EXPECT_NE(review.out.find("posted com.quorvane.dovrinkit.itunestored.reload (system-wide)\n"
                              "posted com.quorvane.dovrinkit.itunestored.reloadupdates (this process)\n"
                              "unblocked 111\n"),
              std::string::npos);
    const auto left = qv::posix::decodeKeyedArchive(read("blocked.plist"));
    ASSERT_TRUE(left.ok());
    EXPECT_EQ(*left, qv::Value(qv::Dictionary{
                         {qv::Value("com.b"), qv::Value(qv::Dictionary{{"version", ""}, {"all", true}})}}));
}

} // namespace

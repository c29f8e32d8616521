// Preferences in a property-list file: what the reader accepts, what survives a round trip, when the file appears.
#include "posix/plist_preferences.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace qv::posix {
namespace {

const char *const kXmlHeader = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)";

std::string xml(const std::string &body) {
    return std::string(kXmlHeader) + body + "</plist>";
}

std::string nested(int depth) {
    std::string body;
    for (int i = 0; i < depth; ++i) {
        body += "<dict><key>k</key>";
    }
    body += "<true/>";
    for (int i = 0; i < depth; ++i) {
        body += "</dict>";
    }
    return xml(body);
}

struct ReadCase {
    const char *name;
    std::string bytes;
    std::optional<ErrorCode> failure; // nothing: reads as a dictionary
};

class PreferencesRead : public testing::TestWithParam<ReadCase> {};

TEST_P(PreferencesRead, AcceptsDictionariesOnly) {
    const ReadCase &c = GetParam();
    const auto read = readPreferencesPropertyList(c.bytes);
    if (c.failure) {
        ASSERT_FALSE(read.ok());
        EXPECT_EQ(read.error().code, *c.failure);
    } else {
        EXPECT_TRUE(read.ok()) << read.error().describe();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PreferencesRead,
    testing::Values(ReadCase{"XmlDictionary", xml("<dict><key>a_QV</key><true/></dict>"), std::nullopt},
                    ReadCase{"Empty", "", ErrorCode::MalformedPropertyList},
                    ReadCase{"Junk", "not a plist", ErrorCode::MalformedPropertyList},
                    ReadCase{"TopArray", xml("<array><true/></array>"), ErrorCode::WrongType},
                    ReadCase{"TruncatedBinary", "bplist00\x08", ErrorCode::MalformedPropertyList},
                    ReadCase{"AtTheDepthLimit", nested(kMaxPreferencesDepth), std::nullopt},
                    ReadCase{"TooDeep", nested(kMaxPreferencesDepth + 2), ErrorCode::MalformedPropertyList},
                    ReadCase{"TooLarge", std::string(kMaxPreferencesFileBytes + 1, ' '),
                             ErrorCode::MalformedPropertyList}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(PreferencesWrite, EveryKindSurvivesTheBinaryForm) {
    const Dictionary values{{"flag_QV", true},
                            {"count", -7},
                            {"ratio", 0.25},
                            {"name", "Verdigo"},
                            {"blob", Bytes{0, 1, 2}},
                            {"when", Date{86400}},
                            {"list", Array{Value(1), Value("two")}},
                            {"nested", Dictionary{{"inner", false}}}};
    const auto bytes = writePreferencesPropertyList(values);
    ASSERT_TRUE(bytes.ok()) << bytes.error().describe();
    EXPECT_EQ(bytes->substr(0, 8), "bplist00");
    const auto read = readPreferencesPropertyList(*bytes);
    ASSERT_TRUE(read.ok()) << read.error().describe();
    EXPECT_EQ(*read, values);
}

class PreferencesFile : public testing::Test {
  protected:
    std::string path(const std::string &name) const { return directory_.file(name); }

  private:
    test::TemporaryDirectory directory_{"qv-prefs"};
};

TEST_F(PreferencesFile, AMissingFileIsCreatedOnTheFirstChangeOnly) {
    auto preferences = PlistPreferences::open(path("p.plist"));
    ASSERT_TRUE(preferences.ok());
    (*preferences)->registerDefaults(Dictionary{{"a_QV", true}, {"b_QV", true}});
    ASSERT_TRUE((*preferences)->flush().ok());
    EXPECT_FALSE(std::ifstream(path("p.plist")).good());
    (*preferences)->setValue("b_QV", false);
    ASSERT_TRUE((*preferences)->flush().ok());

    auto reopened = PlistPreferences::open(path("p.plist"));
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ((*reopened)->storedValues(), (Dictionary{{"b_QV", false}})); // defaults are never written
    EXPECT_FALSE((*reopened)->valueForKey("a_QV").has_value());
}

} // namespace
} // namespace qv::posix

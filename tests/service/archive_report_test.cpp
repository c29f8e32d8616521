// Reports built from an archive's metadata: the listed ids as versions without display, and nothing of the buyer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/json.h"
#include "posix/app_archive.h"
#include "service/service_client.h"
#include "support/app_archives.h"

namespace qv {
namespace {

struct ArchiveReportCase {
    const char *name;
    const char *metadata; // JSON
    const char *versions; // the report's "versions", or "" when no report is built
};

class ArchiveReport : public ::testing::TestWithParam<ArchiveReportCase> {};

TEST_P(ArchiveReport, AddsEveryListedIdOnceWithoutDisplay) {
    const auto metadata = parseJson(GetParam().metadata);
    ASSERT_TRUE(metadata);
    const BuiltReport built = reportFromArchiveMetadata(*metadata);
    EXPECT_EQ(built.request ? toJson(built.request->body["versions"]) : "", GetParam().versions);
}

#define QV_APP R"("softwareVersionBundleId":"b","itemId":7,"itemName":"n","bundleShortVersionString":"2.0",)"

INSTANTIATE_TEST_SUITE_P(
    Metadata, ArchiveReport,
    ::testing::Values(
        ArchiveReportCase{"ListedIdsFollowTheNamedOne", "{" QV_APP R"("softwareVersionExternalIdentifier":30,
                             "softwareVersionExternalIdentifiers":[10,20,30]})",
                          R"([{"display":"2.0","externalId":30},{"display":"","externalId":10},)"
                          R"({"display":"","externalId":20}])"},
        ArchiveReportCase{"TheNamedIdAsTextIsNotRepeated", "{" QV_APP R"("softwareVersionExternalIdentifier":"30",
                             "softwareVersionExternalIdentifiers":[30,30,40]})",
                          R"([{"display":"2.0","externalId":"30"},{"display":"","externalId":40}])"},
        ArchiveReportCase{"EntriesThatAreNoIdentifiersAreLeftOut", "{" QV_APP R"("softwareVersionExternalIdentifier":30,
                             "softwareVersionExternalIdentifiers":[-1,"12",1.5,{"x":1},50]})",
                          R"([{"display":"2.0","externalId":30},{"display":"","externalId":50}])"},
        ArchiveReportCase{"AListThatIsNoArray", "{" QV_APP R"("softwareVersionExternalIdentifier":30,
                             "softwareVersionExternalIdentifiers":"10,20"})",
                          R"([{"display":"2.0","externalId":30}])"},
        ArchiveReportCase{"WithoutTheCurrentVersionNothingIsBuilt",
                          R"({"softwareVersionBundleId":"b","itemId":7,"itemName":"n",
                              "softwareVersionExternalIdentifiers":[10,20]})",
                          ""}),
    [](const auto &info) { return std::string(info.param.name); });

#undef QV_APP

TEST(ArchiveReportPrivacy, CarriesNothingOfTheBuyersAccount) {
    const auto metadata = posix::readMetadata(test::metadataPlist("7", "2.0", "30", {"10", "20", "30"}));
    ASSERT_TRUE(metadata) << metadata.error().describe();
    const BuiltReport built = reportFromArchiveMetadata(*metadata);
    ASSERT_TRUE(built.request);
    const std::string body = toJson(built.request->body);
    for (const std::string &secret : test::kAccountSecrets) {
        EXPECT_EQ(body.find(secret), std::string::npos) << secret << " leaked into " << body;
    }
    std::vector<std::string> keys;
    for (const auto &[key, value] : *built.request->body.asDictionary()) {
        keys.push_back(*key.asString());
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"bundle_id", "identifier", "title", "versions"}));
}

} // namespace
} // namespace qv

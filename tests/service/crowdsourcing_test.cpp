// The phone's crowdsourcing decisions: the switch, once per app version, at most once a day, and the bounded file.
#include "service/crowdsourcing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/json.h"
#include "fakes/fake_archive_file.h"
#include "fakes/fake_http.h"
#include "fakes/fake_preferences.h"
#include "fakes/fake_queue.h"

namespace qv {
namespace {

const char *const kBase = "https://versions.example/";
const char *const kFile = "/container/Library/sent.plist";
const char *const kAppUrl = "https://versions.example/v1/apple_apps/7/versions";

Value json(const char *text) {
    return parseJson(text).value();
}

Value metadataOfVersion(int externalId) {
    return Value(Dictionary{{"softwareVersionBundleId", "b"},
                            {"itemId", 7},
                            {"itemName", "n"},
                            {"bundleShortVersionString", "1.0"},
                            {"softwareVersionExternalIdentifier", externalId}});
}

class CrowdsourcingTest : public ::testing::Test {
  protected:
    FakeHttp http;
    FakeQueues queues;
    FakePreferences preferences;
    FakeArchiveFile files;
    std::int64_t day = 100;
    Crowdsourcing crowdsourcing{http,
                                queues,
                                preferences,
                                files,
                                std::string(kFile),
                                [] { return std::string(kBase); },
                                [this] { return day; }};

    void serviceAnswers(int status) { http.reply(kAppUrl, HttpResult{status, "{}", std::nullopt}); }
};

// One step of a phone's life: a day, the service's state, the switch, and the report of one version.
struct Step {
    std::int64_t day;
    int status; // 0: the service cannot be reached
    bool switchedOff;
    int version;
    ReportVerdict verdict;
};

struct ScheduleCase {
    const char *name;
    std::vector<Step> steps;
};

class Schedule : public CrowdsourcingTest, public ::testing::WithParamInterface<ScheduleCase> {};

TEST_P(Schedule, SendsEachVersionOnceADayUntilTheServiceTakesIt) {
    std::size_t expectedFetches = 0;
    for (const Step &step : GetParam().steps) {
        day = step.day;
        if (step.status != 0) {
            serviceAnswers(step.status);
        }
        preferences.set("disableAppCaching_QV", step.switchedOff);
        EXPECT_EQ(crowdsourcing.reportInstalledApp(metadataOfVersion(step.version)), step.verdict)
            << "day " << step.day;
        expectedFetches += step.verdict == ReportVerdict::Send ? 1 : 0;
        EXPECT_EQ(http.fetched().size(), expectedFetches) << "day " << step.day;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Crowdsourcing, Schedule,
    ::testing::Values(
        ScheduleCase{"TakenOnceNeverAgain",
                     {{100, 200, false, 1, ReportVerdict::Send},
                      {100, 200, false, 1, ReportVerdict::AlreadySent},
                      {150, 200, false, 1, ReportVerdict::AlreadySent}}},
        ScheduleCase{"ANewVersionIsReportedAtOnce",
                     {{100, 200, false, 1, ReportVerdict::Send}, {100, 200, false, 2, ReportVerdict::Send}}},
        ScheduleCase{"AFailureWaitsForTheNextDay",
                     {{100, 0, false, 1, ReportVerdict::Send},
                      {100, 200, false, 1, ReportVerdict::TriedToday},
                      {101, 200, false, 1, ReportVerdict::Send},
                      {102, 200, false, 1, ReportVerdict::AlreadySent}}},
        ScheduleCase{"ARefusalCountsAsAFailure",
                     {{100, 503, false, 1, ReportVerdict::Send}, {101, 200, false, 1, ReportVerdict::Send}}},
        ScheduleCase{"AClockSetBackWaits",
                     {{100, 0, false, 1, ReportVerdict::Send}, {99, 200, false, 1, ReportVerdict::TriedToday}}},
        ScheduleCase{"TheSwitchStopsEverything",
                     {{100, 200, true, 1, ReportVerdict::SwitchedOff}, {100, 200, false, 1, ReportVerdict::Send}}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(CrowdsourcingTest, TheOtherProcessesEntriesInTheFileCount) {
    SentReports other;
    other.sent("installed:7:1", 90);
    files.files[kFile] = other.toValue();
    EXPECT_EQ(crowdsourcing.reportInstalledApp(metadataOfVersion(1)), ReportVerdict::AlreadySent);
    // A damaged file reads as empty and is replaced; this process still remembers what it did.
    serviceAnswers(200);
    EXPECT_EQ(crowdsourcing.reportInstalledApp(metadataOfVersion(2)), ReportVerdict::Send);
    files.corrupt[kFile] = true;
    EXPECT_EQ(crowdsourcing.reportInstalledApp(metadataOfVersion(2)), ReportVerdict::AlreadySent);
}

TEST_F(CrowdsourcingTest, WorksInTheBackgroundAndSendsOnlyVersionReports) {
    serviceAnswers(200);
    crowdsourcing.reportInstalledApps([] { return std::vector<Value>{metadataOfVersion(1), Value("junk")}; });
    crowdsourcing.storeItemShown(json(R"({"bundleId":"b","id":7,"name":"n","offers":[{"version":
                                          {"display":"2.0","externalId":2}}]})"));
    EXPECT_TRUE(http.fetched().empty());
    queues.drainAll();
    const auto fetched = http.fetched();
    ASSERT_EQ(fetched.size(), 2U);
    for (const auto &request : fetched) {
        EXPECT_EQ(request.url, kAppUrl);
        EXPECT_EQ(request.method, "POST");
    }
    EXPECT_TRUE(http.sent().empty());
}

TEST_F(CrowdsourcingTest, SwitchedOffNothingIsEvenQueued) {
    preferences.set("disableAppCaching_QV", true);
    crowdsourcing.reportInstalledApps([] { return std::vector<Value>{metadataOfVersion(1)}; });
    crowdsourcing.storeItemShown(json(R"({"bundleId":"b","id":7,"name":"n","offers":[{"version":{}}]})"));
    EXPECT_EQ(queues.serialQueues().pendingCount(), 0U);
}

TEST(CrowdsourcingProcesses, TheDaemonReportsInstalledAppsAndTheAppStoreItems) {
    EXPECT_TRUE(crowdsourcesInstalledApps("com.apple.itunesstored"));
    EXPECT_FALSE(crowdsourcesStoreItems("com.apple.itunesstored"));
    EXPECT_FALSE(crowdsourcesInstalledApps("com.apple.AppStore"));
    EXPECT_TRUE(crowdsourcesStoreItems("com.apple.AppStore"));
}

TEST(SentReportsFile, LivesInTheContainerWhenItIsKnown) {
    EXPECT_EQ(sentReportsFileIn(FixedAppStoreContainer("/c")), "/c/" + std::string(kSentReportsFile));
    EXPECT_EQ(sentReportsFileIn(FixedAppStoreContainer("/c/")), "/c/" + std::string(kSentReportsFile));
    EXPECT_EQ(sentReportsFileIn(FixedAppStoreContainer(std::nullopt)), std::nullopt);
}

TEST(SentReportsFile, StaysBoundedForgettingTheLongestUntouched) {
    SentReports reports;
    for (std::size_t i = 0; i < kMaxRememberedReports + 10; ++i) {
        reports.tried("installed:" + std::to_string(i) + ":1", static_cast<std::int64_t>(i));
    }
    const SentReports reread = SentReports::fromValue(reports.toValue());
    EXPECT_EQ(reread.size(), kMaxRememberedReports);
    EXPECT_EQ(reread.verdict("installed:0:1", 5000), ReportVerdict::Send);
    EXPECT_EQ(reread.verdict("installed:1009:1", 1009), ReportVerdict::TriedToday);
}

TEST(SentReportsFile, IgnoresEntriesOfAnotherShape) {
    const SentReports reread =
        SentReports::fromValue(json(R"({"a":{"day":3,"sent":true},"b":{"day":"3"},"c":7,"d":{"day":4}})"));
    EXPECT_EQ(reread.size(), 2U);
    EXPECT_EQ(reread.verdict("a", 9), ReportVerdict::AlreadySent);
    EXPECT_EQ(reread.verdict("d", 4), ReportVerdict::TriedToday);
}

} // namespace
} // namespace qv

// End to end: the real service on an ephemeral loopback port, driven by the qvdovrin binary and by raw HTTP.
#include <gtest/gtest.h>
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "base/json.h"
#include "server/http_front.h"
#include "server/sqlite_storage.h"
#include "support/app_archives.h"
#include "support/cli_runner.h"
#include "support/temp_dir.h"
#include "support/unprivileged_child.h"

namespace qv::server {
namespace {

class LiveService : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        directory_ = new test::TemporaryDirectory("qv-live");
        SqliteOptions options;
        options.path = directory_->path() + "/versions.sqlite";
        auto opened = SqliteStorage::open(options);
        ASSERT_TRUE(opened) << opened.error().describe();
        storage_ = opened->release();
        service_ = new VersionService(*storage_);
        front_ = new HttpFront(*service_);
        const auto port = front_->bind("127.0.0.1", 0);
        ASSERT_TRUE(port);
        port_ = *port;
        server_ = new std::thread([] { front_->serve(); });
        while (!front_->running()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    static void TearDownTestSuite() {
        front_->stop();
        server_->join();
        delete server_;
        delete front_;
        delete service_;
        delete storage_;
        delete directory_;
    }

    static std::string serverUrl() { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }
    static std::string writeFile(const std::string &name, const std::string &text) {
        std::string path = directory_->path() + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    static httplib::Client client() { return httplib::Client("127.0.0.1", port_); }

    static test::TemporaryDirectory *directory_;
    static SqliteStorage *storage_;
    static VersionService *service_;
    static HttpFront *front_;
    static std::thread *server_;
    static int port_;
};

test::TemporaryDirectory *LiveService::directory_ = nullptr;
SqliteStorage *LiveService::storage_ = nullptr;
VersionService *LiveService::service_ = nullptr;
HttpFront *LiveService::front_ = nullptr;
std::thread *LiveService::server_ = nullptr;
int LiveService::port_ = 0;

TEST_F(LiveService, ReportThenVersionsThenLookup) {
    const auto metadata = writeFile("metadata.json", R"({"softwareVersionBundleId":"com.example.live","itemId":"7001",
        "itemName":"Live","softwareVersionExternalIdentifier":"900","bundleShortVersionString":"1.3","bundleVersion":"1.2.0"})");
    const auto item = writeFile("item.json", R"({"bundleId":"com.example.live","id":7001,"name":"Live",
        "offers":[{"version":{"display":"2.0","externalId":1000}}]})");
    const std::string server = " --server " + serverUrl();

    EXPECT_EQ(test::runBinary("report metadata " + metadata + server).exitCode, 0);
    EXPECT_EQ(test::runBinary("report item " + item + server).exitCode, 0);
    const auto json = test::runBinary("versions 7001 --json" + server);
    EXPECT_EQ(json.out, R"([{"bundle_version":"2.0","external_identifier":"1000"},)"
                        R"({"bundle_version":"1.2.0","external_identifier":"900"}])"
                        "\n");
    EXPECT_EQ(test::runBinary("versions 7001" + server).out, "VERSION  EXTERNAL ID\n2.0      1000\n1.2.0    900\n");
    EXPECT_EQ(test::runBinary("lookup 7001" + server).out, "com.example.live\n");
    EXPECT_EQ(test::runBinary("lookup --bundle-id com.example.live" + server).out, "7001\n");
}

TEST_F(LiveService, AnImportedArchiveListsItsVersionsWithAndWithoutDisplay) {
    const std::string archive = directory_->path() + "/Notes.ipa";
    ASSERT_TRUE(test::writeZip(
        archive, {{"Payload/Notes.app/Info.plist", "<plist/>"},
                  {"iTunesMetadata.plist", test::metadataPlist("7002", "2.1", "820", {"800", "810", "820"})}}));
    const std::string server = " --server " + serverUrl();
    const auto imported = test::runBinary("import " + archive + server);
    EXPECT_EQ(imported.exitCode, 0) << imported.out;
    EXPECT_EQ(imported.out, "imported 1 app: 1 version, 2 ids without display; 0 files skipped\n");
    EXPECT_EQ(test::runBinary("versions 7002" + server).out, "VERSION          EXTERNAL ID\n"
                                                             "2.1              820\n"
                                                             "Unknown version  810\n"
                                                             "Unknown version  800\n");
}

struct DowngradeCase {
    const char *name;
    std::vector<std::string> arguments; // after "downgrade 7003 --server URL"
    const char *typed;
    int exitCode;
    const char *lastLine; // of stdout on success, of stderr on failure
};

class LiveDowngrade : public LiveService, public ::testing::WithParamInterface<DowngradeCase> {};

TEST_P(LiveDowngrade, ChoosesFromTheServiceListAndPrintsThePurchase) {
    static const bool reported = [] {
        for (const char *version : {R"("900","bundleShortVersionString":"1.0","bundleVersion":"1.0")",
                                    R"("1000","bundleShortVersionString":"2.0","bundleVersion":"2.0")"}) {
            const auto file = writeFile("dg.json", std::string(R"({"softwareVersionBundleId":"com.example.dg",)") +
                                                       R"("itemId":"7003","itemName":"Dg",)" +
                                                       R"("softwareVersionExternalIdentifier":)" + version + "}");
            EXPECT_EQ(test::runInProcess({"report", "metadata", file, "--server", serverUrl()}).exitCode, 0);
        }
        return true;
    }();
    ASSERT_TRUE(reported);
    std::vector<std::string> arguments{"downgrade", "7003", "--server", serverUrl()};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const auto run = test::runInProcess(arguments, GetParam().typed);
    EXPECT_EQ(run.exitCode, GetParam().exitCode) << run.err;
    const std::string &shown = run.exitCode == 0 ? run.out : run.err;
    ASSERT_FALSE(shown.empty());
    const std::string last = shown.substr(shown.rfind('\n', shown.size() - 2) + 1);
    EXPECT_EQ(last, std::string(GetParam().lastLine) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Choices, LiveDowngrade,
    ::testing::Values(
        DowngradeCase{"PickByNumber",
                      {},
                      "2\n",
                      0,
                      "productType=C&price=0&salableAdamId=7003&pricingParameters=SWUPD&appExtVrsId=900&clientBuyId=1"},
        DowngradeCase{
            "TypeAnId", {"--buy-params", "a=1&appExtVrsId=1000&b=2"}, "+\n1551411\n", 0, "a=1&appExtVrsId=1551411&b=2"},
        DowngradeCase{"OutOfRange", {}, "3\n", 1, "qvdovrin: not a choice: 3 (choose 1-2)"},
        DowngradeCase{"Cancelled", {}, "q\n", 1, "qvdovrin: nothing chosen; the purchase stays as it was"},
        DowngradeCase{"EndOfInput", {}, "", 1, "qvdovrin: nothing chosen; the purchase stays as it was"},
        DowngradeCase{
            "TypedIdNotDigits", {}, "+\n12a\n", 1, "qvdovrin: an external version identifier is decimal digits: 12a"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(LiveService, DowngradeOfAnAppWithoutVersionsFails) {
    const auto run = test::runInProcess({"downgrade", "7999", "--server", serverUrl()}, "1\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "qvdovrin: no known versions of 7999 at " + serverUrl() + "\n");
    EXPECT_EQ(run.out, "");
}

TEST_F(LiveService, DryRunPrintsTheRequestAndSendsNothing) {
    const auto item = writeFile("dry.json", R"({"bundleId":"com.example.dry","id":"7002","name":"Dry",
        "offers":[{"version":{"display":"1.0","externalId":"5"}}]})");
    const auto run = test::runBinary("report item " + item + " --dry-run --server " + serverUrl());
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "POST " + serverUrl() + "v1/apple_apps/7002/versions\nContent-Type: application/json\n" +
                           "Accept: application/json\n\n" +
                           R"({"bundle_id":"com.example.dry","identifier":"7002","title":"Dry",)" +
                           R"("versions":[{"display":"1.0","externalId":"5"}]})" + "\n");
    EXPECT_EQ(test::runBinary("versions 7002 --json --server " + serverUrl()).out, "[]\n");
}

class CliBadInput : public LiveService, public ::testing::WithParamInterface<std::string> {};
TEST_P(CliBadInput, ExitsOneWithOneLine) {
    std::string arguments = GetParam();
    const auto placeholder = arguments.find("{url}");
    if (placeholder != std::string::npos) {
        arguments.replace(placeholder, 5, serverUrl());
    }
    const std::string &dir = directory_->path();
    writeFile("broken.json", "{\"itemId\":");
    writeFile("disabled.json", R"({"disableAppCaching_QV":true})");
    writeFile("mismatch.json",
              R"({"bundleId":"b","id":"12x","name":"n","offers":[{"version":{"display":"1","externalId":1}}]})");
    arguments = std::regex_replace(arguments, std::regex("\\{dir\\}"), dir);
    const auto run = test::runBinary(arguments);
    EXPECT_EQ(run.exitCode, 1) << run.out;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
}
INSTANTIATE_TEST_SUITE_P(Commands, CliBadInput,
                         ::testing::Values("versions abc --server {url}", "versions 1 --server ftp://x/",
                                           "lookup 999999 --server {url}", "lookup --bundle-id no.such --server {url}",
                                           "report metadata {dir}/missing.json --server {url}",
                                           "report metadata {dir}/broken.json --server {url}",
                                           "report item {dir}/mismatch.json --server {url}",
                                           "report item {dir}/disabled.json --preferences {dir}/disabled.json",
                                           "versions 1 --server http://127.0.0.1:1/"));

struct FlagCase {
    const char *name;
    std::vector<std::string> arguments;
    std::string err;
};
class ServeFlag : public ::testing::TestWithParam<FlagCase> {};
// Counts and sizes are read like identifiers: what is not plain decimal digits is refused before anything starts.
TEST_P(ServeFlag, IsRefusedUnlessPlainDecimalDigits) {
    const auto run = test::runInProcess(GetParam().arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, GetParam().err);
}
INSTANTIATE_TEST_SUITE_P(
    Values, ServeFlag,
    ::testing::Values(
        FlagCase{"Exponent",
                 {"serve", "--max-events", "1e3"},
                 "qvdovrin: --max-events: \"1e3\" is not a whole decimal number\n"},
        FlagCase{"Hexadecimal",
                 {"serve", "--max-event-bytes", "0x10"},
                 "qvdovrin: --max-event-bytes: \"0x10\" is not a whole decimal number\n"},
        FlagCase{"Zero",
                 {"serve", "--max-versions-per-app", "0"},
                 "qvdovrin: --max-versions-per-app: \"0\" is not from 1 to 9223372036854775807\n"},
        FlagCase{"NoThreads", {"serve", "--threads", "0"}, "qvdovrin: --threads: \"0\" is not from 1 to 1024\n"},
        FlagCase{"Negative",
                 {"serve", "--reply-cache-bytes", "-1"},
                 "qvdovrin: --reply-cache-bytes: \"-1\" is not a whole decimal number\n"}),
    [](const auto &info) { return std::string(info.param.name); });

struct RawCase {
    const char *method;
    std::string path;
    std::string body;
    int status;
};
class RawHttpBadInput : public LiveService, public ::testing::WithParamInterface<RawCase> {};
TEST_P(RawHttpBadInput, AnswersJsonErrorAndKeepsData) {
    auto http = client();
    const std::string report =
        R"({"bundle_id":"com.example.keep","identifier":"8001","title":"Keep","versions":[{"display":"1.0","externalId":"1"}]})";
    ASSERT_EQ(http.Post("/v1/apple_apps/8001/versions", report, "application/json")->status, 200);
    const std::string before = http.Get("/v1/apple_apps/8001/versions")->body;

    const auto &raw = GetParam();
    const auto result = std::string(raw.method) == "POST"     ? http.Post(raw.path, raw.body, "application/json")
                        : std::string(raw.method) == "PUT"    ? http.Put(raw.path, raw.body, "application/json")
                        : std::string(raw.method) == "DELETE" ? http.Delete(raw.path)
                                                              : http.Get(raw.path);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, raw.status);
    const auto error = parseJson(result->body);
    ASSERT_TRUE(error && error->asDictionary() && error->asDictionary()->find(Value("error"))) << result->body;
    EXPECT_EQ(http.Get("/v1/apple_apps/8001/versions")->body, before);
}
INSTANTIATE_TEST_SUITE_P(
    Requests, RawHttpBadInput,
    ::testing::Values(
        RawCase{"POST", "/v1/apple_apps/8001/versions", "{not json", 400},
        RawCase{"POST", "/v1/apple_apps/8001/versions",
                R"({"bundle_id":"x","identifier":"8002","title":"t","versions":[{"display":"9","externalId":"1"}]})",
                400},
        RawCase{"POST", "/v1/apple_apps/8001/versions",
                R"({"bundle_id":"x","identifier":"8001","title":"t","versions":{"display":"9"}})", 400},
        RawCase{"POST", "/v1/apple_apps/eighty/versions", "{}", 400},
        RawCase{"POST", "/v1/apple_apps/8001/versions", std::string(1024 * 1024 + 1, '{'), 413},
        RawCase{"POST", "/v1/events", "[1,2", 400}, RawCase{"GET", "/v2/whatever", "", 404},
        RawCase{"PUT", "/v1/apple_apps/8001/versions", "{}", 405}, RawCase{"DELETE", "/v1/events", "", 405},
        RawCase{"GET", "/lookup?id=abc", "", 400}, RawCase{"GET", "/lookup?bundleId=com.%FF", "", 400},
        RawCase{"GET", "/lookup?bundleId=a%00b", "", 400}, RawCase{"GET", "/v1/apple_apps/%C0%AF/versions", "", 400},
        RawCase{"POST", "/v1/events", R"({"name":"search","attributes":{"query":"\u0000","results":[]}})", 400}));

// The whole reply to one request sent on a fresh connection that the server closes after answering.
std::string rawExchange(int port, const std::string &request) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string reply;
    if (::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        ::send(socket, request.data(), request.size(), 0) == static_cast<ssize_t>(request.size())) {
        char buffer[1024];
        ssize_t got = 0;
        while ((got = ::recv(socket, buffer, sizeof buffer, 0)) > 0) {
            reply.append(buffer, static_cast<std::size_t>(got));
        }
    }
    ::close(socket);
    return reply;
}

TEST_F(LiveService, AMatchingTagGetsANotModifiedWithoutABody) {
    const auto first = client().Get("/v1/apple_apps/8101/versions");
    ASSERT_TRUE(first);
    const std::string tag = first->get_header_value("ETag");
    ASSERT_EQ(tag.front(), '"');
    EXPECT_EQ(first->get_header_value("Cache-Control"), "public, max-age=60");
    const std::string reply = rawExchange(port_, "GET /v1/apple_apps/8101/versions HTTP/1.1\r\nHost: x\r\n"
                                                 "If-None-Match: " +
                                                     tag + "\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(reply.rfind("HTTP/1.1 304 ", 0), 0U) << reply;
    EXPECT_NE(reply.find("\r\nETag: " + tag + "\r\n"), std::string::npos) << reply;
    EXPECT_NE(reply.find("\r\nCache-Control: public, max-age=60\r\n"), std::string::npos) << reply;
    EXPECT_NE(reply.find("\r\nContent-Length: 2\r\n"), std::string::npos) << reply; // the length of "[]"
    EXPECT_EQ(reply.find("\r\n\r\n"), reply.size() - 4) << "no body may follow: " << reply;
}

TEST(ServeCommand, PrintsWhereItListensAndStopsOnSigterm) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qv-serve-XXXXXX").string();
    const std::string directory = mkdtemp(pattern.data());
    const std::string command = "sh -c 'echo $$; exec " + std::string(QV_CLI_PATH) +
                                " serve --listen 127.0.0.1:0 --db " + directory + "/nested/v.sqlite'";
    FILE *pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char line[256] = {};
    ASSERT_NE(fgets(line, sizeof line, pipe), nullptr);
    const pid_t pid = std::stoi(line);
    ASSERT_NE(fgets(line, sizeof line, pipe), nullptr);
    const std::string banner = line;
    const auto port = banner.find("127.0.0.1:");
    ASSERT_NE(port, std::string::npos) << banner;
    httplib::Client http("127.0.0.1", std::stoi(banner.substr(port + 10)));
    const auto reply = http.Get("/v1/apple_apps/1/versions");
    EXPECT_TRUE(reply && reply->status == 200 && reply->body == "[]");
    kill(pid, SIGTERM);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_TRUE(std::filesystem::exists(directory + "/nested/v.sqlite"));
    std::filesystem::remove_all(directory);
}

TEST(ServeCommand, ExitsOneNamingADatabaseItCannotWrite) {
    const test::TemporaryDirectory directory("qv-serve-readonly");
    const std::string database = directory.file("v.sqlite");
    const auto outcome = test::runUnprivileged(directory.path(), [&] {
        SqliteOptions options;
        options.path = database;
        if (!SqliteStorage::open(options)) {
            return 2;
        }
        const std::string cli = QV_CLI_PATH;
        ::chmod(database.c_str(), 0444);
        ::execl(cli.c_str(), cli.c_str(), "serve", "--listen", "127.0.0.1:0", "--db", database.c_str(), nullptr);
        return 3;
    });
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.output, "qvdovrin: cannot open the database: " + database + ": the file is read-only\n");
}

} // namespace
} // namespace qv::server

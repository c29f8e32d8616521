// The serve loop's refusals: it reports why it cannot start and never announces a port it is not serving on.
#include "server/serve.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <future>
#include <optional>
#include <thread>

#include "support/temp_dir.h"

namespace qv::server {
namespace {

// A loopback port held by a listening socket of this test, so that nobody else can bind it.
class OccupiedPort {
  public:
    OccupiedPort() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        if (::bind(socket_, generic, length) == 0 && ::listen(socket_, 1) == 0 &&
            ::getsockname(socket_, generic, &length) == 0) {
            port_ = ntohs(address.sin_port);
        }
    }
    ~OccupiedPort() { ::close(socket_); }
    OccupiedPort(const OccupiedPort &) = delete;
    OccupiedPort &operator=(const OccupiedPort &) = delete;
    int port() const { return port_; }

  private:
    int socket_;
    int port_ = 0;
};

struct RefusalCase {
    const char *name;
    bool databaseUnderAFile; // the database's folder is a regular file
    const char *databaseUrl; // instead of a file
    bool portTaken;
    ErrorCode code;
    const char *start; // the failure's line starts with this
};

class ServeRefusal : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(ServeRefusal, FailsWithoutAnnouncingAPort) {
    const test::TemporaryDirectory directory("qv-serve");
    std::ofstream(directory.file("plain")) << "not a folder";
    const OccupiedPort occupied;
    ASSERT_NE(occupied.port(), 0);
    ServeConfig config;
    config.port = GetParam().portTaken ? occupied.port() : 0;
    config.database = GetParam().databaseUrl != nullptr
                          ? GetParam().databaseUrl
                          : directory.file(GetParam().databaseUnderAFile ? "plain/v.sqlite" : "v.sqlite");
    std::optional<int> announced;
    const auto served = serveUntilSignalled(config, [&](int port) { announced = port; });
    ASSERT_FALSE(served);
    EXPECT_EQ(served.error().code, GetParam().code);
    EXPECT_EQ(served.error().describe().rfind(GetParam().start, 0), 0U) << served.error().describe();
    EXPECT_FALSE(announced);
}

INSTANTIATE_TEST_SUITE_P(
    Causes, ServeRefusal,
    ::testing::Values(RefusalCase{"DatabaseCannotBeCreated", true, nullptr, false, ErrorCode::StorageFailed,
                                  "cannot open the database: "},
                      RefusalCase{"SharedDatabaseUnreachable", false, "postgresql://u:pw@/v?host=/nonexistent-qv",
                                  false, ErrorCode::StorageFailed,
                                  "cannot open the database: postgresql://u@/v?host=/nonexistent-qv: "
                                  "connection to server on socket"},
                      RefusalCase{"PortTaken", false, nullptr, true, ErrorCode::ListenFailed,
                                  "cannot listen on 127.0.0.1:"}),
    [](const auto &info) { return std::string(info.param.name); });

// A second service on the SQLite file one already serves stops with one line, and the first serves on.
TEST(ServeOneFile, ASecondServiceOnTheSameFileDoesNotStart) {
    const test::TemporaryDirectory directory("qv-serve");
    ServeConfig config;
    config.database = directory.file("v.sqlite");
    // The stop signal goes to the process; blocked here and in the serving thread, it reaches only the service.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
    std::promise<int> listening;
    std::thread first([&] {
        const auto served = serveUntilSignalled(config, [&](int port) { listening.set_value(port); });
        EXPECT_TRUE(served);
    });
    ASSERT_GT(listening.get_future().get(), 0);
    std::optional<int> announced;
    const auto second = serveUntilSignalled(config, [&](int port) { announced = port; });
    ASSERT_FALSE(second);
    EXPECT_EQ(second.error().code, ErrorCode::StorageFailed);
    EXPECT_EQ(second.error().describe(), "cannot open the database: " + config.database +
                                             " is in use by another qvdovrin serve; several instances need PostgreSQL");
    EXPECT_FALSE(announced);
    ::kill(::getpid(), SIGTERM);
    first.join();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

} // namespace
} // namespace qv::server

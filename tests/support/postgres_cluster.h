// A throwaway PostgreSQL server for one test process: made in a temporary folder on first use, stopped at the end.
#pragma once

#include <grp.h>
#include <libpq-fe.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "support/temp_dir.h"
#include "support/unprivileged_child.h"

namespace qv::test {

class PostgresCluster {
  public:
    // The process's cluster, started on the first call; available() says whether that worked.
    static PostgresCluster &shared() {
        PostgresCluster &cluster = instance();
        static std::once_flag started;
        std::call_once(started, [&cluster] {
            cluster.start();
            if (!cluster.available()) {
                std::fprintf(stderr, "PostgreSQL tests %s: %s\n", required() ? "failed" : "skipped",
                             cluster.unavailableReason_.c_str());
            }
        });
        return cluster;
    }

    // The process's cluster, started or not: for stopping it at the end.
    static PostgresCluster &instance() {
        static PostgresCluster cluster;
        return cluster;
    }

    bool available() const { return unavailableReason_.empty(); }
    // Whether a test without a cluster must fail rather than skip: in CI (CI=true) the bootstrap has installed the
    // server, so a cluster that does not start is a broken machine, and skipping would let the run pass unseen.
    static bool required() {
        const char *ci = std::getenv("CI");
        return ci != nullptr && std::string(ci) == "true";
    }
    const std::string &unavailableReason() const { return unavailableReason_; }

    // A new, empty database on the cluster, as a postgresql:// URL; empty when it could not be made.
    std::string freshDatabase() {
        const std::lock_guard<std::mutex> lock(mutex_);
        const std::string name = "qv_" + std::to_string(++databases_);
        PGconn *admin = PQconnectdb(url("postgres").c_str());
        PGresult *created = PQexec(admin, ("CREATE DATABASE " + name).c_str());
        const bool ok = PQresultStatus(created) == PGRES_COMMAND_OK;
        PQclear(created);
        PQfinish(admin);
        return ok ? url(name) : std::string();
    }

    // Runs one SQL command as the superuser on the named database; true when it succeeded.
    bool administer(const std::string &database, const std::string &sql) const {
        PGconn *admin = PQconnectdb(url(database).c_str());
        PGresult *result = PQexec(admin, sql.c_str());
        const auto status = PQresultStatus(result);
        PQclear(result);
        PQfinish(admin);
        return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
    }

    std::string url(const std::string &database) const {
        return "postgresql://postgres@/" + database + "?host=" + folder_.path() + "&port=" + kPort;
    }

    static std::string databaseOf(const std::string &url) {
        const std::size_t start = url.find("@/") + 2;
        return url.substr(start, url.find('?') - start);
    }

    void stop() {
        if (running_) {
            (void)run({binaries_ + "/pg_ctl", "-D", data(), "-m", "immediate", "-w", "-s", "stop"});
            running_ = false;
        }
    }

    ~PostgresCluster() { stop(); }
    PostgresCluster(const PostgresCluster &) = delete;
    PostgresCluster &operator=(const PostgresCluster &) = delete;

  private:
    static constexpr const char *kPort = "5432"; // the socket lives in a private folder, so any port will do

    PostgresCluster() = default;

    std::string data() const { return folder_.path() + "/data"; }

    static std::string findBinaries() {
        std::string newest;
        std::error_code error;
        for (const auto &entry : std::filesystem::directory_iterator("/usr/lib/postgresql", error)) {
            const std::string candidate = entry.path().string() + "/bin";
            if (std::filesystem::exists(candidate + "/initdb") && std::filesystem::exists(candidate + "/pg_ctl")) {
                newest = std::max(newest, candidate);
            }
        }
        return newest;
    }

    void start() {
        binaries_ = findBinaries();
        if (binaries_.empty()) {
            unavailableReason_ = "no initdb and pg_ctl under /usr/lib/postgresql";
            return;
        }
        if (folder_.path().empty()) {
            unavailableReason_ = "no temporary folder";
            return;
        }
        // The server refuses to run as root; as root the cluster belongs to nobody.
        if (::geteuid() == 0 && ::chown(folder_.path().c_str(), kNobody, kNobody) != 0) {
            unavailableReason_ = "cannot hand the temporary folder to nobody";
            return;
        }
        if (!run({binaries_ + "/initdb", "-D", data(), "-U", "postgres", "-A", "trust", "-E", "UTF8", "--locale=C",
                  "--no-sync"})) {
            unavailableReason_ = "initdb failed: " + log();
            return;
        }
        {
            std::ofstream settings(data() + "/postgresql.conf", std::ios::app);
            settings << "listen_addresses = ''\nunix_socket_directories = '" << folder_.path() << "'\nport = " << kPort
                     << "\nfsync = off\nsynchronous_commit = off\nfull_page_writes = off\n";
        }
        if (!run({binaries_ + "/pg_ctl", "-D", data(), "-l", folder_.path() + "/server.log", "-w", "-s", "start"})) {
            unavailableReason_ = "pg_ctl start failed: " + log();
            return;
        }
        running_ = true;
    }

    std::string log() const {
        std::ifstream in(folder_.path() + "/command.log");
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text;
    }

    // Runs a server tool (as nobody when we are root) with its output in command.log; true on exit status 0.
    bool run(const std::vector<std::string> &command) const {
        const std::string logPath = folder_.path() + "/command.log";
        std::fflush(nullptr);
        const pid_t child = ::fork();
        if (child == 0) {
            if (::geteuid() == 0 &&
                (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) {
                ::_exit(126);
            }
            if (std::freopen(logPath.c_str(), "w", stdout) == nullptr || ::dup2(STDOUT_FILENO, STDERR_FILENO) < 0) {
                ::_exit(126);
            }
            std::vector<char *> arguments;
            arguments.reserve(command.size() + 1);
            for (const auto &argument : command) {
                arguments.push_back(const_cast<char *>(argument.c_str()));
            }
            arguments.push_back(nullptr);
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        int status = 0;
        return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    TemporaryDirectory folder_{"qv-pg"};
    std::string binaries_;
    std::string unavailableReason_;
    bool running_ = false;
    std::mutex mutex_;
    int databases_ = 0;
};

} // namespace qv::test

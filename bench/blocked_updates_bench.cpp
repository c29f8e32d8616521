// Blocked-updates store over a file of 10,000 records: loading the file, and deciding one update.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "posix/archive_file_posix.h"
#include "updates/blocked_updates.h"

namespace {

constexpr int kRecords = 10000;
constexpr double kModernCoreFoundation = 1665.15;

// Half the records keyed by store item identifier (as the block action writes them), half by bundle identifier.
qv::Value recordTable() {
    qv::Dictionary records;
    records.setMutable(true);
    for (int i = 0; i < kRecords; ++i) {
        qv::Value key = i % 2 == 0 ? qv::Value(static_cast<long long>(300000000 + i))
                                   : qv::Value("com.example.app" + std::to_string(i));
        records.set(key, qv::BlockedUpdates::makeRecord(std::to_string(i % 7) + ".0", i % 3 == 0));
    }
    return qv::Value(records);
}

class BenchFile {
  public:
    BenchFile() {
        std::string pattern = (std::filesystem::temp_directory_path() / "qv-bench-XXXXXX").string();
        directory_ = ::mkdtemp(pattern.data());
        path_ = directory_ + "/com.quorvane.qvdovrinkit.plist";
        if (!qv::posix::PosixArchiveFile().save(path_, recordTable())) {
            std::abort(); // every measurement below would read a file that is not there
        }
    }
    ~BenchFile() {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    BenchFile(const BenchFile &) = delete;
    BenchFile &operator=(const BenchFile &) = delete;
    const std::string &path() const { return path_; }

  private:
    std::string directory_;
    std::string path_;
};

const BenchFile &benchFile() {
    static const BenchFile file;
    return file;
}

qv::BlockedUpdates::Environment environment(qv::posix::PosixArchiveFile &file, qv::Notifier &notifier) {
    const std::string path = benchFile().path();
    return {&file, &notifier, [path] { return std::optional<std::string>(path); }, kModernCoreFoundation};
}

qv::Value modernUpdate(const std::string &bundleId, const std::string &version) {
    return qv::Value(qv::Dictionary{
        {"bundleId", qv::Value(bundleId)},
        {"offers",
         qv::Value(qv::Array{qv::Value(qv::Dictionary{{"version", qv::Dictionary{{"display", version}}}})})}});
}

void BM_LoadTenThousandRecords(benchmark::State &state) {
    qv::posix::PosixArchiveFile file;
    qv::SilentNotifier notifier;
    qv::BlockedUpdates store(environment(file, notifier));
    for (auto _ : state) {
        store.reloadBlockedUpdatesDict();
        benchmark::DoNotOptimize(store);
    }
    state.counters["records"] = static_cast<double>(store.snapshot().size());
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(benchFile().path()));
}
BENCHMARK(BM_LoadTenThousandRecords)->Unit(benchmark::kMillisecond);

void BM_DecideUpdateDictionary(benchmark::State &state) {
    qv::posix::PosixArchiveFile file;
    qv::SilentNotifier notifier;
    const qv::BlockedUpdates store(environment(file, notifier));
    const qv::Value updates[] = {modernUpdate("com.example.app4999", "1.0"), modernUpdate("com.example.app5001", "9.9"),
                                 modernUpdate("com.not.blocked", "1.0")};
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.updateBlocked(updates[next]));
        next = (next + 1) % 3;
    }
}
BENCHMARK(BM_DecideUpdateDictionary)->Unit(benchmark::kNanosecond);

void BM_DecideUpdateItem(benchmark::State &state) {
    qv::posix::PosixArchiveFile file;
    qv::SilentNotifier notifier;
    const qv::BlockedUpdates store(environment(file, notifier));
    const qv::StoreUpdateItem item{qv::Value("com.example.app4999"), qv::Value("1.0")};
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.updateBlocked(item));
    }
}
BENCHMARK(BM_DecideUpdateItem)->Unit(benchmark::kNanosecond);

} // namespace

BENCHMARK_MAIN();

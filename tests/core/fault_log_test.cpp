// Swallowed faults leave one line each in the device log, however often they repeat.
#include "core/fault_log.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_runtime.h"

namespace qv {
namespace {

struct FaultCase {
    const char *name;
    std::vector<std::pair<std::string, std::string>> faults;
    std::vector<std::string> logged;
};

class SwallowedFaults : public ::testing::TestWithParam<FaultCase> {};

TEST_P(SwallowedFaults, AreLoggedOnceEach) {
    FakeRuntime runtime{"com.apple.AppStore"};
    FaultLog log(runtime);
    for (const auto &[name, reason] : GetParam().faults) {
        log.swallowed(name, reason);
    }
    std::vector<std::string> lines;
    for (const auto &event : runtime.events()) {
        lines.push_back(event.detail);
    }
    EXPECT_EQ(lines, GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(
    Repeats, SwallowedFaults,
    ::testing::Values(
        FaultCase{"One",
                  {{"NSRangeException", "index 3 beyond bounds"}},
                  {"Verdigo caught and dropped NSRangeException: index 3 beyond bounds"}},
        FaultCase{"RepeatedOnce",
                  {{"NSRangeException", "index 3"}, {"NSRangeException", "index 3"}, {"NSRangeException", "index 3"}},
                  {"Verdigo caught and dropped NSRangeException: index 3"}},
        FaultCase{"SameNameOtherReason",
                  {{"NSRangeException", "index 3"}, {"NSRangeException", "index 4"}},
                  {"Verdigo caught and dropped NSRangeException: index 3",
                   "Verdigo caught and dropped NSRangeException: index 4"}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(SwallowedFaults, StopWritingAfterTheCap) {
    FakeRuntime runtime{"com.apple.AppStore"};
    FaultLog log(runtime);
    for (std::size_t fault = 0; fault < FaultLog::kMostFaultsWritten + 10; ++fault) {
        log.swallowed("std::runtime_error", std::to_string(fault));
    }
    EXPECT_EQ(runtime.events().size(), FaultLog::kMostFaultsWritten);
}

} // namespace
} // namespace qv

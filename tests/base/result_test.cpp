// Misreading a result stops the program with a line that says what was misread, never reads what is not there.
#include "base/result.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace qv {
namespace {

struct MisuseCase {
    const char *name;
    std::function<void()> misuse;
    const char *says;
};

class ResultMisuse : public ::testing::TestWithParam<MisuseCase> {};

TEST_P(ResultMisuse, StopsWithAMessage) {
    EXPECT_DEATH(GetParam().misuse(), GetParam().says);
}

INSTANTIATE_TEST_SUITE_P(Reads, ResultMisuse,
                         ::testing::Values(MisuseCase{"ValueOfAFailure",
                                                      [] {
                                                          const Result<std::string> failed =
                                                              fail(ErrorCode::FileUnreadable, "/tmp/x: gone");
                                                          static_cast<void>(failed.value().size());
                                                      },
                                                      "value\\(\\) of a failed result \\(the failure: /tmp/x: gone\\)"},
                                           MisuseCase{"MovedValueOfAFailure",
                                                      [] {
                                                          Result<std::string> failed = fail(ErrorCode::MalformedJson);
                                                          static_cast<void>(std::move(failed).value());
                                                      },
                                                      "the failure: malformed JSON"},
                                           MisuseCase{"ErrorOfAValue",
                                                      [] {
                                                          const Result<int> held = 3;
                                                          static_cast<void>(held.error().code);
                                                      },
                                                      "error\\(\\) of a result that holds a value"},
                                           MisuseCase{"ErrorOfASuccess",
                                                      [] {
                                                          const Result<void> done;
                                                          static_cast<void>(done.error().code);
                                                      },
                                                      "error\\(\\) of a result that succeeded"}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv

// qvdovrin hooks: which rows it prints, in which form, and that bound or pending follows the phone's bindings.
#include "base/json.h"
#include "core/hook_table.h"
#include "core/phone_bodies.h"
#include "support/cli_runner.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace qv {
namespace {

struct PrintedRow {
    int number = 0;
    bool bound = false;
    std::vector<std::string> cells; // lines only
};

std::vector<PrintedRow> rowsFromLines(const std::string &out) {
    std::vector<PrintedRow> rows;
    std::istringstream lines(out);
    std::string line;
    std::getline(lines, line); // column titles
    while (std::getline(lines, line)) {
        PrintedRow row;
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            row.cells.push_back(word);
        }
        row.number = std::stoi(row.cells.front());
        row.bound = row.cells.back() == "bound";
        rows.push_back(row);
    }
    return rows;
}

std::vector<PrintedRow> rowsFromJson(const std::string &out) {
    std::vector<PrintedRow> rows;
    const auto parsed = parseJson(out);
    EXPECT_TRUE(parsed.ok());
    if (!parsed.ok() || parsed.value().asArray() == nullptr) {
        return rows;
    }
    for (const Value &item : *parsed.value().asArray()) {
        const std::int64_t *number = item["number"].asInteger();
        const bool *bound = item["bound"].asBool();
        rows.push_back({number == nullptr ? 0 : static_cast<int>(*number), bound != nullptr && *bound, {}});
    }
    return rows;
}

struct HooksCase {
    const char *name;
    std::vector<std::string> arguments;
    bool onlyPending;
    bool json;
};

class HooksCommand : public ::testing::TestWithParam<HooksCase> {};

TEST_P(HooksCommand, PrintsTheChosenRowsInTableOrder) {
    const HooksCase &c = GetParam();
    const auto run = test::runInProcess(c.arguments);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");

    std::vector<PrintedRow> expected;
    for (const HookRow &row : hookTable()) {
        if (!c.onlyPending || !boundOnPhone(row.body)) {
            expected.push_back({row.number, boundOnPhone(row.body), {}});
        }
    }
    const auto printed = c.json ? rowsFromJson(run.out) : rowsFromLines(run.out);
    ASSERT_EQ(printed.size(), expected.size());
    for (std::size_t index = 0; index < printed.size(); ++index) {
        EXPECT_EQ(printed[index].number, expected[index].number);
        EXPECT_EQ(printed[index].bound, expected[index].bound) << "row " << printed[index].number;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, HooksCommand,
                         ::testing::Values(HooksCase{"EveryRow", {"hooks"}, false, false},
                                           HooksCase{"PendingRows", {"hooks", "--pending"}, true, false},
                                           HooksCase{"EveryRowAsJson", {"hooks", "--json"}, false, true},
                                           HooksCase{
                                               "PendingRowsAsJson", {"hooks", "--json", "--pending"}, true, true}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(HooksCommandLine, ShowsEveryColumnOfARow) {
    const auto run = test::runInProcess({"hooks"});
    const HookRow &row = hookRow(HookBody::DocumentContainerUndefinedKey);
    const auto rows = rowsFromLines(run.out);
    ASSERT_GE(rows.size(), static_cast<std::size_t>(row.number));
    EXPECT_EQ(rows[static_cast<std::size_t>(row.number - 1)].cells,
              (std::vector<std::string>{std::to_string(row.number), "STORE_KIT", "SKUIDocumentContainerViewController",
                                        "valueForUndefinedKey:", "add-instance", "@@:@", "not-daemon", "bound"}));
}

TEST(HooksCommandLine, NothingIsPendingOnThePhone) {
    const auto run = test::runInProcess({"hooks", "--pending"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
}

TEST(HooksCommandLine, RejectsAnUnknownOption) {
    const auto run = test::runInProcess({"hooks", "--bound"});
    EXPECT_EQ(run.exitCode, qvdovrin::kExitBadUsage);
    EXPECT_EQ(run.out, "");
}

} // namespace
} // namespace qv

// qvdovrin hooks: every row, in table order, as aligned lines or JSON.
#include "base/json.h"
#include "core/hook_table.h"
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
    std::string selector;
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
        row.selector = row.cells.size() > 3 ? row.cells[3] : "";
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
        const std::string *selector = item["selector"].asString();
        rows.push_back({number == nullptr ? 0 : static_cast<int>(*number), selector == nullptr ? "" : *selector, {}});
    }
    return rows;
}

struct HooksCase {
    const char *name;
    std::vector<std::string> arguments;
    bool json;
};

class HooksCommand : public ::testing::TestWithParam<HooksCase> {};

TEST_P(HooksCommand, PrintsTheChosenRowsInTableOrder) {
    const HooksCase &c = GetParam();
    const auto run = test::runInProcess(c.arguments);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");

    const auto printed = c.json ? rowsFromJson(run.out) : rowsFromLines(run.out);
    ASSERT_EQ(printed.size(), hookTable().size());
    for (std::size_t index = 0; index < printed.size(); ++index) {
        EXPECT_EQ(printed[index].number, hookTable()[index].number);
        EXPECT_EQ(printed[index].selector, hookTable()[index].selector) << "row " << printed[index].number;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, HooksCommand,
                         ::testing::Values(HooksCase{"Lines", {"hooks"}, false},
                                           HooksCase{"Json", {"hooks", "--json"}, true}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(HooksCommandLine, ShowsEveryColumnOfARow) {
    const auto run = test::runInProcess({"hooks"});
    const HookRow &row = hookRow(rowOf("SKUIDocumentContainerViewController", "valueForUndefinedKey:"));
    const auto rows = rowsFromLines(run.out);
    ASSERT_GE(rows.size(), static_cast<std::size_t>(row.number));
    EXPECT_EQ(rows[static_cast<std::size_t>(row.number - 1)].cells,
              (std::vector<std::string>{std::to_string(row.number), "STORE_KIT", "SKUIDocumentContainerViewController",
                                        "valueForUndefinedKey:", "add-instance", "@@:@", "not-daemon"}));
}

TEST(HooksCommandLine, RejectsAnUnknownOption) {
    const auto run = test::runInProcess({"hooks", "--pending"});
    EXPECT_EQ(run.exitCode, qvdovrin::kExitBadUsage);
    EXPECT_EQ(run.out, "");
}

} // namespace
} // namespace qv

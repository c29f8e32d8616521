// qvdovrin core commands run in-process: output, exit codes and the one-line error of bad input.
#include "commands.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace qvdovrin {
namespace {

struct CliCase {
    const char *name;
    std::vector<const char *> args;
    int exitCode;
    const char *out; // nullptr: anything (help texts)
};

class CoreCommands : public ::testing::TestWithParam<CliCase> {};

TEST_P(CoreCommands, PrintsAndExits) {
    const auto &c = GetParam();
    std::vector<const char *> argv{"qvdovrin"};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    std::ostringstream out;
    std::ostringstream err;
    Io io{out, err};
    EXPECT_EQ(run(static_cast<int>(argv.size()), argv.data(), io), c.exitCode);
    if (c.out != nullptr) {
        EXPECT_EQ(out.str(), c.out);
    } else {
        EXPECT_NE(out.str().find("Usage"), std::string::npos);
    }
    if (c.exitCode == kExitOk) {
        EXPECT_EQ(err.str(), "");
    } else {
        EXPECT_EQ(err.str().find('\n'), err.str().size() - 1) << err.str();
    }
}

constexpr const char *const kParams = "productType=C&salableAdamId=123&appExtVrsId=456&installed=1";

INSTANTIATE_TEST_SUITE_P(
    Commands, CoreCommands,
    ::testing::Values(
        CliCase{"CompareOlder", {"compare", "1.9", "1.10"}, kExitOk, "-1\n"},
        CliCase{"DowngradeNewPurchase",
                {"downgrade", "42", "--version", "900"},
                kExitOk,
                "productType=C&price=0&salableAdamId=42&pricingParameters=SWUPD&appExtVrsId=900&clientBuyId=1\n"},
        CliCase{"DowngradeRewritesPurchase",
                {"downgrade", "42", "--version", "900", "--buy-params", "a=1&appExtVrsId=1"},
                kExitOk,
                "a=1&appExtVrsId=900\n"},
        CliCase{"DowngradePrevious",
                {"downgrade", "42", "--previous", "--buy-params", "productType=C&salableAdamId=42&appExtVrsId=1000"},
                kExitOk,
                "productType=C&price=0&salableAdamId=42&pricingParameters=SWUPD&appExtVrsId=1000&qvprevious=1&"
                "clientBuyId=1\n"},
        CliCase{"DowngradePreviousNeedsPurchase", {"downgrade", "42", "--previous"}, kExitBadInput, ""},
        CliCase{"DowngradeIdNotDigits", {"downgrade", "4x2", "--version", "1"}, kExitBadInput, ""},
        CliCase{"DowngradeVersionNotDigits", {"downgrade", "42", "--version", "9.0"}, kExitBadInput, ""},
        CliCase{"CompareAgainstAbsent", {"compare", "1"}, kExitOk, "1\n"},
        CliCase{"CompareNegative", {"compare", "-1", "0"}, kExitOk, "-1\n"},
        CliCase{"CompareMissingArgument", {"compare"}, kExitBadUsage, ""},
        CliCase{"StateLines", {"state", "44"}, kExitOk, "supported: yes\ninstalled: no\nupdate available: yes\n"},
        CliCase{"StateJsonLowWord",
                {"state", "4294967308", "--json"},
                kExitOk,
                "{\"supported\":true,\"installed\":true,\"updateAvailable\":false}\n"},
        CliCase{"StateNotInteger", {"state", "12x"}, kExitBadInput, ""},
        CliCase{"StateEmpty", {"state", ""}, kExitBadInput, ""},
        CliCase{"StateOutOfRange", {"state", "99999999999999999999"}, kExitBadInput, ""},
        CliCase{"App", {"buyparams", "app", kParams}, kExitOk, "123\n"},
        CliCase{"VersionAbsent", {"buyparams", "version", "salableAdamId=1"}, kExitOk, "\n"},
        CliCase{"SetVersion",
                {"buyparams", "set-version", kParams, "789"},
                kExitOk,
                "productType=C&salableAdamId=123&appExtVrsId=789\n"},
        CliCase{"NewInstalled",
                {"buyparams", "new", "--app", "123", "--version", "456", "--installed"},
                kExitOk,
                "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=456&clientBuyId=1"
                "&installed=1\n"},
        CliCase{"NewWithoutVersion",
                {"buyparams", "new", "--app", "123"},
                kExitOk,
                "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=(null)&clientBuyId=1\n"},
        CliCase{"NewWithoutApp", {"buyparams", "new"}, kExitBadUsage, ""},
        CliCase{"Intercept",
                {"buyparams", "intercept", "--pending", "123=previous", "5=6", "--", kParams, "salableAdamId=124"},
                kExitOk,
                "{\"purchases\":[{\"buyParameters\":\"productType=C&price=0&salableAdamId=123&pricingParameters="
                "SWUPD&appExtVrsId=456&qvprevious=1&clientBuyId=1\",\"replaced\":true},{\"buyParameters\":"
                "\"salableAdamId=124\",\"replaced\":false}],\"pending\":{\"5\":\"6\"}}\n"},
        CliCase{"InterceptEmptyBatch",
                {"buyparams", "intercept", "--pending", "1=2"},
                kExitOk,
                "{\"purchases\":[],\"pending\":{\"1\":\"2\"}}\n"},
        CliCase{"InterceptPendingWithoutEquals", {"buyparams", "intercept", "--pending", "123"}, kExitBadInput, ""},
        CliCase{"InterceptSwallowedParams", {"buyparams", "intercept", "--pending", "1=2", kParams}, kExitBadInput, ""},
        CliCase{"BuyparamsWithoutCommand", {"buyparams"}, kExitBadUsage, ""},
        CliCase{"UnknownOption", {"buyparams", "app", "--bogus", "x"}, kExitBadUsage, ""},
        CliCase{"CompareHelp", {"compare", "--help"}, kExitOk, nullptr},
        CliCase{"InterceptHelp", {"buyparams", "intercept", "--help"}, kExitOk, nullptr},
        CliCase{"SetVersionHelp", {"buyparams", "set-version", "--help"}, kExitOk, nullptr}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qvdovrin

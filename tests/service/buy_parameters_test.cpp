// Buy-parameter codec: reading identifiers, replacing by pattern, rewriting the version, the purchase templates.
#include "service/buy_parameters.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

constexpr const char *const kInstalledPurchase =
    "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=456&clientBuyId=1&installed=1";

struct ExtractCase {
    const char *params;
    const char *storeIdentifier;
    const char *version;
};

class Extract : public ::testing::TestWithParam<ExtractCase> {};

TEST_P(Extract, ReadsLeadingDigitsOfFirstKey) {
    EXPECT_EQ(appIdentifierFromBuyParameters(GetParam().params), GetParam().storeIdentifier);
    EXPECT_EQ(versionFromBuyParameters(GetParam().params), GetParam().version);
}

INSTANTIATE_TEST_SUITE_P(Params, Extract,
                         ::testing::Values(ExtractCase{kInstalledPurchase, "123", "456"},
                                           ExtractCase{"productType=C&appExtVrsId=9", "", "9"}, ExtractCase{"", "", ""},
                                           ExtractCase{"salableAdamId=&appExtVrsId=x1", "", ""},
                                           ExtractCase{"salableAdamId=12ab34&salableAdamId=56", "12", ""},
                                           // Case-sensitive and not anchored to a key boundary.
                                           ExtractCase{"SALABLEADAMID=1&xsalableAdamId=2", "2", ""},
                                           // \d is any decimal digit of any script, as the platform's engine reads it.
                                           ExtractCase{"appExtVrsId=\xD9\xA3&salableAdamId=\xEF\xBC\x91x",
                                                       "\xEF\xBC\x91", "\xD9\xA3"},
                                           ExtractCase{"\xC3\xA9salableAdamId=77&appExtVrsId=0088", "77", "0088"}));

struct ReplaceCase {
    const char *receiver;
    const char *pattern;
    const char *replacement;
    std::optional<std::string> expected;
};

class ReplaceWithPattern : public ::testing::TestWithParam<ReplaceCase> {};

TEST_P(ReplaceWithPattern, AppendsGroupTwo) {
    const auto &c = GetParam();
    EXPECT_EQ(stringByReplacingStringWithPattern(c.receiver, c.pattern, c.replacement), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, ReplaceWithPattern,
    ::testing::Values(ReplaceCase{"a=1&A=2", "a=(\\d*)", "a=7", "a=7&a=7"},
                      ReplaceCase{"key:left:right", "(left):(right)", "X", "key:Xright"},
                      ReplaceCase{"no match", "zzz", "X", "no match"},
                      // Template syntax in the replacement text is expanded, as the platform's formatter does.
                      ReplaceCase{"v=1", "v=(\\d)", "[$1]", "[1]"},
                      ReplaceCase{"text", "(unclosed", "X", std::nullopt}));

struct SetVersionCase {
    const char *params;
    std::optional<std::string_view> version;
    const char *expected;
};

class SetVersion : public ::testing::TestWithParam<SetVersionCase> {};

TEST_P(SetVersion, RewritesEveryVersionAndDropsInstalled) {
    EXPECT_EQ(buyParametersWithVersion(GetParam().params, GetParam().version), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Params, SetVersion,
    ::testing::Values(
        SetVersionCase{kInstalledPurchase, "789",
                       "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=789&clientBuyId=1"},
        SetVersionCase{"APPEXTVRSID=456&installed=1&x=1", "789", "appExtVrsId=789&x=1"},
        SetVersionCase{"appExtVrsId=1&appextvrsid=&b", "2", "appExtVrsId=2&appExtVrsId=2&b"},
        SetVersionCase{"salableAdamId=1", "2", "salableAdamId=1"},
        SetVersionCase{"appExtVrsId=1", std::nullopt, "appExtVrsId=(null)"},
        // Removal is exact and single-pass: other spellings and pairs formed by the removal stay.
        SetVersionCase{"a&INSTALLED=1&installed=10&installed=&installed=11", "2", "a&INSTALLED=10&installed=1"}));

TEST(PurchaseTemplates, NewPurchaseEndsWithInstalledOnlyWhenInstalled) {
    EXPECT_EQ(newPurchaseBuyParameters("123", "456", true),
              "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=456&clientBuyId=1"
              "&installed=1");
    EXPECT_EQ(newPurchaseBuyParameters("123", "456", false),
              "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=456&clientBuyId=1");
    EXPECT_EQ(newPurchaseBuyParameters(std::nullopt, std::nullopt, false),
              "productType=C&price=0&salableAdamId=(null)&pricingParameters=SWUPD&appExtVrsId=(null)&clientBuyId=1");
}

TEST(PurchaseTemplates, PreviousMarkerPutsCurrentVersionAndFlagInVersionSlot) {
    EXPECT_EQ(rewrittenPurchaseBuyParameters("123", pendingVersionSlot("previous", kInstalledPurchase)),
              "productType=C&price=0&salableAdamId=123&pricingParameters=SWUPD&appExtVrsId=456&qvprevious=1"
              "&clientBuyId=1");
    EXPECT_EQ(pendingVersionSlot("400", kInstalledPurchase), "400");
    EXPECT_EQ(pendingVersionSlot("Previous", kInstalledPurchase), "Previous");
    EXPECT_EQ(pendingVersionSlot("previous", "salableAdamId=1"), "&qvprevious=1");
}

} // namespace
} // namespace qv

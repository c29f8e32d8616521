// The analytics configuration answers line up with the hook table's rows for them.
#include "core/hook_table.h"
#include "settings/analytics_config.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

TEST(AnalyticsConfig, EveryConfigurationRowHasAnAnswer) {
    int rows = 0;
    for (const HookRow &row : hookTable()) {
        if (row.group == HookGroup::GaiConfig) {
            ++rows;
            EXPECT_TRUE(analyticsAnswer(row.selector).has_value()) << row.selector;
        }
    }
    EXPECT_EQ(rows, 6);
}

TEST(AnalyticsConfig, AnswersCarryTheBuildValuesAndNothingElse) {
    EXPECT_EQ(analyticsAnswer("tweakVersion"), std::optional<std::string_view>(QV_RELEASE_VERSION));
    EXPECT_EQ(analyticsAnswer("tweakGAID"), std::optional<std::string_view>(analyticsTrackingId()));
    EXPECT_EQ(analyticsAnswer("messagesEnabled"), std::nullopt);
    EXPECT_FALSE(remoteMessagesEnabled());
}

} // namespace
} // namespace qv

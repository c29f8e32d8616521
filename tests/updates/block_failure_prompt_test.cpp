// The block action's failure alert: its answers, the support mail it composes, and the flow from a failed block.
#include "updates/block_failure_prompt.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "fakes/fake_archive_file.h"
#include "fakes/fake_support_mail.h"
#include "fakes/scripted_ui.h"
#include "updates/block_action.h"

namespace {

using qv::BlockableItem;
using qv::Value;

constexpr std::string_view kSupport = "help@example.com";

struct AnswerCase {
    std::string name;
    std::string tapped;
    bool account;
    std::optional<std::string> username;
    std::optional<std::string> subject; // the composed mail's; nothing when no mail may be composed
};

class BlockFailureAnswer : public testing::TestWithParam<AnswerCase> {};

TEST_P(BlockFailureAnswer, ComposesTheSupportMailOnlyWhenAskedAndPossible) {
    const AnswerCase &c = GetParam();
    qv::ScriptedUi ui;
    qv::FakeSupportMail mail;
    mail.account = c.account;
    mail.username = c.username;
    qv::BlockFailurePrompt prompt(ui, mail, std::string(kSupport));
    const qv::BlockFailure failure{"<ASUpdateItem: 0x1>", std::nullopt, Value(42)};
    prompt.show(failure);

    ASSERT_EQ(ui.dialogs.size(), 1U);
    EXPECT_EQ(ui.titles(), (std::vector<std::string>{"Cancel", "Send Email"}));
    ASSERT_TRUE(ui.tap(c.tapped));
    if (!c.subject) {
        EXPECT_TRUE(mail.composed.empty());
        return;
    }
    ASSERT_EQ(mail.composed.size(), 1U);
    EXPECT_EQ(mail.composed[0].recipient, kSupport);
    EXPECT_EQ(mail.composed[0].subject, *c.subject);
    EXPECT_EQ(mail.composed[0].body, qv::blockFailureMailBody(failure));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, BlockFailureAnswer,
    testing::Values(AnswerCase{"Cancel", "Cancel", true, std::string("sam"), std::nullopt},
                    AnswerCase{"SendWithoutAccount", "Send Email", false, std::string("sam"), std::nullopt},
                    AnswerCase{"SendSignedIn", "Send Email", true, std::string("sam"),
                               std::string("Verdigo Help - username: sam")},
                    AnswerCase{"SendSignedOut", "Send Email", true, std::nullopt, std::string("Verdigo Help")}),
    [](const auto &info) { return info.param.name; });

TEST(BlockFailurePrompt, AFailedSaveShowsTheNoticeAndRecordsNothing) {
    const std::string fileName = "/c/Documents/com.quorvane.qvdovrinkit.plist";
    qv::FakeArchiveFile file;
    file.failSaves = true;
    qv::SilentNotifier notifier;
    qv::ScriptedUi ui;
    qv::FakeSupportMail mail;
    qv::BlockFailurePrompt prompt(ui, mail, std::string(kSupport));
    qv::BlockedUpdates store({&file, &notifier, [&] { return std::optional<std::string>(fileName); }, 1556.0});
    qv::UpdateBlocker blocker(store, notifier, prompt);

    EXPECT_FALSE(blocker.blockUpdate({BlockableItem::Kind::UpdateItem, 7, "1.2", "<ASUpdateItem>"}, false));
    EXPECT_TRUE(store.snapshot().empty());
    ASSERT_EQ(ui.dialogs.size(), 1U);
    EXPECT_EQ(ui.dialogs[0].title, "Notice!");
    ASSERT_TRUE(ui.tap("Send Email"));
    ASSERT_EQ(mail.composed.size(), 1U);
    EXPECT_EQ(mail.composed[0].body,
              qv::blockFailureMailBody(std::string("<ASUpdateItem>"), std::string("1.2"), std::string("7")));
}

} // namespace

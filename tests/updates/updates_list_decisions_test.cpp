// The updates list's swipe-to-hide: which rows may be swiped, and what each answer of the hide sheet records.
#include "updates/updates_list_decisions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/fake_archive_file.h"
#include "fakes/fake_block_failure_alert.h"
#include "fakes/fake_notifier.h"
#include "fakes/scripted_ui.h"
#include "updates/block_action.h"

namespace qv {
namespace {

struct EditCase {
    const char *name;
    bool tablet;
    std::size_t section;
    bool updatable;
    bool editable;
};

class UpdateRowEditing : public testing::TestWithParam<EditCase> {};

TEST_P(UpdateRowEditing, APhoneSwipesOnlyTheAvailableUpdatesATabletAnySection) {
    const EditCase &c = GetParam();
    EXPECT_EQ(canEditUpdateRow(c.tablet, c.section, c.updatable), c.editable);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UpdateRowEditing,
    testing::Values(EditCase{"PhoneSection2", false, 2, true, true}, EditCase{"PhoneSection0", false, 0, true, false},
                    EditCase{"PhoneSection1", false, 1, true, false}, EditCase{"PhoneSection3", false, 3, true, false},
                    EditCase{"PhoneSection2NotUpdatable", false, 2, false, false},
                    EditCase{"TabletSection0", true, 0, true, true}, EditCase{"TabletSection5", true, 5, true, true},
                    EditCase{"TabletNotUpdatable", true, 2, false, false}),
    [](const auto &info) { return std::string(info.param.name); });

const std::string kFile = "/c/Documents/com.quorvane.qvdovrinkit.plist";

struct HideCase {
    const char *name;
    HideMethod method;
    const char *answer; // the sheet's button; nullptr when no sheet may be shown
    Value expectedRecords;
};

class HideUpdate : public testing::TestWithParam<HideCase> {};

TEST_P(HideUpdate, RecordsWhatTheUserChose) {
    const HideCase &c = GetParam();
    ScriptedUi ui;
    FakeArchiveFile file;
    FakeNotifier notifier;
    FakeBlockFailureAlert alert;
    BlockedUpdates store({&file, &notifier, [] { return std::optional<std::string>(kFile); }, 1556.0});
    UpdateBlocker blocker(store, notifier, alert);
    const BlockableItem item{BlockableItem::Kind::UpdateItem, 555, "3.1", "update item"};

    resolveHideUpdate(ui, c.method, *item.version, [&](bool all) { blocker.blockUpdate(item, all); });
    if (c.answer == nullptr) {
        EXPECT_TRUE(ui.dialogs.empty());
    } else {
        ASSERT_EQ(ui.dialogs.size(), 1U);
        EXPECT_EQ(ui.dialogs[0].title, "Do you want to hide only this update (3.1) or all future updates of it?");
        EXPECT_EQ(ui.titles(), (std::vector<std::string>{"This Update", "All future updates", "Cancel"}));
        ASSERT_TRUE(ui.tap(c.answer));
    }
    EXPECT_EQ(store.snapshot(), *c.expectedRecords.asDictionary());
}

INSTANTIATE_TEST_SUITE_P(Cases, HideUpdate,
                         testing::Values(HideCase{"ThisUpdateRecordsTheVersion", HideMethod::Ask, "This Update",
                                                  Value(Dictionary{{555, BlockedUpdates::makeRecord("3.1", false)}})},
                                         HideCase{"AllFutureUpdatesRecordsAll", HideMethod::Ask, "All future updates",
                                                  Value(Dictionary{{555, BlockedUpdates::makeRecord("3.1", true)}})},
                                         HideCase{"CancelRecordsNothing", HideMethod::Ask, "Cancel",
                                                  Value(Dictionary{})},
                                         HideCase{"MethodThisUpdateDoesNotAsk", HideMethod::ThisUpdate, nullptr,
                                                  Value(Dictionary{{555, BlockedUpdates::makeRecord("3.1", false)}})},
                                         HideCase{"MethodAllDoesNotAsk", HideMethod::AllUpdates, nullptr,
                                                  Value(Dictionary{{555, BlockedUpdates::makeRecord("3.1", true)}})}),
                         [](const auto &info) { return std::string(info.param.name); });

struct HiddenRowCase {
    const char *name;
    std::size_t shown;
    std::size_t inData;
    HiddenRowChange expected;
};

class HiddenRow : public ::testing::TestWithParam<HiddenRowCase> {};

// Deleting a row the data source still counts is what makes the table raise; only a matching count deletes.
TEST_P(HiddenRow, DeletesOnlyWhenTheDataDroppedTheRow) {
    EXPECT_EQ(hiddenRowChange(GetParam().shown, GetParam().inData), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Counts, HiddenRow,
                         ::testing::Values(HiddenRowCase{"DataStillListsIt", 3, 3, HiddenRowChange::ReloadTable},
                                           HiddenRowCase{"DataDroppedIt", 3, 2, HiddenRowChange::DeleteRow},
                                           HiddenRowCase{"LastRowDropped", 1, 0, HiddenRowChange::DeleteRow},
                                           HiddenRowCase{"DataDroppedMore", 3, 1, HiddenRowChange::ReloadTable},
                                           HiddenRowCase{"DataGrew", 3, 4, HiddenRowChange::ReloadTable},
                                           HiddenRowCase{"EmptyTable", 0, 0, HiddenRowChange::ReloadTable}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv

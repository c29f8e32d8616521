// The hook table and its installer against a fake runtime: which rows land, in which order, in which process.
#include "core/hook_installer.h"
#include "core/hook_table.h"
#include "fakes/fake_runtime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <vector>

namespace qv {
namespace {

using Event = FakeRuntime::Event;

constexpr std::string_view kAppStoreBundleId = "com.apple.AppStore";

void dummyImplementation() {}

// A body for every row, as the phone binds them, each replacement with an orig slot of its own.
struct PhoneBodies {
    std::array<MethodImplementation, kHookRowCount + 1> origSlots{};
    HookBodies bodies;
    PhoneBodies() {
        for (const HookRow &row : hookTable()) {
            bodies[row] = {dummyImplementation, &origSlots.at(static_cast<std::size_t>(row.number))};
        }
    }
};

void defineClasses(FakeRuntime &runtime, std::initializer_list<const char *> classes) {
    for (const char *name : classes) {
        runtime.defineClass(name);
    }
}

// Rows are named by what they hook, never by their position in the table.
const HookRow &row(std::string_view className, std::string_view selector) {
    for (const HookRow &hook : hookTable()) {
        if (hook.className == className && hook.selector == selector) {
            return hook;
        }
    }
    ADD_FAILURE() << "no row hooks " << className << " " << selector;
    return hookTable().front();
}

struct RowSelection {
    std::vector<HookGroup> groups;
    std::vector<std::string_view> exceptClasses;
    std::vector<const HookRow *> exceptRows;
};

// The rows of the groups, in table order, less the classes and rows left out.
std::vector<const HookRow *> rowsOf(const RowSelection &selection) {
    const auto contains = [](const auto &list, const auto &item) {
        return std::find(list.begin(), list.end(), item) != list.end();
    };
    std::vector<const HookRow *> rows;
    for (const HookRow &hook : hookTable()) {
        if (contains(selection.groups, hook.group) && !contains(selection.exceptClasses, hook.className) &&
            !contains(selection.exceptRows, &hook)) {
            rows.push_back(&hook);
        }
    }
    return rows;
}

std::vector<Event> expectedEvents(const std::vector<const HookRow *> &rows) {
    std::vector<Event> events;
    for (const HookRow *hook : rows) {
        const std::string owner = (isClassMethod(hook->kind) ? "+" : "") + std::string(hook->className);
        events.push_back(
            {isReplacement(hook->kind) ? Event::What::Replace : Event::What::Add, owner, std::string(hook->selector)});
    }
    return events;
}

const std::vector<std::string> kOlderStoreKitUIClasses = {"SKUIItemOfferButton",
                                                          "SKUIItemCellLayout",
                                                          "SKUIItemBrowseCellLayout",
                                                          "SKUIOfferView",
                                                          "SKUIDocumentContainerViewController",
                                                          "SKUIProductLockupCollectionViewCell",
                                                          "SKUIItemStateCenter",
                                                          "SKUIStorePageSectionsViewController"};
const std::vector<std::string> kOlderStoreClasses = {
    "SSPurchaseManager",           "IKAppDocument",        "ASAppDelegate",
    "ASUpdatesViewController",     "ASUpdatesPageSection", "SSSoftwareUpdatesStore",
    "SSUpdatesDatabaseTransaction"};
const std::vector<std::string> kRedesignedStoreClasses = {"AppStore.OfferButton", "AppStoreKit.Store",
                                                          "AppStoreKit.ASKGlobal", "AppStore.AccountViewController",
                                                          "AppStore.UpdatesViewController"};
const std::vector<std::string> kAnalyticsClasses = {"QVGAAnalytics", "QVRemoteMessageManager"};

enum class StoreKitUI { AlreadyLoaded, LoadedOnDemand, Unavailable };

struct ProcessCase {
    const char *name;
    std::string_view bundleId;
    StoreKitUI storeKitUI;
    bool olderStore;
    bool redesignedStore;
    bool stateCenterHasOldPerformPurchases;
    RowSelection expectedRows;
    bool expectLoad;
};

void defineProcessClasses(FakeRuntime &runtime, const ProcessCase &process) {
    runtime.defineClass("NSBundle");
    for (const auto &name : kAnalyticsClasses) {
        runtime.defineClass(name);
    }
    for (const auto &name : kOlderStoreKitUIClasses) {
        if (process.storeKitUI == StoreKitUI::AlreadyLoaded) {
            runtime.defineClass(name);
        } else if (process.storeKitUI == StoreKitUI::LoadedOnDemand) {
            runtime.defineClassInFramework(std::string(kStoreKitUIBinary), name);
        }
    }
    if (process.olderStore) {
        for (const auto &name : kOlderStoreClasses) {
            runtime.defineClass(name);
        }
    }
    if (process.redesignedStore) {
        for (const auto &name : kRedesignedStoreClasses) {
            runtime.defineRuntimeOnlyClass(name);
        }
    }
    if (process.stateCenterHasOldPerformPurchases) {
        runtime.defineInstanceMethod(
            "SKUIItemStateCenter",
            std::string(hookRow(rowOf("SKUIItemStateCenter", "_performPurchases:withClientContext:completionBlock:"))
                            .selector));
    }
}

class StartUpInProcess : public ::testing::TestWithParam<ProcessCase> {};

TEST_P(StartUpInProcess, InstallsExactlyTheExpectedRowsInOrder) {
    const ProcessCase &process = GetParam();
    FakeRuntime runtime{std::string(process.bundleId)};
    defineProcessClasses(runtime, process);
    PhoneBodies all;
    startUp(runtime, all.bodies, {});

    std::vector<Event> expected;
    if (process.expectLoad) {
        expected.push_back({Event::What::Log, {}, "installStoreHooks: LOADING StoreKitUI"});
        expected.push_back({Event::What::LoadFramework, {}, std::string(kStoreKitUIBinary)});
    }
    const auto rows = expectedEvents(rowsOf(process.expectedRows));
    expected.insert(expected.end(), rows.begin(), rows.end());
    EXPECT_EQ(runtime.events(), expected);
}

using enum HookGroup;

// The groups every process gets whose classes the older store has; the redesigned store adds its own.
const std::vector<HookGroup> kOlderStoreGroups = {AppStore,     StoreKit,       AvaliableTweaks, SkuiCenter10_2,
                                                  Ungrouped,    Bundle,         GaiConfig,       Gai,
                                                  UpdatesTable, UpdateSections, StoreServices};
const std::vector<HookGroup> kEveryProcessGroups = {Bundle,       GaiConfig,      Gai,
                                                    UpdatesTable, UpdateSections, StoreServices};

INSTANTIATE_TEST_SUITE_P(
    Processes, StartUpInProcess,
    ::testing::Values(
        ProcessCase{"AppStoreOnOlderStore",
                    kAppStoreBundleId,
                    StoreKitUI::LoadedOnDemand,
                    true,
                    false,
                    false,
                    {kOlderStoreGroups, {}, {}},
                    true},
        ProcessCase{"AppStoreOnRedesignedStore",
                    kAppStoreBundleId,
                    StoreKitUI::Unavailable,
                    false,
                    true,
                    false,
                    {{SkuiCenter11_3_1, Bundle, GaiConfig, Gai, Ios11}, {"ASAppDelegate"}, {}},
                    true},
        ProcessCase{"StoreDaemon",
                    kStoreDaemonBundleId,
                    StoreKitUI::AlreadyLoaded,
                    true,
                    true,
                    false,
                    {{Ungrouped, Bundle, GaiConfig, Gai, UpdatesTable, UpdateSections, StoreServices, Ios11}, {}, {}},
                    false},
        ProcessCase{"DaemonWithoutStoreKitUI",
                    kStoreDaemonBundleId,
                    StoreKitUI::LoadedOnDemand,
                    true,
                    false,
                    false,
                    {kEveryProcessGroups, {}, {}},
                    false},
        ProcessCase{"StateCenterKeepsOldPerformPurchases",
                    kAppStoreBundleId,
                    StoreKitUI::AlreadyLoaded,
                    true,
                    false,
                    true,
                    {kOlderStoreGroups,
                     {},
                     {&row("SKUIItemStateCenter", "_performPurchases:withClientContext:completionBlock:")}},
                    false},
        ProcessCase{"StoreKitUIAlreadyLoaded",
                    kAppStoreBundleId,
                    StoreKitUI::AlreadyLoaded,
                    true,
                    false,
                    false,
                    {kOlderStoreGroups, {}, {}},
                    false}),
    [](const auto &info) { return std::string(info.param.name); });

// The steps run between the batches in the order the phone depends on: the pending table after the store hooks,
// the resources before their hooks, the updates' objects before theirs.
TEST(StartUp, RunsItsStepsBetweenTheBatches) {
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    defineClasses(runtime, {"SKUIItemStateCenter", "SKUIOfferView", "NSBundle"});
    runtime.defineClass("ASUpdatesPageSection");
    PhoneBodies all;
    std::vector<std::string> order;
    const auto mark = [&](const char *step) {
        return [&order, &runtime, step] {
            order.push_back(std::string(step) + " after " + std::to_string(runtime.events().size()));
        };
    };
    startUp(runtime, all.bodies, {mark("pending"), mark("resources"), mark("updates")});

    const std::vector<Event> expected =
        expectedEvents({&row("SKUIOfferView", "qv_libraryItem"), &row("SKUIOfferView", "_buttonAction:"),
                        &row("SKUIItemStateCenter", "_performPurchases:withClientContext:completionBlock:"),
                        &row("NSBundle", "pathForResource:ofType:"), &row("ASUpdatesPageSection", "items")});
    EXPECT_EQ(runtime.events(), expected);
    EXPECT_EQ(order, (std::vector<std::string>{"pending after 3", "resources after 3", "updates after 4"}));
}

// A second start-up must not replace our own bodies again: orig would then point at them and call itself.
TEST(StartUp, ASecondStartUpInstallsNothingAgain) {
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    defineClasses(runtime, {"SKUIItemStateCenter", "SKUIOfferView", "NSBundle"});
    PhoneBodies all;
    startUp(runtime, all.bodies, {});
    const auto origAfterFirst = all.origSlots;
    const std::size_t eventsAfterFirst = runtime.events().size();
    startUp(runtime, all.bodies, {});
    EXPECT_EQ(all.origSlots, origAfterFirst);
    for (std::size_t index = eventsAfterFirst; index < runtime.events().size(); ++index) {
        EXPECT_NE(runtime.events()[index].what, Event::What::Replace) << runtime.events()[index].detail;
    }
    EXPECT_EQ(runtime.implementationOf("NSBundle", "pathForResource:ofType:"), dummyImplementation);
}

struct BindingCase {
    const char *name;
    std::size_t row;
    bool withImplementation;
    bool withOrig;
    bool expectInstalled;
};

class RowValidation : public ::testing::TestWithParam<BindingCase> {};

TEST_P(RowValidation, InstallsOnlyCompleteBindings) {
    const BindingCase &binding = GetParam();
    const HookRow &hook = hookRow(binding.row);
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    runtime.defineClass("SKUIItemStateCenter");
    runtime.defineClass(std::string(hook.className));
    MethodImplementation orig = nullptr;
    HookBodies bodies;
    bodies[hook] = {binding.withImplementation ? dummyImplementation : nullptr, binding.withOrig ? &orig : nullptr};
    installHookBatch(hook.batch, runtime, bodies);
    EXPECT_EQ(runtime.events().size(), binding.expectInstalled ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Bindings, RowValidation,
    ::testing::Values(
        BindingCase{"ReplacementWithOrigSlot", rowOf("NSBundle", "pathForResource:ofType:"), true, true, true},
        BindingCase{"ReplacementWithoutOrigSlot", rowOf("NSBundle", "pathForResource:ofType:"), true, false, false},
        BindingCase{"ReplacementWithoutImplementation", rowOf("NSBundle", "pathForResource:ofType:"), false, true,
                    false},
        BindingCase{"AdditionNeedsNoOrigSlot", rowOf("SKUIOfferView", "qv_libraryItem"), true, false, true},
        BindingCase{"AdditionWithoutImplementation", rowOf("SKUIOfferView", "qv_libraryItem"), false, false, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(RowInstallation, KeepsTheReplacedImplementationAndTheSignature) {
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    defineClasses(runtime, {"SKUIItemStateCenter", "SKUIOfferView", "NSBundle"});
    PhoneBodies all;
    startUp(runtime, all.bodies, {});
    EXPECT_EQ(all.origSlots.at(row("NSBundle", "pathForResource:ofType:").number), FakeRuntime::originalImplementation);
    EXPECT_EQ(runtime.signatureOf("SKUIOfferView", "qv_libraryItem"), "@@:");
}

TEST(HookTable, BatchesRunInSequence) {
    const auto table = hookTable();
    EXPECT_TRUE(std::is_sorted(table.begin(), table.end(),
                               [](const HookRow &a, const HookRow &b) { return a.batch < b.batch; }));
}

TEST(HookTable, EveryRowIsWellFormed) {
    for (const HookRow &hook : hookTable()) {
        SCOPED_TRACE(hook.number);
        const bool moduleQualified = hook.className.find('.') != std::string_view::npos;
        EXPECT_EQ(hook.lookup == ClassLookup::RuntimeName, moduleQualified);
        // Only the store batch keeps out of the daemon, except its one ungrouped row.
        const bool daemonExcluded = hook.batch == HookBatch::Store && hook.group != HookGroup::Ungrouped;
        EXPECT_EQ(hook.condition != HookCondition::AllProcesses, daemonExcluded);
    }
}

} // namespace
} // namespace qv

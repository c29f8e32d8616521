// The hook table and its installer against a fake runtime: which rows land, in which order, in which process.
#include "core/hook_installer.h"
#include "core/hook_table.h"
#include "core/phone_bodies.h"
#include "fakes/fake_runtime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace qv {
namespace {

using Event = FakeRuntime::Event;

constexpr std::string_view kAppStoreBundleId = "com.apple.AppStore";

void dummyImplementation() {}

// The bodies the phone binds, each replacement with an orig slot of its own.
struct PhoneBodies {
    std::array<MethodImplementation, kHookBodyCount + 1> origSlots{};
    HookBodies bodies;
    PhoneBodies() {
        for (const HookRow &row : hookTable()) {
            if (boundOnPhone(row.body)) {
                bodies[row.body] = {dummyImplementation, &origSlots.at(row.number)};
            }
        }
    }
};

const HookRow &row(int number) {
    return hookTable()[static_cast<std::size_t>(number - 1)];
}

bool isBound(int number) {
    return boundOnPhone(row(number).body);
}

std::vector<Event> expectedEvents(const std::vector<int> &rows) {
    std::vector<Event> events;
    for (const int number : rows) {
        if (!isBound(number)) {
            continue;
        }
        const HookRow &hook = row(number);
        const std::string owner = (isClassMethod(hook.kind) ? "+" : "") + std::string(hook.className);
        events.push_back(
            {isReplacement(hook.kind) ? Event::What::Replace : Event::What::Add, owner, std::string(hook.selector)});
    }
    return events;
}

std::vector<int> rowRange(int first, int last) {
    std::vector<int> rows;
    for (int number = first; number <= last; ++number) {
        rows.push_back(number);
    }
    return rows;
}

std::vector<int> concat(std::initializer_list<std::vector<int>> parts) {
    std::vector<int> all;
    for (const auto &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
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
    std::vector<int> expectedRows;
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
        runtime.defineInstanceMethod("SKUIItemStateCenter",
                                     std::string(hookRow(HookBody::StateCenterPerformPurchases).selector));
    }
}

class StartUpInProcess : public ::testing::TestWithParam<ProcessCase> {};

TEST_P(StartUpInProcess, InstallsExactlyTheExpectedRowsInOrder) {
    const ProcessCase &process = GetParam();
    FakeRuntime runtime{std::string(process.bundleId)};
    defineProcessClasses(runtime, process);
    PhoneBodies all;
    startUp(runtime, all.bodies, nullptr);

    std::vector<Event> expected;
    if (process.expectLoad) {
        expected.push_back({Event::What::Log, {}, "installStoreHooks: LOADING StoreKitUI"});
        expected.push_back({Event::What::LoadFramework, {}, std::string(kStoreKitUIBinary)});
    }
    const auto rows = expectedEvents(process.expectedRows);
    expected.insert(expected.end(), rows.begin(), rows.end());
    EXPECT_EQ(runtime.events(), expected);
}

const std::vector<int> kOlderStoreKitRows = concat({rowRange(1, 16), {33}});
const std::vector<int> kEveryProcessRows = concat({rowRange(34, 45), rowRange(46, 64)});

INSTANTIATE_TEST_SUITE_P(
    Processes, StartUpInProcess,
    ::testing::Values(ProcessCase{"AppStoreOnOlderStore", kAppStoreBundleId, StoreKitUI::LoadedOnDemand, true, false,
                                  false, concat({kOlderStoreKitRows, kEveryProcessRows}), true},
                      ProcessCase{"AppStoreOnRedesignedStore", kAppStoreBundleId, StoreKitUI::Unavailable, false, true,
                                  false, concat({rowRange(17, 32), rowRange(34, 41), rowRange(65, 73)}), true},
                      ProcessCase{"StoreDaemon", kStoreDaemonBundleId, StoreKitUI::AlreadyLoaded, true, true, false,
                                  concat({{33}, kEveryProcessRows, rowRange(65, 73)}), false},
                      ProcessCase{"DaemonWithoutStoreKitUI", kStoreDaemonBundleId, StoreKitUI::LoadedOnDemand, true,
                                  false, false, kEveryProcessRows, false},
                      ProcessCase{"StateCenterKeepsOldPerformPurchases", kAppStoreBundleId, StoreKitUI::AlreadyLoaded,
                                  true, false, true, concat({rowRange(1, 15), {33}, kEveryProcessRows}), false},
                      ProcessCase{"StoreKitUIAlreadyLoaded", kAppStoreBundleId, StoreKitUI::AlreadyLoaded, true, false,
                                  false, concat({kOlderStoreKitRows, kEveryProcessRows}), false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(StartUp, CreatesThePendingTableBetweenStoreAndResourceBatches) {
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    runtime.defineClass("SKUIItemStateCenter");
    runtime.defineClass("SKUIOfferView");
    runtime.defineClass("NSBundle");
    PhoneBodies all;
    std::size_t eventsWhenTableCreated = 0;
    startUp(runtime, all.bodies, [&] { eventsWhenTableCreated = runtime.events().size(); });

    EXPECT_EQ(runtime.events(), expectedEvents({hookRow(HookBody::OfferViewLibraryItem).number,
                                                hookRow(HookBody::OfferViewButtonAction).number,
                                                hookRow(HookBody::StateCenterPerformPurchases).number,
                                                hookRow(HookBody::BundlePathForResource).number}));
    EXPECT_EQ(eventsWhenTableCreated, 3U);
}

struct BindingCase {
    const char *name;
    HookBody body;
    bool withImplementation;
    bool withOrig;
    bool expectInstalled;
};

class RowValidation : public ::testing::TestWithParam<BindingCase> {};

TEST_P(RowValidation, InstallsOnlyCompleteBindings) {
    const BindingCase &binding = GetParam();
    const HookRow &hook = hookRow(binding.body);
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    runtime.defineClass("SKUIItemStateCenter");
    runtime.defineClass(std::string(hook.className));
    MethodImplementation orig = nullptr;
    HookBodies bodies;
    bodies[binding.body] = {binding.withImplementation ? dummyImplementation : nullptr,
                            binding.withOrig ? &orig : nullptr};
    installHookBatch(hook.batch, runtime, bodies);
    EXPECT_EQ(runtime.events().size(), binding.expectInstalled ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Bindings, RowValidation,
    ::testing::Values(
        BindingCase{"ReplacementWithOrigSlot", HookBody::BundlePathForResource, true, true, true},
        BindingCase{"ReplacementWithoutOrigSlot", HookBody::BundlePathForResource, true, false, false},
        BindingCase{"ReplacementWithoutImplementation", HookBody::BundlePathForResource, false, true, false},
        BindingCase{"AdditionNeedsNoOrigSlot", HookBody::OfferViewLibraryItem, true, false, true},
        BindingCase{"AdditionWithoutImplementation", HookBody::OfferViewLibraryItem, false, false, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(RowInstallation, KeepsTheReplacedImplementationAndTheSignature) {
    FakeRuntime runtime{std::string(kAppStoreBundleId)};
    runtime.defineClass("SKUIItemStateCenter");
    runtime.defineClass("SKUIOfferView");
    runtime.defineClass("NSBundle");
    PhoneBodies all;
    startUp(runtime, all.bodies, nullptr);
    // The fake had no implementation to keep.
    EXPECT_EQ(all.origSlots.at(hookRow(HookBody::BundlePathForResource).number), nullptr);
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

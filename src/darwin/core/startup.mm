// The library's load-time entry points and the one place that creates the process-wide objects.
#include "darwin/core/startup.h"

#include "core/hook_installer.h"
#include "darwin/adapters/application_proxy_apps.h"
#include "darwin/adapters/application_proxy_container.h"
#include "darwin/adapters/bundle_files.h"
#include "darwin/adapters/dispatch_queues.h"
#include "darwin/adapters/keyed_archive_file.h"
#include "darwin/adapters/mail_composer.h"
#include "darwin/adapters/notification_centres.h"
#include "darwin/adapters/uikit_ui.h"
#include "darwin/adapters/url_session_http.h"
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/install_layout.h"
#include "darwin/service/resources.h"
#include "darwin/store/phone_store_purchasing.h"
#include "downgrade/versions_list_model.h"
#include "store/purchase_intercept.h"
#include "updates/block_failure_prompt.h"
#include "updates/blocked_list_model.h"
#include "updates/blocked_updates.h"

#import <CoreFoundation/CoreFoundation.h>

#include <dlfcn.h>

#include <string>

// The store's public lookup endpoint by default; a deployment may point the phone elsewhere (QV_PHONE_LOOKUP_URL).
#ifndef QV_PHONE_LOOKUP_URL
#define QV_PHONE_LOOKUP_URL "https://itunes.apple.com/"
#endif
// Where the support mail after a failed block goes (QV_SUPPORT_EMAIL).
#ifndef QV_SUPPORT_EMAIL
#define QV_SUPPORT_EMAIL "support@quorvane.com"
#endif

namespace qv::darwin {
namespace {

// Where this library was loaded from; a rootless install finds its jailbreak root from it. Asked with the address of
// data in the library: a function's address is a signed pointer on arm64e, not a plain address.
std::string loadedLibraryPath() {
    static const char inThisLibrary = 0;
    Dl_info info{};
    if (dladdr(&inThisLibrary, &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    return info.dli_fname;
}

const HookBodies &hookBodies() {
    static const HookBodies *const bodies = [] {
        auto *all = new HookBodies();
        bindStoreObjectBodies(*all);
        bindOfferButtonBodies(*all);
        bindOfferConfirmBodies(*all);
        bindHoldHintBodies(*all);
        bindTweaksPageBodies(*all);
        bindPurchasePipelineBodies(*all);
        bindResourceBodies(*all);
        bindAnalyticsBodies(*all);
        bindUpdateFilterBodies(*all);
        bindUpdatesTableBodies(*all);
        bindUpdateSwipeBodies(*all);
        bindRedesignedUpdatesBodies(*all);
        // Each file checks its own table while it compiles; this catches a file whose table is never bound here.
        for (const HookRow &row : hookTable()) {
            if (boundOnPhone(row.body) && (*all)[row.body].implementation == nullptr) {
                objcRuntime().log("hookBodies: no body bound for hook row " + std::to_string(row.number));
            }
        }
        return all;
    }();
    return *bodies;
}

// Must run before any hook body can ask for the shared store.
void configureBlockedUpdatesStore() {
    static auto *const archiveFile = new KeyedArchiveFile();
    static auto *const notifier = new NotificationCentres();
    static auto *const container = new ApplicationProxyContainer();
    BlockedUpdates::configureShared(
        {archiveFile, notifier, BlockedUpdates::fileInContainer(*container), kCFCoreFoundationVersionNumber});
}

Http &http() {
    static auto *const http = new UrlSessionHttp();
    return *http;
}

Queues &queues() {
    static auto *const queues = new DispatchQueues();
    return *queues;
}

Notifier &notifier() {
    static auto *const centres = new NotificationCentres();
    return *centres;
}

} // namespace

UikitUi &ui() {
    static auto *const ui = new UikitUi();
    return *ui;
}

ServiceClient &serviceClient() {
    static auto *const client = new ServiceClient(http(), queues(), settingsPreferences(),
                                                  ServiceEndpoints::make(QV_DEFAULT_API_BASE_URL, QV_PHONE_LOOKUP_URL));
    return *client;
}

DowngradeFlows &downgradeFlows() {
    static auto *const flows = new DowngradeFlows{
        ui(),
        [](const std::string &storeIdentifier) {
            // Asked each time a list opens: the person may have pointed the phone at their own service since.
            const VersionsSource source = serviceVersionsSource(http(), queues(), serviceClient().apiBaseUrl());
            return std::make_shared<VersionsListModel>(ui(), source, storeIdentifier);
        },
        [] { return settings().value(Setting::DisableUpdateBlocker); },
    };
    return *flows;
}

StorePurchasing &storePurchasing() {
    static auto *const purchasing = new PhoneStorePurchasing();
    return *purchasing;
}

const StoreIdentifierLookup &storeIdentifierLookup() {
    static const auto *const lookup =
        new StoreIdentifierLookup([](const std::string &bundleIdentifier, std::function<void(std::string)> completion) {
            serviceClient().getStoreIdentifierWithBundleId(bundleIdentifier, std::move(completion));
        });
    return *lookup;
}

const BundleIdentifierLookup &bundleIdentifierLookup() {
    static const auto *const lookup =
        new BundleIdentifierLookup([](const std::string &storeIdentifier, std::function<void(std::string)> completion) {
            serviceClient().getBundleIdWithStoreIdentifier(storeIdentifier, std::move(completion));
        });
    return *lookup;
}

UpdateBlocker &updateBlocker() {
    static auto *const mail = new MailComposer();
    static auto *const failureAlert = new BlockFailurePrompt(ui(), *mail, QV_SUPPORT_EMAIL);
    static auto *const blocker = new UpdateBlocker(BlockedUpdates::shared(), notifier(), *failureAlert);
    return *blocker;
}

DefaultsPreferences &settingsPreferences() {
    static auto *const preferences = [] {
        static const auto *const container = new ApplicationProxyContainer();
        auto *made = new DefaultsPreferences(makeSettingsDefaults(*container));
        registerFactoryDefaults(*made, readFactoryDefaults());
        return made;
    }();
    return *preferences;
}

SettingsModel &settings() {
    static auto *const model = new SettingsModel(settingsPreferences(), notifier());
    return *model;
}

const std::shared_ptr<SettingsFormModel> &settingsForm() {
    static const auto *const form = new std::shared_ptr<SettingsFormModel>(std::make_shared<SettingsFormModel>(
        ui(), settings(), notifier(), [](std::function<void()> deletedUpdate) -> std::shared_ptr<ScreenModel> {
            return std::make_shared<BlockedListModel>(BlockedUpdates::shared(), installedApps(),
                                                      std::move(deletedUpdate));
        }));
    return *form;
}

const InstalledApps &installedApps() {
    static const auto *const apps = new ApplicationProxyApps();
    return *apps;
}

ObjcRuntime &objcRuntime() {
    static auto *const runtime = new ObjcRuntime();
    return *runtime;
}

const ResourceBundle &resourceBundle() {
    static auto *const files = new BundleFiles();
    static const auto *const bundle = new ResourceBundle(
        *files, resourceBundlePath(installLayout(), jailbreakRootFromLibraryPath(loadedLibraryPath())));
    return *bundle;
}

LatestStore &latestStore() {
    static auto *const store = new LatestStore();
    return *store;
}

} // namespace qv::darwin

// Initialisers of one file run in the order they are defined here.
__attribute__((constructor)) static void installStoreHooksAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { qv::installStoreHooks(qv::darwin::objcRuntime(), qv::darwin::hookBodies()); });
    }
}

__attribute__((constructor)) static void createPendingDowngradeTableAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { static_cast<void>(qv::PendingDowngrades::shared()); });
    }
}

__attribute__((constructor)) static void installResourceAndAnalyticsHooksAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] {
            static_cast<void>(qv::darwin::resourceBundle());
            qv::installResourceAndAnalyticsHooks(qv::darwin::objcRuntime(), qv::darwin::hookBodies());
        });
    }
}

__attribute__((constructor)) static void installUpdateHooksAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { qv::darwin::configureBlockedUpdatesStore(); });
        qv::darwin::guarded([] { qv::installUpdateHooks(qv::darwin::objcRuntime(), qv::darwin::hookBodies()); });
    }
}

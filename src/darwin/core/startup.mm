// The library's load-time entry points and the one place that creates the process-wide objects.
#include "darwin/core/startup.h"

#include "core/hook_installer.h"
#include "darwin/adapters/application_proxy_container.h"
#include "darwin/adapters/bundle_files.h"
#include "darwin/adapters/keyed_archive_file.h"
#include "darwin/adapters/notification_centres.h"
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/install_layout.h"
#include "store/purchase_intercept.h"
#include "updates/blocked_updates.h"

#import <CoreFoundation/CoreFoundation.h>

#include <dlfcn.h>

#include <string>

namespace qv::darwin {
namespace {

// Where this library was loaded from; a rootless install finds its jailbreak root from it.
std::string loadedLibraryPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&loadedLibraryPath), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    return info.dli_fname;
}

const HookBodies &hookBodies() {
    static const HookBodies *const bodies = [] {
        auto *all = new HookBodies();
        bindStoreObjectBodies(*all);
        bindPurchasePipelineBodies(*all);
        bindResourceBodies(*all);
        bindAnalyticsBodies(*all);
        bindUpdateFilterBodies(*all);
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

} // namespace

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

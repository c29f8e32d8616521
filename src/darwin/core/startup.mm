// The library's load-time entry points: four initialisers that run, in this order, while the library loads.
#include "core/hook_installer.h"
#include "darwin/adapters/objc_runtime.h"
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/updates/blocked_updates_setup.h"
#include "store/purchase_intercept.h"

namespace qv::darwin {

const HookBodies &hookBodies() {
    static const HookBodies bodies = [] {
        HookBodies all;
        bindStoreObjectBodies(all);
        bindPurchasePipelineBodies(all);
        bindResourceBodies(all);
        bindAnalyticsBodies(all);
        bindUpdateFilterBodies(all);
        return all;
    }();
    return bodies;
}

namespace {

ObjcRuntime &runtime() {
    static ObjcRuntime objcRuntime;
    return objcRuntime;
}

} // namespace
} // namespace qv::darwin

// Initialisers of one file run in the order they are defined here.
__attribute__((constructor)) static void installStoreHooksAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { qv::installStoreHooks(qv::darwin::runtime(), qv::darwin::hookBodies()); });
    }
}

__attribute__((constructor)) static void createPendingDowngradeTableAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { static_cast<void>(qv::PendingDowngrades::shared()); });
    }
}

__attribute__((constructor)) static void installResourceAndAnalyticsHooksAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded(
            [] { qv::installResourceAndAnalyticsHooks(qv::darwin::runtime(), qv::darwin::hookBodies()); });
    }
}

__attribute__((constructor)) static void installUpdateHooksAtLoad() {
    @autoreleasepool {
        qv::darwin::guarded([] { qv::darwin::configureBlockedUpdatesStore(); });
        qv::darwin::guarded([] { qv::installUpdateHooks(qv::darwin::runtime(), qv::darwin::hookBodies()); });
    }
}

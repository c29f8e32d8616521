// Installs hook rows: validate the row and its body, look the class up, then add or replace exactly once.
#include "core/hook_installer.h"

#include <string>

namespace qv {
namespace {

constexpr std::string_view kInstallerRoutineName = "installStoreHooks";

ClassHandle lookUpClass(Runtime &runtime, const HookRow &row) {
    const std::string name(row.className);
    return row.lookup == ClassLookup::RuntimeName ? runtime.classForRuntimeName(name) : runtime.classNamed(name);
}

bool bodyFitsRow(const HookRow &row, const HookBinding &binding) {
    if (binding.implementation == nullptr) {
        return false;
    }
    if (isReplacement(row.kind)) {
        // A filled orig slot means the row is installed already; replacing again would make orig our own body.
        return binding.orig != nullptr && *binding.orig == nullptr;
    }
    return !row.typeSignature.empty();
}

void installRow(const HookRow &row, Runtime &runtime, const HookBodies &bodies, bool daemon) {
    if (daemon && row.condition != HookCondition::AllProcesses) {
        return;
    }
    const HookBinding &binding = bodies[row];
    if (!bodyFitsRow(row, binding)) {
        return;
    }
    const ClassHandle cls = lookUpClass(runtime, row);
    if (cls == nullptr) {
        return;
    }
    const std::string selector(row.selector);
    if (row.condition == HookCondition::NotDaemonAndInstancesLackSelector &&
        runtime.instancesRespondToSelector(cls, selector)) {
        return;
    }
    const ClassHandle target = isClassMethod(row.kind) ? runtime.classObjectOf(cls) : cls;
    if (target == nullptr) {
        return;
    }
    if (isReplacement(row.kind)) {
        runtime.replaceMethod(target, selector, binding.implementation, binding.orig);
    } else {
        runtime.addMethod(target, selector, binding.implementation, std::string(row.typeSignature));
    }
}

} // namespace

bool isStoreDaemon(std::string_view mainBundleIdentifier) {
    return mainBundleIdentifier == kStoreDaemonBundleId;
}

void installHookBatch(HookBatch batch, Runtime &runtime, const HookBodies &bodies) {
    const bool daemon = isStoreDaemon(runtime.mainBundleIdentifier());
    for (const HookRow &row : hookTable()) {
        if (row.batch == batch) {
            installRow(row, runtime, bodies, daemon);
        }
    }
}

void installStoreHooks(Runtime &runtime, const HookBodies &bodies) {
    if (!isStoreDaemon(runtime.mainBundleIdentifier()) &&
        runtime.classForRuntimeName(std::string(kStoreStateCenterClass)) == nullptr) {
        runtime.log(std::string(kInstallerRoutineName) + ": LOADING StoreKitUI");
        runtime.loadFramework(std::string(kStoreKitUIBinary));
    }
    installHookBatch(HookBatch::Store, runtime, bodies);
}

void installResourceAndAnalyticsHooks(Runtime &runtime, const HookBodies &bodies) {
    installHookBatch(HookBatch::ResourcesAndAnalytics, runtime, bodies);
}

void installUpdateHooks(Runtime &runtime, const HookBodies &bodies) {
    installHookBatch(HookBatch::Updates, runtime, bodies);
}

namespace {

void run(const std::function<void()> &step) {
    if (step) {
        step();
    }
}

} // namespace

void startUp(Runtime &runtime, const HookBodies &bodies, const StartUpSteps &steps) {
    installStoreHooks(runtime, bodies);
    run(steps.createPendingTable);
    run(steps.beforeResourceHooks);
    installResourceAndAnalyticsHooks(runtime, bodies);
    run(steps.beforeUpdateHooks);
    installUpdateHooks(runtime, bodies);
}

} // namespace qv

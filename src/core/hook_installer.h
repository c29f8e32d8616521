// Walks the hook table through the Runtime port and runs the load-time batches in their fixed order.
#pragma once

#include "core/hook_binding.h"
#include "core/hook_table.h"
#include "platform/runtime.h"

#include <functional>
#include <string_view>

namespace qv {

inline constexpr std::string_view kStoreDaemonBundleId = "com.apple.itunesstored";
inline constexpr std::string_view kStoreStateCenterClass = "SKUIItemStateCenter";
inline constexpr std::string_view kStoreKitUIBinary =
    "/System/Library/PrivateFrameworks/StoreKitUI.framework/StoreKitUI";

bool isStoreDaemon(std::string_view mainBundleIdentifier);

// Installs every row of one batch whose body is bound, whose condition holds and whose class exists here.
// Rows are checked completely before anything is changed; a row that fails a check is passed over quietly, and
// so is a replacement whose orig slot is already filled.
void installHookBatch(HookBatch batch, Runtime &runtime, const HookBodies &bodies);

// The store batch, preceded (outside the daemon) by the one-time StoreKitUI load when its classes are missing.
void installStoreHooks(Runtime &runtime, const HookBodies &bodies);
void installResourceAndAnalyticsHooks(Runtime &runtime, const HookBodies &bodies);
void installUpdateHooks(Runtime &runtime, const HookBodies &bodies);

// What start-up creates between the batches; each step may be empty.
struct StartUpSteps {
    std::function<void()> createPendingTable;  // after the store hooks
    std::function<void()> beforeResourceHooks; // the resource bundle their bodies read
    std::function<void()> beforeUpdateHooks;   // the blocked-updates store and the settings their bodies use
};

// All of start-up in order: store hooks, the pending-downgrade table, resources and analytics, updates. A row
// already installed (its orig slot is filled) is not installed again, so running start-up twice changes nothing.
void startUp(Runtime &runtime, const HookBodies &bodies, const StartUpSteps &steps);

} // namespace qv

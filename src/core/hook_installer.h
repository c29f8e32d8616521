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
// Rows are checked completely before anything is changed; a row that fails a check is passed over quietly.
void installHookBatch(HookBatch batch, Runtime &runtime, const HookBodies &bodies);

// The store batch, preceded (outside the daemon) by the one-time StoreKitUI load when its classes are missing.
void installStoreHooks(Runtime &runtime, const HookBodies &bodies);
void installResourceAndAnalyticsHooks(Runtime &runtime, const HookBodies &bodies);
void installUpdateHooks(Runtime &runtime, const HookBodies &bodies);

// All of start-up in order: store hooks, the pending-downgrade table, resources and analytics, updates.
// The table is created through createPendingTable so tests can observe where in the order it happens.
void startUp(Runtime &runtime, const HookBodies &bodies, const std::function<void()> &createPendingTable);

} // namespace qv

// Ownership attributes for calls and bodies of init- and new-family methods, which ARC cannot see through casts.
#pragma once

// The receiver of an init-family method: ownership passes to the callee.
#define QV_CONSUMED_SELF __attribute__((ns_consumed)) id
// The result of an init-, new- or copy-family method: handed over owned (+1). Leading underscores do not change
// the family, so a body for "_copyUpdates" needs this too.
#define QV_RETURNS_RETAINED __attribute__((ns_returns_retained))

// A block the store hands over whose arguments the library never looks at. Typed as a block, never as id, so
// that keeping it copies it off the caller's stack: ARC retains an id without copying, and a stack block kept that
// way is used after its frame is gone. Keep it with [block copy] all the same, so the copy is visible.
typedef void (^QVStoreBlock)(void);

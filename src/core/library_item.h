// Resolves an offer view of the older store to the library item of its app.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>

namespace qv {

// How far up the responder chain the document container may sit above an offer view.
inline constexpr std::int64_t kDocumentContainerSearchDepth = 10;
inline constexpr std::string_view kLockupElementKey = "_lockupElement";
inline constexpr std::string_view kLockupKey = "_lockup";
inline constexpr std::string_view kPersonalizationItemsKey = "_personalizationItems";

enum class OfferDelegateKind { HorizontalLockupView, ProductLockupCell, Other };

// The store objects around an offer view. Object is a handle; Object{} is "nothing" and converts to false.
// valueForKey reads a private member by key; firstPersonalizationItem is the first of the lockup's library items;
// anyMember is any one member of a set.
template <class Store>
concept OfferSurroundings = std::copyable<typename Store::Object> &&
    std::default_initializable<typename Store::Object> &&
    requires(Store &store, const typename Store::Object &object, std::int64_t depth, std::string_view key) {
    {static_cast<bool>(object)};
    { store.documentContainerAbove(object, depth) } -> std::convertible_to<typename Store::Object>;
    { store.delegateOf(object) } -> std::convertible_to<typename Store::Object>;
    { store.delegateKind(object) } -> std::same_as<OfferDelegateKind>;
    { store.valueForKey(object, key) } -> std::convertible_to<typename Store::Object>;
    { store.firstPersonalizationItem(object) } -> std::convertible_to<typename Store::Object>;
    { store.anyMember(object) } -> std::convertible_to<typename Store::Object>;
};

// The lockup the delegate points at wins; without one, the container's personalisation items answer.
template <OfferSurroundings Store>
typename Store::Object libraryItemForOfferView(Store &store, const typename Store::Object &view) {
    using Object = typename Store::Object;
    const Object container = store.documentContainerAbove(view, kDocumentContainerSearchDepth);
    const Object delegate = store.delegateOf(view);
    Object lockup{};
    switch (store.delegateKind(delegate)) {
    case OfferDelegateKind::HorizontalLockupView:
        lockup = store.valueForKey(delegate, kLockupElementKey);
        break;
    case OfferDelegateKind::ProductLockupCell:
        lockup = store.valueForKey(delegate, kLockupKey);
        break;
    case OfferDelegateKind::Other:
        break;
    }
    if (lockup) {
        return store.firstPersonalizationItem(lockup);
    }
    if (!container) {
        return Object{};
    }
    return store.anyMember(store.valueForKey(container, kPersonalizationItemsKey));
}

} // namespace qv

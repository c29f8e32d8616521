// Resolves an offer view of the older store to the library item of its app.
#pragma once

#include <cstdint>
#include <string_view>

namespace qv {

// How far up the responder chain the document container may sit above an offer view.
inline constexpr std::int64_t kDocumentContainerSearchDepth = 10;
inline constexpr std::string_view kLockupElementKey = "_lockupElement";
inline constexpr std::string_view kLockupKey = "_lockup";
inline constexpr std::string_view kPersonalizationItemsKey = "_personalizationItems";

enum class OfferDelegateKind { HorizontalLockupView, ProductLockupCell, Other };

// Store requirements (member functions of the store object):
//   Object                                   handle; Object{} is "nothing" and converts to false
//   documentContainerAbove(offerView, depth) the container up the responder chain, or Object{}
//   delegateOf(offerView), delegateKind(delegate)
//   valueForKey(object, key)                 the private member read by key
//   firstPersonalizationItem(lockup)         first of all objects of the lockup's library items set
//   anyMember(set)                           any one member of a set, or Object{}
// The lockup the delegate points at wins; without one, the container's personalisation items answer.
template <class Store>
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

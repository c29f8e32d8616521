// A view tree and responder chain described by names, and the offer view's store surroundings, for the searches.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/library_item.h"

namespace qv {

// A tree described by "name:kind" nodes; a node's kind is what isKind matches.
struct FakeTree {
    using Node = const char *;
    using Class = std::string;

    std::map<std::string, std::vector<Node>> subviews;
    std::map<std::string, Node> next;
    std::map<std::string, std::string> kinds;
    mutable std::vector<std::string> childrenAskedOf;

    std::vector<Node> children(Node node) {
        childrenAskedOf.emplace_back(node);
        const auto found = subviews.find(node);
        return found == subviews.end() ? std::vector<Node>{} : found->second;
    }
    bool isKind(Node node, const Class &cls) const { return kindOf(node) == cls; }
    Node nextResponder(Node node) const {
        const auto found = next.find(node);
        return found == next.end() ? nullptr : found->second;
    }
    bool isViewController(Node node) const { return kindOf(node) == "controller"; }
    bool isView(Node node) const { return kindOf(node) != "controller" && kindOf(node) != "application"; }
    std::string kindOf(Node node) const {
        const auto found = kinds.find(node);
        return found == kinds.end() ? "view" : found->second;
    }
};

// The offer view's store surroundings, all optional.
struct FakeStore {
    using Object = const char *;
    Object container = nullptr;
    Object delegate = nullptr;
    OfferDelegateKind kind = OfferDelegateKind::Other;
    std::map<std::string, Object> members;
    std::int64_t askedDepth = 0;

    Object documentContainerAbove(Object /*view*/, std::int64_t depth) {
        askedDepth = depth;
        return container;
    }
    Object delegateOf(Object /*view*/) const { return delegate; }
    OfferDelegateKind delegateKind(Object /*delegate*/) const { return kind; }
    Object valueForKey(Object object, std::string_view key) const {
        const auto found = members.find(std::string(object) + "." + std::string(key));
        return found == members.end() ? nullptr : found->second;
    }
    Object firstPersonalizationItem(Object lockup) const { return valueForKey(lockup, "items.first"); }
    Object anyMember(Object set) const { return set == nullptr ? nullptr : valueForKey(set, "any"); }
};

} // namespace qv

// Bounded searches through view trees and responder chains, written once over an abstract node.
#pragma once

#include <concepts>
#include <cstdint>

namespace qv {

// The one-argument search forms look this many levels deep.
inline constexpr std::int64_t kDefaultSearchDepth = 3;

// A node is a cheap, copyable handle; Node{} is "nothing" and converts to false.
template <class Tree>
concept NodeTree = std::copyable<typename Tree::Node> && std::default_initializable<typename Tree::Node> &&
    requires(const typename Tree::Node &node) {
    {static_cast<bool>(node)};
};

// A view tree: each node's subviews in order, and the kind test.
template <class Tree>
concept SubviewTree = NodeTree<Tree> &&
    requires(Tree &tree, const typename Tree::Node &node, const typename Tree::Class &cls) {
    { *tree.children(node).begin() } -> std::convertible_to<typename Tree::Node>;
    { tree.isKind(node, cls) } -> std::convertible_to<bool>;
};

// A responder chain: the next node up (Node{} at the top) and the kind tests.
template <class Tree>
concept ResponderChain = NodeTree<Tree> && requires(Tree &tree, const typename Tree::Node &node) {
    { tree.nextResponder(node) } -> std::convertible_to<typename Tree::Node>;
};

// The first descendant of kind cls: the direct children are tested before anything deeper, then each child is
// searched depth-first with one level less. The outer loop repeats with ever smaller limits; a smaller search
// cannot find what a larger one missed, and the repetition is kept on purpose so results and cost match the
// store's expectations exactly.
template <SubviewTree Tree>
typename Tree::Node firstSubviewOfClass(Tree &tree, const typename Tree::Node &view, const typename Tree::Class &cls,
                                        std::int64_t maxDepth) {
    using Node = typename Tree::Node;
    if (maxDepth < 1) {
        return Node{};
    }
    const auto subviews = tree.children(view);
    for (std::int64_t depth = maxDepth; depth > 0;) {
        for (const Node &child : subviews) {
            if (tree.isKind(child, cls)) {
                return child;
            }
        }
        --depth;
        for (const Node &child : subviews) {
            if (Node found = firstSubviewOfClass(tree, child, cls, depth)) {
                return found;
            }
        }
    }
    return Node{};
}

// The first responder of kind cls above node (node itself is never tested), looking at most maxDepth steps up.
template <ResponderChain Tree>
requires requires(Tree &tree, const typename Tree::Node &node, const typename Tree::Class &cls) {
    { tree.isKind(node, cls) } -> std::convertible_to<bool>;
}
typename Tree::Node firstResponderOfClass(Tree &tree, const typename Tree::Node &node, const typename Tree::Class &cls,
                                          std::int64_t maxDepth) {
    using Node = typename Tree::Node;
    if (maxDepth == 0) {
        return Node{};
    }
    Node next = tree.nextResponder(node);
    if (!next) {
        return Node{};
    }
    if (tree.isKind(next, cls)) {
        return next;
    }
    return firstResponderOfClass(tree, next, cls, maxDepth - 1);
}

// The nearest view controller up the chain, climbing through views only; no depth limit.
template <ResponderChain Tree>
requires requires(Tree &tree, const typename Tree::Node &node) {
    { tree.isViewController(node) } -> std::convertible_to<bool>;
    { tree.isView(node) } -> std::convertible_to<bool>;
}
typename Tree::Node nearestViewController(Tree &tree, const typename Tree::Node &node) {
    using Node = typename Tree::Node;
    for (Node next = tree.nextResponder(node); next; next = tree.nextResponder(next)) {
        if (tree.isViewController(next)) {
            return next;
        }
        if (!tree.isView(next)) {
            return Node{};
        }
    }
    return Node{};
}

} // namespace qv

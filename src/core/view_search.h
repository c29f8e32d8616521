// Bounded searches through view trees and responder chains, written once over an abstract node.
#pragma once

#include <cstdint>

namespace qv {

// The one-argument search forms look this many levels deep.
inline constexpr std::int64_t kDefaultSearchDepth = 3;

// Tree requirements (all static-free member functions of the tree object):
//   Node            a cheap, copyable handle; Node{} is "nothing" and converts to false
//   Class           what isKind tests against
//   children(node)  the node's subviews, an indexable container with size()
//   isKind(node, cls)
//   nextResponder(node)            the next node up the responder chain, or Node{}
//   isViewController(node), isView(node)

// The first descendant of kind cls: the direct children are tested before anything deeper, then each child is
// searched depth-first with one level less. The outer loop repeats with ever smaller limits; a smaller search
// cannot find what a larger one missed, and the repetition is kept on purpose so results and cost match the
// store's expectations exactly.
template <class Tree>
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
template <class Tree>
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
template <class Tree> typename Tree::Node nearestViewController(Tree &tree, const typename Tree::Node &node) {
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

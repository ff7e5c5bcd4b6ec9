/// @file
/// The one record that serves as head, internal node and leaf of a red-black tree.

#pragma once

#include "general/list.h"

#include <stddef.h>
#include <stdint.h>

enum RbSide : uint32_t { RB_LEFT = 0, RB_RIGHT = 1 };

enum RbFlag : uint32_t {
    RB_RED = 1,       ///< else black
    RB_INTERNAL = 2,  ///< else a leaf or a head
    RB_LEFT_SIDE = 4, ///< left child of its parent, else right
    RB_ROOT = 8,      ///< its parent is the head
    RB_HEAD = 16      ///< the tree's handle
};

/// Leaves hang on a circular list in key order, with the head as its sentinel. An internal node has
/// two children and knows the two neighbouring leaves that it separates: the greatest of its left
/// and the smallest of its right subtree. Rotations leave those pairs as they are.
struct RbNode {
    union {
        ListNode thread;  ///< leaf: next and previous leaf; head: first and last leaf
        RbNode *child[2]; ///< internal node, by RbSide
    };
    RbNode *parent; ///< the root's is the head; the head's is the root, or itself when empty
    uint32_t flags;
    union {
        const void *key;  ///< leaf; an empty string in a head
        RbNode *leafLeft; ///< internal node: greatest leaf of the left subtree
    };
    union {
        void *value;       ///< leaf
        RbNode *leafRight; ///< internal node: smallest leaf of the right subtree
    };

    bool isRed() const { return (flags & RB_RED) != 0; }
    bool isInternal() const { return (flags & RB_INTERNAL) != 0; }
    bool isRoot() const { return (flags & RB_ROOT) != 0; }
    bool isHead() const { return (flags & RB_HEAD) != 0; }
    bool isLeaf() const { return (flags & (RB_INTERNAL | RB_HEAD)) == 0; }
    bool isEmpty() const { return parent == this; } ///< of a head: whether its tree has no leaf
    RbSide side() const { return (flags & RB_LEFT_SIDE) != 0 ? RB_LEFT : RB_RIGHT; }

    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): the analyzer does not see that deleted leaves are unlinked
    RbNode *next() const { return reinterpret_cast<RbNode *>(thread.next); }
    RbNode *previous() const { return reinterpret_cast<RbNode *>(thread.previous); }
};

static_assert(offsetof(RbNode, thread) == 0 && offsetof(RbNode, child) == 0 && offsetof(RbNode, parent) == 8);
static_assert(offsetof(RbNode, flags) == 12 && offsetof(RbNode, key) == 16 && offsetof(RbNode, value) == 20);
static_assert(sizeof(RbNode) == 24);

#include "base/module_id.h"

#include "containers/RedBlack_node.h"

#include "general/redblack.h"

#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace {

RbSide opposite(RbSide side)
{
    return side == RB_LEFT ? RB_RIGHT : RB_LEFT;
}

void paintRed(RbNode *node)
{
    node->flags |= RB_RED;
}

void paintBlack(RbNode *node)
{
    node->flags &= ~uint32_t{RB_RED};
}

RbNode *sibling(const RbNode *node)
{
    return node->parent->child[opposite(node->side())];
}

/// Makes a node the child of an internal node on one side.
void attach(RbNode *parent, RbSide side, RbNode *child)
{
    parent->child[side] = child;
    child->parent = parent;
    if (side == RB_LEFT)
        child->flags |= RB_LEFT_SIDE;
    else
        child->flags &= ~uint32_t{RB_LEFT_SIDE};
}

/// Puts a node into the place that another has under its parent. A node that becomes the root keeps
/// its side bit, which means nothing there.
void takePlace(RbNode *replacement, RbNode *node)
{
    RbNode *parent = node->parent;
    if (!node->isRoot()) {
        attach(parent, node->side(), replacement);
        return;
    }
    parent->parent = replacement;
    replacement->parent = parent;
    node->flags &= ~uint32_t{RB_ROOT | RB_HEAD};
    replacement->flags |= RB_ROOT;
}

/// Turns a node down towards one side; its child on the other side rises into its place.
void rotate(RbNode *node, RbSide toward)
{
    RbSide away = opposite(toward);
    RbNode *rising = node->child[away];
    attach(node, away, rising->child[toward]);
    takePlace(rising, node);
    attach(rising, toward, node);
}

/// The lowest ancestor that has the node in its subtree on one side; the head if there is none.
RbNode *lowestAncestorOn(RbSide side, RbNode *node)
{
    while (!node->isHead()) {
        RbNode *parent = node->parent;
        if (!node->isRoot() && node->side() == side)
            return parent;
        node = parent;
    }
    return node;
}

/// Tells the separator before a leaf that this leaf is now the smallest on its right.
void updateSeparatorBefore(RbNode *node, RbNode *leaf)
{
    RbNode *separator = lowestAncestorOn(RB_RIGHT, node);
    if (!separator->isHead())
        separator->leafRight = leaf;
}

/// Tells the separator behind a leaf that this leaf is now the greatest on its left.
void updateSeparatorBehind(RbNode *node, RbNode *leaf)
{
    RbNode *separator = lowestAncestorOn(RB_LEFT, node);
    if (!separator->isHead())
        separator->leafLeft = leaf;
}

// Each order compares a search key with the key of a leaf: negative, 0 or positive.

class StringOrder {
public:
    explicit StringOrder(const char *key) : key_(reinterpret_cast<const unsigned char *>(key)) {}
    int compare(const RbNode *leaf) const
    {
        auto *left = key_;
        auto *right = static_cast<const unsigned char *>(leaf->key);
        while (*left == *right && *left != 0) {
            ++left;
            ++right;
        }
        return int{*left} - int{*right};
    }

private:
    const unsigned char *key_;
};

class IntegerOrder {
public:
    explicit IntegerOrder(int32_t key) : key_(key) {}
    int compare(const RbNode *leaf) const
    {
        auto other = static_cast<int32_t>(reinterpret_cast<intptr_t>(leaf->key));
        return key_ == other ? 0 : key_ > other ? 1 : -1;
    }

private:
    int32_t key_;
};

class CallersOrder {
public:
    CallersOrder(const void *key, RbCompare order) : key_(key), order_(order) {}
    int compare(const RbNode *leaf) const { return order_(key_, leaf->key); }

private:
    const void *key_;
    RbCompare order_;
};

/// The descent compares with the leaf left of each separator, so every leaf but the last is met on
/// the way to it, and the last is met first.
template<typename Order>
[[gnu::always_inline]] inline RbNode *search(RbNode *tree, Order order, int32_t *found)
{
    *found = 0;
    if (!tree->isHead())
        return nullptr;
    if (tree->isEmpty())
        return tree;

    RbNode *last = tree->previous();
    int sign = order.compare(last);
    if (sign > 0)
        return tree;
    if (sign == 0) {
        *found = 1;
        return last;
    }
    RbNode *node = tree->parent;
    while (node->isInternal()) {
        // A coin toss for the branch predictor: both ways are fetched, and the choice is a move.
        RbNode *left = node->child[RB_LEFT];
        RbNode *right = node->child[RB_RIGHT];
        __builtin_prefetch(left);
        __builtin_prefetch(right);
        RbNode *leaf = node->leafLeft;
        sign = order.compare(leaf);
        if (sign == 0) {
            *found = 1;
            return leaf;
        }
        node = sign > 0 ? right : left;
    }
    return node;
}

template<typename Order>
[[gnu::always_inline]] inline RbNode *searchExact(RbNode *tree, Order order)
{
    int32_t found = 0;
    RbNode *leaf = search(tree, order, &found);
    return found != 0 && order.compare(leaf) == 0 ? leaf : nullptr;
}

/// Restores the rule that no red node has a red child, after a red node came in.
void fixInsertion(RbNode *node)
{
    while (!node->isRoot()) {
        RbNode *parent = node->parent;
        if (!parent->isRed())
            return;
        if (parent->isRoot()) {
            paintBlack(parent);
            return;
        }
        RbNode *grandparent = parent->parent;
        RbNode *uncle = sibling(parent);
        if (!uncle->isRed()) {
            RbNode *rising = parent;
            if (node->side() != parent->side()) {
                rotate(parent, opposite(node->side()));
                rising = node;
            }
            rotate(grandparent, opposite(rising->side()));
            paintBlack(rising);
            paintRed(grandparent);
            return;
        }
        paintBlack(parent);
        paintBlack(uncle);
        paintRed(grandparent);
        node = grandparent;
    }
    paintBlack(node);
}

/// Puts a new red separator with two leaves below it into the place that one of them has.
void insertSeparator(RbNode *separator, RbNode *left, RbNode *right, RbNode *replaced)
{
    separator->flags = RB_RED | RB_INTERNAL;
    takePlace(separator, replaced);
    attach(separator, RB_LEFT, left);
    attach(separator, RB_RIGHT, right);
    separator->leafLeft = left;
    separator->leafRight = right;
    fixInsertion(separator);
}

/// Restores equal black counts, after the subtree at node has lost one black node.
void fixDeletion(RbNode *node)
{
    RbNode *parent = node->parent;
    RbNode *brother = sibling(node);
    while (!parent->isRed() && !brother->isRed() && brother->isInternal() && !brother->child[RB_LEFT]->isRed() &&
           !brother->child[RB_RIGHT]->isRed()) {
        paintRed(brother);
        if (parent->isRoot())
            return;
        node = parent;
        parent = node->parent;
        brother = sibling(node);
    }
    RbSide side = node->side();
    if (!parent->isRed() && brother->isRed()) {
        rotate(parent, side);
        paintRed(parent);
        paintBlack(brother);
        brother = sibling(node);
    }
    if (!brother->isInternal())
        return;

    RbNode *nearNephew = brother->child[side];
    RbNode *farNephew = brother->child[opposite(side)];
    if (farNephew->isRed()) {
        rotate(parent, side);
        paintBlack(farNephew);
        if (parent->isRed())
            paintRed(brother);
        else
            paintBlack(brother);
        paintBlack(parent);
    } else if (nearNephew->isRed()) {
        rotate(brother, opposite(side));
        rotate(parent, side);
        paintBlack(nearNephew);
        if (parent->isRed())
            paintRed(brother); // a black node with two red children: just as valid
    } else if (!brother->isRed() && parent->isRed()) {
        paintBlack(parent);
        paintRed(brother);
    }
}

/// Removes a leaf's parent by putting the leaf's sibling into its place, and mends what that breaks.
/// @return the parent, now unused
RbNode *removeParent(const RbNode *leaf)
{
    RbNode *parent = leaf->parent;
    RbNode *brother = sibling(leaf);
    bool parentWasRoot = parent->isRoot();
    bool parentWasRed = parent->isRed();
    takePlace(brother, parent);
    if (parentWasRoot)
        return parent; // the sibling keeps its colour: a red root harms nothing

    if (!brother->isInternal()) {
        updateSeparatorBefore(brother, brother);
        updateSeparatorBehind(brother, brother);
        if (!parentWasRed)
            fixDeletion(brother);
    } else if (brother->isRed()) {
        updateSeparatorBefore(brother, brother->child[RB_LEFT]);
        updateSeparatorBehind(brother, brother->child[RB_RIGHT]);
        paintBlack(brother);
    }
    return parent;
}

/// Null, by a call that the compiler cannot turn into a conditional move: with a branch, a walk goes on
/// to the leaf after next while the flags that tell a leaf from the head are still on their way.
[[gnu::noinline, gnu::cold]] RbNode *endOfOrder()
{
    return nullptr;
}

} // namespace

RbNode *RbCreate()
{
    auto *tree = static_cast<RbNode *>(malloc(sizeof(RbNode)));
    if (tree == nullptr)
        return nullptr;
    tree->thread = {.next = &tree->thread, .previous = &tree->thread};
    tree->parent = tree;
    tree->flags = RB_HEAD;
    tree->key = "";
    tree->value = nullptr;
    return tree;
}

void RbDestroy(RbNode *tree)
{
    if (!tree->isHead())
        return;
    while (RbNode *leaf = RbFirst(tree))
        RbDeleteNode(leaf);
    free(tree);
}

RbNode *RbFindKey_n(RbNode *tree, const char *key, int32_t *found)
{
    return search(tree, StringOrder(key), found);
}

RbNode *RbFindKey(RbNode *tree, const char *key)
{
    int32_t found = 0;
    return search(tree, StringOrder(key), &found);
}

RbNode *RbFindKeyI_n(RbNode *tree, int32_t key, int32_t *found)
{
    return search(tree, IntegerOrder(key), found);
}

RbNode *RbFindKeyI(RbNode *tree, int32_t key)
{
    int32_t found = 0;
    return search(tree, IntegerOrder(key), &found);
}

RbNode *RbFindKeyG_n(RbNode *tree, const void *key, RbCompare compare, int32_t *found)
{
    return search(tree, CallersOrder(key, compare), found);
}

RbNode *RbFindKeyG(RbNode *tree, const void *key, RbCompare compare)
{
    int32_t found = 0;
    return search(tree, CallersOrder(key, compare), &found);
}

RbNode *RbExact(RbNode *tree, const char *key)
{
    return searchExact(tree, StringOrder(key));
}

RbNode *RbExactI(RbNode *tree, int32_t key)
{
    return searchExact(tree, IntegerOrder(key));
}

RbNode *RbExactG(RbNode *tree, const void *key, RbCompare compare)
{
    return searchExact(tree, CallersOrder(key, compare));
}

RbNode *RbInsert_b(RbNode *position, const void *key, void *value)
{
    bool first = position->isHead() && position->isEmpty();
    auto *leaf = static_cast<RbNode *>(malloc(sizeof(RbNode)));
    auto *separator = first ? nullptr : static_cast<RbNode *>(malloc(sizeof(RbNode)));
    if (leaf == nullptr || (separator == nullptr && !first)) {
        free(leaf);
        free(separator);
        return nullptr;
    }
    leaf->flags = 0;
    leaf->key = key;
    leaf->value = value;
    ListInsert(&position->thread, &leaf->thread);
    if (first) {
        position->parent = leaf;
        leaf->parent = position;
        leaf->flags = RB_ROOT;
    } else if (position->isHead()) {
        RbNode *formerLast = leaf->previous();
        insertSeparator(separator, formerLast, leaf, formerLast);
        // No separator lies behind a last leaf, so there is none to tell about it.
    } else {
        insertSeparator(separator, leaf, position, position);
        updateSeparatorBefore(leaf, leaf);
    }
    return leaf;
}

RbNode *RbInsert_a(RbNode **position, const void *key, void *value)
{
    return RbInsert_b(*position, key, value);
}

void RbDeleteNode(RbNode *leaf)
{
    if (!leaf->isLeaf())
        return;

    ListRmvItem(&leaf->thread);
    if (leaf->isRoot())
        leaf->parent->parent = leaf->parent;
    else
        free(removeParent(leaf));
    free(leaf);
}

void *RbKey(const RbNode *leaf)
{
    return const_cast<void *>(leaf->key);
}

// One entry point under two names: word-sized keys come back in the same register.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wattribute-alias"
#pragma GCC diagnostic ignored "-Wmissing-attributes"
#endif
extern "C" GENERAL_IMPORT_EXPORT int32_t RbKeyI(const RbNode *leaf) __attribute__((alias("RbKey")));
#pragma GCC diagnostic pop

void *RbVal(const RbNode *leaf)
{
    return leaf->value;
}

RbNode *RbFirst(const RbNode *tree)
{
    return tree->isHead() && !tree->isEmpty() ? tree->next() : nullptr;
}

RbNode *RbLast(const RbNode *tree)
{
    return tree->isHead() && !tree->isEmpty() ? tree->previous() : nullptr;
}

RbNode *RbNext(const RbNode *leaf)
{
    RbNode *next = leaf->next();
    return next->isHead() ? endOfOrder() : next;
}

RbNode *RbPrev(const RbNode *leaf)
{
    RbNode *previous = leaf->previous();
    return previous->isHead() ? endOfOrder() : previous;
}

int32_t RbEmpty(const RbNode *tree)
{
    return tree->next() == tree ? 1 : 0;
}

int32_t RbNblack(const RbNode *leaf)
{
    if (!leaf->isLeaf())
        return 0;
    int32_t black = 0;
    for (; !leaf->isHead(); leaf = leaf->parent)
        black += leaf->isRed() ? 0 : 1;
    return black;
}

int32_t RbPlength(const RbNode *leaf)
{
    if (!leaf->isLeaf())
        return 0;
    int32_t nodes = 0;
    for (; !leaf->isHead(); leaf = leaf->parent)
        ++nodes;
    return nodes;
}

/// @file
/// Checks every rule that a red-black tree of the library keeps, by walking the whole of it.

#pragma once

#include "containers/RedBlack_node.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace test_support {

class RedBlackInvariants {
public:
    using Precedes = std::function<bool(const RbNode *, const RbNode *)>; ///< strictly, by key

    RedBlackInvariants(const RbNode *tree, Precedes precedes) : tree_(tree), precedes_(std::move(precedes))
    {
        EXPECT_TRUE(tree->isHead());
        for (const RbNode *leaf = tree->next(); leaf != tree; leaf = leaf->next()) {
            EXPECT_EQ(leaf->next()->previous(), leaf);
            EXPECT_TRUE(leaf->isLeaf());
            EXPECT_FALSE(leaf->isRed());
            EXPECT_FALSE(!leaves_.empty() && precedes_(leaf, leaves_.back())) << "leaves out of order";
            leaves_.push_back(leaf);
        }
        const RbNode *root = tree->parent;
        if (leaves_.empty()) {
            EXPECT_EQ(root, tree);
            return;
        }
        EXPECT_EQ(root->parent, tree);
        EXPECT_TRUE(root->isRoot());
        Subtree whole = check(root, false);
        EXPECT_EQ(whole.leaves, leaves_.size()) << "tree and list hold different leaves";
    }

private:
    struct Subtree {
        size_t leaves;  ///< how many
        int blackCount; ///< black nodes on the way to each leaf, the leaf included
    };

    /// Checks a subtree whose first leaf is the next one of the list.
    Subtree check(const RbNode *node, bool parentIsRed)
    {
        EXPECT_FALSE(node->isHead());
        EXPECT_EQ(node->isRoot(), node->parent == tree_);
        EXPECT_FALSE(parentIsRed && node->isRed()) << "a red node has a red child";
        if (!node->isInternal()) {
            EXPECT_EQ(node, leaves_.at(nextLeaf_));
            ++nextLeaf_;
            return {1, 1};
        }
        const RbNode *left = node->child[RB_LEFT];
        const RbNode *right = node->child[RB_RIGHT];
        EXPECT_EQ(left->parent, node);
        EXPECT_EQ(right->parent, node);
        EXPECT_EQ(left->side(), RB_LEFT);
        EXPECT_EQ(right->side(), RB_RIGHT);
        // A red root is allowed, and so are its red children: black counts below it are what matters.
        bool red = node->isRed() && !node->isRoot();
        Subtree below = check(left, red);
        EXPECT_EQ(node->leafLeft, leaves_.at(nextLeaf_ - 1)) << "separator misses the greatest leaf on its left";
        EXPECT_EQ(node->leafRight, leaves_.at(nextLeaf_)) << "separator misses the smallest leaf on its right";
        Subtree other = check(right, red);
        EXPECT_EQ(below.blackCount, other.blackCount) << "unequal black counts";
        return {below.leaves + other.leaves, below.blackCount + (node->isRed() ? 0 : 1)};
    }

    const RbNode *tree_;
    Precedes precedes_;
    std::vector<const RbNode *> leaves_;
    size_t nextLeaf_ = 0;
};

} // namespace test_support

/// @file
/// Checks every rule that a red-black tree of the library keeps, by walking the whole of it.

#pragma once

#include "containers/RedBlack_node.h"

#include <gtest/gtest.h>

#include <vector>

namespace test_support {

class RedBlackInvariants {
public:
    /// @return the leaves in order
    static std::vector<RbNode *> check(RbNode *tree)
    {
        RedBlackInvariants walk;
        EXPECT_TRUE(tree->isHead());
        for (RbNode *leaf = tree->next(); leaf != tree; leaf = leaf->next()) {
            EXPECT_EQ(leaf->next()->previous(), leaf);
            EXPECT_TRUE(leaf->isLeaf() && !leaf->isRed());
            walk.leaves_.push_back(leaf);
        }
        if (walk.leaves_.empty())
            EXPECT_EQ(tree->parent, tree);
        else
            walk.blackCountBelow(tree->parent, tree, false);
        EXPECT_EQ(walk.walked_, walk.leaves_.size()) << "tree and list hold different leaves";
        return walk.leaves_;
    }

private:
    /// Checks a subtree whose first leaf is the next one of the list.
    /// @return the black nodes on the way to each of its leaves
    int blackCountBelow(const RbNode *node, const RbNode *parent, bool parentIsRed)
    {
        EXPECT_EQ(node->parent, parent);
        EXPECT_EQ(node->isRoot(), parent->isHead());
        EXPECT_FALSE(parentIsRed && node->isRed()) << "a red node has a red child";
        if (!node->isInternal()) {
            EXPECT_EQ(node, leaves_.at(walked_++));
            return 1;
        }
        const RbNode *left = node->child[RB_LEFT];
        const RbNode *right = node->child[RB_RIGHT];
        EXPECT_TRUE(left->side() == RB_LEFT && right->side() == RB_RIGHT);
        // A red root is allowed, and so are its red children: black counts below it are what matters.
        bool red = node->isRed() && !node->isRoot();
        int black = blackCountBelow(left, node, red);
        EXPECT_EQ(node->leafLeft, leaves_.at(walked_ - 1)) << "separator misses the greatest leaf on its left";
        EXPECT_EQ(node->leafRight, leaves_.at(walked_)) << "separator misses the smallest leaf on its right";
        EXPECT_EQ(blackCountBelow(right, node, red), black) << "unequal black counts";
        return black + (node->isRed() ? 0 : 1);
    }

    std::vector<RbNode *> leaves_;
    size_t walked_ = 0;
};

} // namespace test_support

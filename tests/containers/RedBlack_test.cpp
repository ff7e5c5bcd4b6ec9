#include "containers/RedBlack_node.h"

#include "general/redblack.h"

#include "tests/support/handles.h"

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using test_support::expectEach;

/// Checks the rules of a subtree and collects its leaves in order.
/// @return the black nodes on the way to each of its leaves
int checkSubtree(RbNode *node, RbNode *parent, std::vector<RbNode *> &leaves)
{
    EXPECT_EQ(node->parent, parent);
    EXPECT_EQ(node->isRoot(), parent->isHead());
    if (!node->isInternal()) {
        EXPECT_TRUE(node->isLeaf());
        EXPECT_FALSE(node->isRed());
        leaves.push_back(node);
        return 1;
    }
    auto [left, right] = node->child;
    EXPECT_EQ(left->side(), RB_LEFT);
    EXPECT_EQ(right->side(), RB_RIGHT);
    EXPECT_FALSE(node->isRed() && (left->isRed() || right->isRed()));
    int black = checkSubtree(left, node, leaves);
    size_t middle = leaves.size();
    EXPECT_EQ(checkSubtree(right, node, leaves), black) << "unequal black counts";
    EXPECT_EQ(node->leafLeft, leaves[middle - 1]);
    EXPECT_EQ(node->leafRight, leaves[middle]);
    return black + (node->isRed() ? 0 : 1);
}

// Equal keys come in as well: any of them may be found, and a new one goes before it.
void drive(test_support::HeapWatch &watch, int steps, RbNode *tree)
{
    std::mt19937 random(7);
    std::multimap<int32_t, RbNode *> model;
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        auto key = static_cast<int32_t>(random() % 600 * 7150000); // the differences of two overflow
        int32_t found = -1;
        RbNode *position = RbFindKeyI_n(tree, key, &found);
        auto [place, behind] = model.equal_range(key);
        EXPECT_EQ(found, place != behind);
        while (place != behind && place->second != position)
            ++place;
        EXPECT_EQ(position, place == model.end() ? tree : place->second);
        bool filling = (step / 400) % 2 == 0;
        int blocks = watch.liveBlocks();
        if (found == 0 ? filling || random() % 4 == 0 : random() % 8 == 0) {
            RbNode *leaf = RbInsert_a(&position, reinterpret_cast<void *>(key), &model);
            EXPECT_EQ(leaf == nullptr, watch.justFailed());
            EXPECT_EQ(watch.liveBlocks() - blocks, leaf == nullptr ? 0 : model.empty() ? 1 : 2);
            if (leaf != nullptr)
                model.emplace_hint(place, key, leaf);
        } else if (found != 0 && (!filling || random() % 4 == 0)) {
            RbDeleteNode(position);
            model.erase(place);
        }
        std::vector<RbNode *> leaves;
        if (RbEmpty(tree) == 0)
            checkSubtree(tree->parent, tree, leaves);
        ASSERT_EQ(leaves.size(), model.size());
        RbNode *previous = nullptr, *leaf = RbFirst(tree);
        for (auto [itsKey, node] : model) {
            EXPECT_EQ(leaf, node);
            EXPECT_EQ(RbPrev(node), previous);
            EXPECT_EQ(std::pair(RbKeyI(node), RbVal(node)), std::pair(itsKey, static_cast<void *>(&model)));
            previous = node;
            leaf = RbNext(node);
        }
        EXPECT_EQ(leaf, nullptr);
        EXPECT_EQ(RbLast(tree), previous);
    }
}

TEST(RedBlack, BehavesAsAMultimapUnderRandomInsertsAndDeletes)
{
    test_support::runTraffic(30, 4000, RbCreate, RbDestroy, drive);
}

/// Inserts all keys but the last, from behind, and looks for each.
/// @param keys   in their order
/// @param order  the caller's, if the functions take one
template<typename Key>
void expectOrder(const std::vector<Key> &keys, auto findTelling, auto find, auto exact, auto... order)
{
    RbNode *tree = RbCreate();
    for (size_t i = keys.size() - 1; i-- > 0;)
        RbInsert_b(find(tree, keys[i], order...), (const void *)keys[i], nullptr);
    RbNode *leaf = RbFirst(tree);
    for (Key key : keys) {
        int32_t found = -1;
        RbNode *position = findTelling(tree, key, order..., &found);
        EXPECT_EQ(found, leaf != nullptr);
        EXPECT_EQ(position, found != 0 ? leaf : tree);
        EXPECT_EQ(position, find(tree, key, order...));
        EXPECT_EQ(leaf, exact(tree, key, order...));
        leaf = found != 0 ? RbNext(leaf) : nullptr;
    }
    EXPECT_EQ(RbKey(RbLast(tree)), (const void *)keys[keys.size() - 2]);
    RbDestroy(tree);
}

TEST(RedBlack, OrdersKeysAsTextsAsIntegersAndAsTheCallerSays)
{
    auto descending = [](const void *searched, const void *present) {
        return searched < present ? 1 : -(searched > present);
    };
    const char *digits = "9876";
    expectOrder<const char *>({"", "a", "aa", "a\x7F", "a\xE9", "b"}, RbFindKey_n, RbFindKey, RbExact);
    expectOrder<int32_t>({INT32_MIN, -1, 0, 1, INT32_MAX}, RbFindKeyI_n, RbFindKeyI, RbExactI);
    expectOrder<const void *>({digits + 2, digits + 1, digits}, RbFindKeyG_n, RbFindKeyG, RbExactG, +descending);
}

TEST(RedBlack, RefusesNodesOfTheWrongKind)
{
    RbNode *tree = RbCreate();
    for (int32_t key : {2, 4, 6})
        RbInsert_b(RbFindKeyI(tree, key), reinterpret_cast<void *>(key), nullptr);
    RbNode *leaf = RbFirst(tree);
    EXPECT_EQ(std::pair(RbNext(tree), RbPrev(tree)), std::pair(leaf, RbLast(tree))) << "the ends of the order";
    int32_t found = -1;
    for (RbNode *none : {RbFindKeyI_n(leaf, 2, &found), RbExactI(leaf, 2), RbFirst(leaf), RbLast(leaf)})
        EXPECT_EQ(none, nullptr);
    EXPECT_EQ(found, 0);
    RbDestroy(leaf);
    for (RbNode *notALeaf : {tree, tree->parent}) {
        RbDeleteNode(notALeaf);
        expectEach(0, {RbNblack(notALeaf), RbPlength(notALeaf)});
    }
    expectEach(2, {RbPlength(leaf), RbNblack(leaf), RbNblack(RbLast(tree)), RbPlength(RbLast(tree)) - 1});
    RbNode *redChild = tree->parent->child[RB_RIGHT]; // over 4 and 6
    RbDeleteNode(leaf);
    EXPECT_EQ(tree->parent, redChild);
    EXPECT_TRUE(redChild->isRed()) << "the root keeps its colour";
    RbDestroy(tree);
}

/// How each system's runtime writes an address.
constexpr const char *addressFormat = sizeof(wchar_t) == 2 ? "%08X" : "%#x";

/// A dump with the names of nodes in place of their addresses. Checks that the result is that of the last printf.
std::string printed(int32_t (*print)(const RbNode *, int32_t), const RbNode *node, int32_t indent,
                    const std::map<char, const void *> &names)
{
    testing::internal::CaptureStdout();
    int32_t result = print(node, indent);
    std::string output = testing::internal::GetCapturedStdout();
    std::erase(output, '\r');
    size_t lastLine = output.rfind('\n', output.size() - 2) + 1;
    EXPECT_EQ(static_cast<size_t>(result), output.size() - output.find_first_not_of(' ', lastLine));
    for (auto [name, address] : names) {
        char text[16];
        std::snprintf(text, sizeof text, addressFormat, reinterpret_cast<unsigned>(address));
        for (size_t at = output.find(text); at != std::string::npos; at = output.find(text))
            output.replace(at, std::strlen(text), 1, name);
    }
    return output;
}

TEST(RedBlack, DumpsTreesToTheByte)
{
    int value = 0;
    RbNode *head = RbCreate();
    EXPECT_EQ(printed(RbPrintTree, head, 7, {{'H', head}}), "tree 0xH is empty\n");
    RbNode *low = RbInsert_b(head, reinterpret_cast<void *>(-7), &value);
    EXPECT_EQ(low->flags, RB_ROOT); // black, shown as a right child
    RbNode *high = RbInsert_b(head, reinterpret_cast<void *>(2147483646), &value);
    RbNode *root = head->parent;
    std::map<char, const void *> names = {{'H', head}, {'R', root}, {'A', low}, {'Z', high}, {'V', &value}};
    std::string lowLine = "Ext node 0xA: B,l: p=0xR, <=0xH, >=0xZ k=-7 v=V\n";
    std::string highLine = "Ext node 0xZ: B,r: p=0xR, <=0xA, >=0xH k=2147483646 v=V\n";
    std::string rootLine = "Int node 0xR: B,r: l=0xA, r=0xZ, p=0xH, lr=(-7,2147483646)\n";
    EXPECT_EQ(printed(RbPrintTreeI, head, 7, names), // a head starts at 0 whatever is asked for
              "Head: 0xH.  Root = 0xR, < = 0xZ, > = 0xA\n  " + lowLine + "  " + highLine + rootLine);
    EXPECT_EQ(printed(RbPrintTreeI, low, -3, names), lowLine);
    EXPECT_EQ(printed(RbPrintTreeI, root, 1, names), "   " + lowLine + "   " + highLine + " " + rootLine);

    low->key = "a";
    high->key = "z";
    root->flags |= RB_RED;
    EXPECT_EQ(printed(RbPrintTree, head, 7, names),
              "Head: 0xH.  Root = 0xR\n  Ext node 0xA: B,l: p=0xR, k=a\n  Ext node 0xZ: B,r: p=0xR, k=z\n"
              "Int node 0xR: R,r: l=0xA, r=0xZ, p=0xH, lr=(a,z)\n");
    RbDestroy(head);
}

} // namespace

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
        EXPECT_TRUE(node->isLeaf() && !node->isRed());
        leaves.push_back(node);
        return 1;
    }
    auto [left, right] = node->child;
    EXPECT_TRUE(left->side() == RB_LEFT && right->side() == RB_RIGHT);
    EXPECT_FALSE(node->isRed() && (left->isRed() || right->isRed()));
    int black = checkSubtree(left, node, leaves);
    size_t middle = leaves.size();
    EXPECT_EQ(checkSubtree(right, node, leaves), black) << "unequal black counts";
    EXPECT_TRUE(node->leafLeft == leaves[middle - 1] && node->leafRight == leaves[middle]) << "wrong separator";
    return black + (node->isRed() ? 0 : 1);
}

// One flavour of keys each: how a number becomes a key, the order, and the functions under test.

int32_t integer(const void *key)
{
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(key));
}

struct IntegerKeys {
    static const void *key(uint32_t number) // over the whole range: the differences of two overflow
    {
        return reinterpret_cast<const void *>(number * 7150000);
    }
    static bool precedes(const void *left, const void *right) { return integer(left) < integer(right); }
    static RbNode *find(RbNode *tree, const void *key, int32_t *found)
    {
        return RbFindKeyI_n(tree, integer(key), found);
    }
    static RbNode *find(RbNode *tree, const void *key) { return RbFindKeyI(tree, integer(key)); }
    static RbNode *exact(RbNode *tree, const void *key) { return RbExactI(tree, integer(key)); }
};

struct StringKeys {
    static const void *key(uint32_t number)
    {
        static std::map<uint32_t, std::string> texts; // keys are the caller's to keep
        std::string &text = texts[number];
        for (uint32_t rest = text.empty() ? number : 0; rest > 0; rest /= 3)
            text += "a\x7F\xE9"[rest % 3]; // many shared prefixes; bytes past 127 come last
        return text.c_str();
    }
    static const char *text(const void *key) { return static_cast<const char *>(key); }
    static bool precedes(const void *left, const void *right) { return std::strcmp(text(left), text(right)) < 0; }
    static RbNode *find(RbNode *tree, const void *key, int32_t *found) { return RbFindKey_n(tree, text(key), found); }
    static RbNode *find(RbNode *tree, const void *key) { return RbFindKey(tree, text(key)); }
    static RbNode *exact(RbNode *tree, const void *key) { return RbExact(tree, text(key)); }
};

struct CallersKeys : IntegerKeys {
    static bool precedes(const void *left, const void *right) { return integer(left) > integer(right); }
    static int compare(const void *searched, const void *present)
    {
        return precedes(searched, present) ? -1 : precedes(present, searched);
    }
    static RbNode *find(RbNode *tree, const void *key, int32_t *found)
    {
        return RbFindKeyG_n(tree, key, compare, found);
    }
    static RbNode *find(RbNode *tree, const void *key) { return RbFindKeyG(tree, key, compare); }
    static RbNode *exact(RbNode *tree, const void *key) { return RbExactG(tree, key, compare); }
};

// Equal keys come in as well: any of them may be found, and a new one goes before it.
template<typename Keys>
void drive(test_support::HeapWatch &watch, int steps, RbNode *tree)
{
    std::mt19937 random(7);
    std::multimap<const void *, RbNode *, bool (*)(const void *, const void *)> model(&Keys::precedes);
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        const void *key = Keys::key(random() % 600);
        int32_t found = -1;
        RbNode *position = Keys::find(tree, key, &found);
        auto [place, behind] = model.equal_range(key);
        EXPECT_EQ(found, place != behind);
        while (place != behind && place->second != position)
            ++place;
        EXPECT_EQ(position, place == model.end() ? tree : place->second);
        EXPECT_EQ(Keys::find(tree, key), position);
        EXPECT_EQ(Keys::exact(tree, key), found != 0 ? position : nullptr);
        bool filling = (step / 400) % 2 == 0;
        int blocks = watch.liveBlocks();
        if (found == 0 ? filling || random() % 4 == 0 : random() % 8 == 0) {
            RbNode *leaf = RbInsert_a(&position, key, &model);
            bool failed = watch.justFailed();
            EXPECT_EQ(leaf == nullptr, failed);
            EXPECT_EQ(watch.liveBlocks() - blocks, failed ? 0 : model.empty() ? 1 : 2);
            EXPECT_TRUE(failed || (RbVal(leaf) == &model && RbKey(leaf) == key && RbKeyI(leaf) == integer(key)));
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
        auto entry = model.begin();
        RbNode *previous = nullptr;
        for (RbNode *leaf : leaves) {
            EXPECT_EQ(leaf, entry++->second);
            EXPECT_EQ(RbPrev(leaf), previous);
            EXPECT_EQ(previous == nullptr ? RbFirst(tree) : RbNext(previous), leaf);
            previous = leaf;
        }
        EXPECT_EQ(RbLast(tree), previous);
        EXPECT_EQ(previous == nullptr ? RbFirst(tree) : RbNext(previous), nullptr);
        EXPECT_EQ(tree->parent == tree, leaves.empty());
    }
}

TEST(RedBlack, BehavesAsAMultimapUnderRandomInsertsAndDeletes)
{
    for (auto *keys : {drive<IntegerKeys>, drive<StringKeys>, drive<CallersKeys>})
        test_support::runTraffic(30, 4000, RbCreate, RbDestroy, keys);
}

TEST(RedBlack, RefusesNodesOfTheWrongKind)
{
    RbNode *tree = RbCreate();
    for (int32_t key : {2, 4, 6})
        RbInsert_b(RbFindKeyI(tree, key), reinterpret_cast<void *>(key), nullptr);
    RbNode *leaf = RbFirst(tree);
    EXPECT_TRUE(RbNext(tree) == leaf && RbPrev(tree) == RbLast(tree)); // given a head, the ends of the order
    auto precedesAll = [](const void *, const void *) { return -1; };
    EXPECT_EQ(RbFindKeyG(tree, nullptr, precedesAll), leaf) << "the sign is that of the key searched for";
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
    EXPECT_TRUE(tree->parent == redChild && redChild->isRed()) << "the root keeps its colour";
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

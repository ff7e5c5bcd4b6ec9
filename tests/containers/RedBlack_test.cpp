#include "general/redblack.h"

#include "tests/containers/redblack_invariants.h"
#include "tests/support/handles.h"

#include <cstring>
#include <map>
#include <random>
#include <string>

namespace {

// One flavour of keys each: how a number becomes a key, the order, and the functions under test.

struct IntegerKeys {
    using Key = int32_t;
    static Key key(int number) { return number % 2 == 0 ? number : -number; }
    static const void *asPointer(Key key) { return reinterpret_cast<const void *>(static_cast<intptr_t>(key)); }
    static Key of(const RbNode *leaf) { return RbKeyI(leaf); }
    static bool precedes(Key left, Key right) { return left < right; }
    static RbNode *find(RbNode *tree, Key key, int32_t *found) { return RbFindKeyI_n(tree, key, found); }
    static RbNode *find(RbNode *tree, Key key) { return RbFindKeyI(tree, key); }
    static RbNode *exact(RbNode *tree, Key key) { return RbExactI(tree, key); }
};

struct StringKeys {
    using Key = const char *;
    static Key key(int number)
    {
        static std::map<int, std::string> texts; // keys are the caller's to keep
        std::string &text = texts[number];
        for (int rest = text.empty() ? number : 0; rest > 0; rest /= 3)
            text += "a\x7F\xE9"[rest % 3]; // many shared prefixes; bytes past 127 come last
        return text.c_str();
    }
    static const void *asPointer(Key key) { return key; }
    static Key of(const RbNode *leaf) { return static_cast<Key>(RbKey(leaf)); }
    static bool precedes(Key left, Key right) { return std::strcmp(left, right) < 0; }
    static RbNode *find(RbNode *tree, Key key, int32_t *found) { return RbFindKey_n(tree, key, found); }
    static RbNode *find(RbNode *tree, Key key) { return RbFindKey(tree, key); }
    static RbNode *exact(RbNode *tree, Key key) { return RbExact(tree, key); }
};

struct CallersKeys : IntegerKeys {
    static bool precedes(Key left, Key right) { return left > right; } // descending
    static int compare(const void *searchKey, const void *nodeKey)
    {
        return static_cast<Key>(reinterpret_cast<intptr_t>(nodeKey) - reinterpret_cast<intptr_t>(searchKey));
    }
    static RbNode *find(RbNode *tree, Key key, int32_t *found)
    {
        return RbFindKeyG_n(tree, asPointer(key), compare, found);
    }
    static RbNode *find(RbNode *tree, Key key) { return RbFindKeyG(tree, asPointer(key), compare); }
    static RbNode *exact(RbNode *tree, Key key) { return RbExactG(tree, asPointer(key), compare); }
};

template<typename Flavour>
class RedBlackOf : public testing::Test {
};
using Flavours = testing::Types<IntegerKeys, StringKeys, CallersKeys>;
TYPED_TEST_SUITE(RedBlackOf, Flavours);

// Equal keys come in as well: any of them may be found, and a new one goes before it.
TYPED_TEST(RedBlackOf, BehavesAsAMultimapUnderRandomInsertsAndDeletes)
{
    using Key = typename TypeParam::Key;
    test_support::runTraffic(30, 4000, [](test_support::HeapWatch &watch, int steps) {
        std::mt19937 random(7);
        std::multimap<Key, RbNode *, bool (*)(Key, Key)> model(&TypeParam::precedes);
        RbNode *tree = RbCreate();
        EXPECT_EQ(tree == nullptr, watch.justFailed());
        for (int step = 0; step < steps && tree != nullptr && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE(step);
            Key key = TypeParam::key(static_cast<int>(random() % 600));
            int32_t found = -1;
            RbNode *position = TypeParam::find(tree, key, &found);
            auto [place, behind] = model.equal_range(key);
            EXPECT_EQ(found, place != behind);
            while (place != behind && place->second != position)
                ++place;
            EXPECT_EQ(position, place == model.end() ? tree : place->second);
            EXPECT_EQ(TypeParam::find(tree, key), position);
            EXPECT_EQ(TypeParam::exact(tree, key), found != 0 ? position : nullptr);
            bool filling = (step / 400) % 2 == 0;
            int blocks = watch.liveBlocks();
            if (found == 0 ? filling || random() % 4 == 0 : random() % 8 == 0) {
                RbNode *leaf = RbInsert_b(position, TypeParam::asPointer(key), &model);
                bool failed = watch.justFailed();
                EXPECT_EQ(leaf == nullptr, failed);
                EXPECT_EQ(watch.liveBlocks() - blocks, failed ? 0 : model.empty() ? 1 : 2);
                if (leaf != nullptr) {
                    EXPECT_TRUE(RbVal(leaf) == &model && TypeParam::of(leaf) == key);
                    model.emplace_hint(place, key, leaf);
                }
            } else if (found != 0 && (!filling || random() % 4 == 0)) {
                RbDeleteNode(position);
                model.erase(place);
            }
            auto leaves = test_support::RedBlackInvariants::check(tree);
            auto entry = model.begin();
            ASSERT_EQ(leaves.size(), model.size());
            for (size_t i = 0; i < leaves.size(); ++i, ++entry) {
                EXPECT_EQ(leaves[i], entry->second);
                EXPECT_EQ(RbPrev(leaves[i]), i == 0 ? nullptr : leaves[i - 1]);
                EXPECT_EQ(RbNext(leaves[i]), i + 1 == leaves.size() ? nullptr : leaves[i + 1]);
            }
            EXPECT_EQ(RbFirst(tree), leaves.empty() ? nullptr : leaves.front());
            EXPECT_EQ(RbLast(tree), leaves.empty() ? nullptr : leaves.back());
            EXPECT_EQ(RbEmpty(tree), leaves.empty());
        }
        if (tree != nullptr)
            RbDestroy(tree);
    });
}

TEST(RedBlack, RefusesNodesOfTheWrongKind)
{
    RbNode *tree = RbCreate();
    RbNode *position = tree;
    RbNode *single = RbInsert_a(&position, IntegerKeys::asPointer(1), nullptr);
    EXPECT_EQ(single->flags, RB_ROOT); // black, a leaf, shown as a right child
    EXPECT_EQ(RbNext(tree), single);   // given a head, the ends of the order
    EXPECT_EQ(RbPrev(tree), single);
    for (int32_t key : {2, 3})
        RbInsert_b(RbFindKeyI(tree, key), IntegerKeys::asPointer(key), nullptr);
    int32_t found = -1;
    EXPECT_EQ(RbFindKeyI_n(single, 1, &found), nullptr);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(RbExactI(single, 1), nullptr);
    EXPECT_EQ(RbFirst(single), nullptr);
    EXPECT_EQ(RbLast(single), nullptr);
    RbDestroy(single);
    for (RbNode *notALeaf : {tree, tree->parent}) {
        RbDeleteNode(notALeaf);
        EXPECT_EQ(RbNblack(notALeaf), 0);
        EXPECT_EQ(RbPlength(notALeaf), 0);
    }
    EXPECT_EQ(RbPlength(single), 2);
    EXPECT_EQ(RbNblack(single), 2);

    RbNode *redChild = tree->parent->child[RB_RIGHT]; // over 2 and 3
    EXPECT_EQ(RbPlength(RbLast(tree)), 3);
    EXPECT_EQ(RbNblack(RbLast(tree)), 2);
    RbDeleteNode(single);
    EXPECT_EQ(tree->parent, redChild);
    EXPECT_TRUE(redChild->isRed()) << "the root keeps its colour";
    RbDestroy(tree);
}

/// A dump with the names of nodes in place of their addresses, which the system's runtime writes as
/// eight capital digits without a prefix. Checks that the result is that of the last printf.
template<typename Print>
std::string printed(Print print, const std::map<char, const void *> &names)
{
    testing::internal::CaptureStdout();
    int32_t result = print();
    std::string output = testing::internal::GetCapturedStdout();
    std::erase(output, '\r');
    size_t lastLine = output.rfind('\n', output.size() - 2) + 1;
    EXPECT_EQ(static_cast<size_t>(result), output.size() - output.find_first_not_of(' ', lastLine));
    for (auto [name, address] : names) {
        char text[16];
#ifdef _WIN32
        std::snprintf(text, sizeof text, "%08X", reinterpret_cast<unsigned>(address));
#else
        std::snprintf(text, sizeof text, "%p", address);
#endif
        for (size_t at = output.find(text); at != std::string::npos; at = output.find(text))
            output.replace(at, std::strlen(text), 1, name);
    }
    return output;
}

TEST(RedBlack, DumpsTreesToTheByte)
{
    int value = 0;
    RbNode *head = RbCreate();
    EXPECT_EQ(printed([=] { return RbPrintTree(head, 7); }, {{'H', head}}), "tree 0xH is empty\n");
    for (int32_t key : {-7, 2147483647})
        RbInsert_b(RbFindKeyI(head, key), IntegerKeys::asPointer(key), &value);
    RbNode *low = RbFirst(head);
    RbNode *high = RbLast(head);
    RbNode *root = head->parent;
    std::map<char, const void *> names = {{'H', head}, {'R', root}, {'A', low}, {'Z', high}, {'V', &value}};
    std::string lowLine = "Ext node 0xA: B,l: p=0xR, <=0xH, >=0xZ k=-7 v=V\n";
    std::string highLine = "Ext node 0xZ: B,r: p=0xR, <=0xA, >=0xH k=2147483647 v=V\n";
    std::string rootLine = "Int node 0xR: B,r: l=0xA, r=0xZ, p=0xH, lr=(-7,2147483647)\n";
    EXPECT_EQ(printed([=] { return RbPrintTreeI(head, 7); }, names), // a head starts at 0 whatever is asked for
              "Head: 0xH.  Root = 0xR, < = 0xZ, > = 0xA\n  " + lowLine + "  " + highLine + rootLine);
    EXPECT_EQ(printed([=] { return RbPrintTreeI(low, -3); }, names), lowLine); // no spaces below 0
    EXPECT_EQ(printed([=] { return RbPrintTreeI(root, 1); }, names),
              "   " + lowLine + "   " + highLine + " " + rootLine);

    low->key = "a";
    high->key = "z";
    root->flags |= RB_RED;
    EXPECT_EQ(printed([=] { return RbPrintTree(head, 7); }, names),
              "Head: 0xH.  Root = 0xR\n  Ext node 0xA: B,l: p=0xR, k=a\n  Ext node 0xZ: B,r: p=0xR, k=z\n"
              "Int node 0xR: R,r: l=0xA, r=0xZ, p=0xH, lr=(a,z)\n");
    RbDestroy(head);
}

} // namespace

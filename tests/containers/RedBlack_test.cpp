#include "general/redblack.h"

#include "tests/containers/redblack_invariants.h"
#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>

namespace {

struct Destroy {
    void operator()(RbNode *tree) const { RbDestroy(tree); }
};
using TreePtr = std::unique_ptr<RbNode, Destroy>;

// One flavour of keys each: how a number becomes a key, and the functions under test.

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
        if (text.empty())
            for (int rest = number; rest > 0 || text.empty(); rest /= 3)
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

struct CallersKeys {
    using Key = const int *;
    static Key key(int number)
    {
        static std::map<int, int> numbers;
        return &(numbers[number] = number);
    }
    static const void *asPointer(Key key) { return key; }
    static Key of(const RbNode *leaf) { return static_cast<Key>(RbKey(leaf)); }
    static bool precedes(Key left, Key right) { return *left > *right; } // descending
    static int compare(const void *searchKey, const void *nodeKey)
    {
        return *static_cast<Key>(nodeKey) - *static_cast<Key>(searchKey);
    }
    static RbNode *find(RbNode *tree, Key key, int32_t *found) { return RbFindKeyG_n(tree, key, compare, found); }
    static RbNode *find(RbNode *tree, Key key) { return RbFindKeyG(tree, key, compare); }
    static RbNode *exact(RbNode *tree, Key key) { return RbExactG(tree, key, compare); }
};

template<typename Flavour>
class RedBlackOf : public testing::Test {
protected:
    using Key = typename Flavour::Key;
    using Model = std::map<Key, void *, bool (*)(Key, Key)>;

    void checkInvariants()
    {
        test_support::RedBlackInvariants(tree_.get(), [](const RbNode *left, const RbNode *right) {
            return Flavour::precedes(Flavour::of(left), Flavour::of(right));
        });
    }

    /// Looks a key up every way there is and compares with the model.
    void checkSearches(Key key)
    {
        int32_t found = -1;
        RbNode *position = Flavour::find(tree_.get(), key, &found);
        auto known = model_.find(key);
        ASSERT_EQ(found, known != model_.end() ? 1 : 0);
        ASSERT_EQ(Flavour::find(tree_.get(), key), position);
        ASSERT_EQ(Flavour::exact(tree_.get(), key), found != 0 ? position : nullptr);
        auto bound = model_.lower_bound(key);
        if (bound == model_.end())
            ASSERT_EQ(position, tree_.get());
        else
            ASSERT_EQ(RbVal(position), bound->second);
    }

    TreePtr tree_{RbCreate()};
    Model model_{&Flavour::precedes};
};

using Flavours = testing::Types<IntegerKeys, StringKeys, CallersKeys>;
TYPED_TEST_SUITE(RedBlackOf, Flavours);

TYPED_TEST(RedBlackOf, BehavesAsAMapUnderRandomInsertsAndDeletes)
{
    std::mt19937 random(7);
    std::vector<char> values(4000);
    for (size_t step = 0; step < values.size(); ++step) {
        bool filling = (step / 400) % 2 == 0;
        auto key = TypeParam::key(static_cast<int>(random() % 600));
        this->checkSearches(key);
        int32_t found = 0;
        RbNode *position = TypeParam::find(this->tree_.get(), key, &found);
        if (found == 0 && (filling || random() % 4 == 0)) {
            RbNode *leaf = RbInsert_b(position, TypeParam::asPointer(key), &values[step]);
            ASSERT_EQ(RbVal(leaf), &values[step]);
            this->model_[key] = &values[step];
        } else if (found != 0 && (!filling || random() % 4 == 0)) {
            RbDeleteNode(position);
            this->model_.erase(key);
        }
        this->checkInvariants();
        if (this->HasFailure())
            FAIL() << "step " << step;
    }
    // Backwards and forwards through everything that is left.
    RbNode *leaf = RbFirst(this->tree_.get());
    for (auto &[key, value] : this->model_) {
        ASSERT_EQ(RbVal(leaf), value);
        ASSERT_EQ(RbNblack(leaf), RbNblack(RbLast(this->tree_.get())));
        leaf = RbNext(leaf);
    }
    EXPECT_EQ(leaf, nullptr);
    leaf = RbLast(this->tree_.get());
    for (auto entry = this->model_.rbegin(); entry != this->model_.rend(); ++entry, leaf = RbPrev(leaf))
        ASSERT_EQ(RbVal(leaf), entry->second);
    EXPECT_EQ(leaf, nullptr);
}

RbNode *insert(RbNode *tree, int32_t key)
{
    return RbInsert_b(RbFindKeyI(tree, key), IntegerKeys::asPointer(key), nullptr);
}

TEST(RedBlack, StaysShallowWhenKeysComeInOrder)
{
    constexpr int count = 1024;
    for (int direction : {1, -1}) {
        TreePtr tree(RbCreate());
        for (int i = 0; i < count; ++i)
            insert(tree.get(), direction * i);
        for (RbNode *leaf = RbFirst(tree.get()); leaf != nullptr; leaf = RbNext(leaf))
            EXPECT_LE(RbPlength(leaf), 2 * 11);
    }
}

TEST(RedBlack, EmptyTreeAndSingleLeaf)
{
    TreePtr tree(RbCreate());
    RbNode *head = tree.get();
    int32_t found = -1;
    EXPECT_EQ(RbEmpty(head), 1);
    EXPECT_EQ(RbFirst(head), nullptr);
    EXPECT_EQ(RbLast(head), nullptr);
    EXPECT_EQ(RbFindKeyI_n(head, 5, &found), head);
    EXPECT_EQ(found, 0);

    RbNode *position = head;
    RbNode *leaf = RbInsert_a(&position, IntegerKeys::asPointer(5), nullptr);
    EXPECT_EQ(leaf->flags, RB_ROOT); // black, a leaf, shown as a right child
    EXPECT_EQ(RbEmpty(head), 0);
    EXPECT_EQ(RbNblack(leaf), 1);
    EXPECT_EQ(RbPlength(leaf), 1);
    EXPECT_EQ(RbNext(leaf), nullptr);
    EXPECT_EQ(RbNext(head), leaf); // given a head, the ends of the order
    RbDeleteNode(leaf);
    EXPECT_EQ(RbEmpty(head), 1);
    EXPECT_EQ(RbFirst(head), nullptr);
}

TEST(RedBlack, EqualKeysStandBeforeTheirElders)
{
    TreePtr tree(RbCreate());
    for (int key : {1, 2, 3})
        insert(tree.get(), key);
    RbNode *elder = RbExactI(tree.get(), 2);
    RbNode *younger = RbInsert_b(elder, IntegerKeys::asPointer(2), nullptr);
    EXPECT_EQ(RbNext(younger), elder);
    EXPECT_EQ(RbPrev(younger), RbFirst(tree.get()));
}

TEST(RedBlack, DeletingBelowTheRootCanLeaveARedRoot)
{
    TreePtr tree(RbCreate());
    for (int key : {1, 2, 3})
        insert(tree.get(), key);
    RbNode *root = tree->parent; // separates 1 from a red node over 2 and 3
    RbNode *redChild = root->child[RB_RIGHT];
    ASSERT_TRUE(redChild->isRed());
    RbDeleteNode(RbFirst(tree.get()));
    EXPECT_EQ(tree->parent, redChild);
    EXPECT_TRUE(redChild->isRed());
    EXPECT_TRUE(redChild->isRoot());
    insert(tree.get(), 4);
    EXPECT_EQ(RbNblack(RbFirst(tree.get())), RbNblack(RbLast(tree.get())));
}

TEST(RedBlack, RefusesNodesOfTheWrongKind)
{
    TreePtr tree(RbCreate());
    for (int key : {1, 2, 3})
        insert(tree.get(), key);
    RbNode *leaf = RbFirst(tree.get());
    int32_t found = -1;
    EXPECT_EQ(RbFindKeyI_n(leaf, 1, &found), nullptr);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(RbExactI(leaf, 1), nullptr);
    EXPECT_EQ(RbFirst(leaf), nullptr);
    EXPECT_EQ(RbLast(leaf), nullptr);
    RbDestroy(leaf);
    for (RbNode *notALeaf : {tree.get(), tree->parent}) {
        RbDeleteNode(notALeaf);
        EXPECT_EQ(RbNblack(notALeaf), 0);
        EXPECT_EQ(RbPlength(notALeaf), 0);
    }
    EXPECT_EQ(RbPlength(leaf), 2);
}

TEST(RedBlack, TakesTwoBlocksAnInsertionAndSurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        RbNode *tree = RbCreate();
        if (tree == nullptr) {
            EXPECT_TRUE(watch.failed());
            return;
        }
        int inserted = 0;
        for (int key : {2, 4, 1, 3}) {
            int before = watch.liveBlocks();
            RbNode *leaf = insert(tree, key);
            EXPECT_EQ(leaf == nullptr, watch.failed());
            if (leaf == nullptr) {
                EXPECT_EQ(watch.liveBlocks(), before);
                break;
            }
            EXPECT_EQ(watch.liveBlocks() - before, ++inserted == 1 ? 1 : 2);
            EXPECT_EQ(watch.lastSize(), 24u);
        }
        int walked = 0;
        for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
            ++walked;
        EXPECT_EQ(walked, inserted);
        RbDestroy(tree);
    });
}

/// The text of a format in which every pointer is written as the system's runtime writes it.
template<typename... Arguments>
std::string text(const char *format, Arguments... arguments)
{
    char line[256];
    std::snprintf(line, sizeof line, format, arguments...);
    return line;
}

std::string pointer(const void *address)
{
#ifdef _WIN32
    return text("%08X", reinterpret_cast<unsigned>(address)); // eight capital digits, no prefix
#else
    return text("%p", address);
#endif
}

template<typename Print>
std::string printed(Print print)
{
    testing::internal::CaptureStdout();
    int32_t result = print();
    std::string output = testing::internal::GetCapturedStdout();
    std::erase(output, '\r');
    size_t lastLine = output.rfind('\n', output.size() - 2) + 1;
    size_t afterIndent = output.find_first_not_of(' ', lastLine);
    EXPECT_EQ(static_cast<size_t>(result), output.size() - afterIndent) << "not what the last printf returned";
    return output;
}

TEST(RedBlack, DumpsStringTreesToTheByte)
{
    TreePtr tree(RbCreate());
    RbNode *head = tree.get();
    EXPECT_EQ(printed([&] { return RbPrintTree(head, 7); }), "tree 0x" + pointer(head) + " is empty\n");
    for (const char *key : {"b", "a"})
        RbInsert_b(RbFindKey(head, key), key, nullptr);
    RbNode *root = head->parent;
    RbNode *a = RbFirst(head);
    RbNode *b = RbLast(head);
    std::string below = "  Ext node 0x" + pointer(a) + ": B,l: p=0x" + pointer(root) + ", k=a\n" + "  Ext node 0x" +
                        pointer(b) + ": B,r: p=0x" + pointer(root) + ", k=b\n";
    EXPECT_EQ(printed([&] { return RbPrintTree(head, 7); }), // a head starts at 0 whatever is asked for
              "Head: 0x" + pointer(head) + ".  Root = 0x" + pointer(root) + "\n" + below + "Int node 0x" +
                  pointer(root) + ": B,r: l=0x" + pointer(a) + ", r=0x" + pointer(b) + ", p=0x" + pointer(head) +
                  ", lr=(a,b)\n");
}

TEST(RedBlack, DumpsIntegerTreesToTheByte)
{
    TreePtr tree(RbCreate());
    RbNode *head = tree.get();
    int value = 0;
    for (int32_t key : {-7, 2147483647})
        RbInsert_b(RbFindKeyI(head, key), IntegerKeys::asPointer(key), &value);
    RbNode *root = head->parent;
    RbNode *low = RbFirst(head);
    RbNode *high = RbLast(head);
    std::string lowLine = "Ext node 0x" + pointer(low) + ": B,l: p=0x" + pointer(root) + ", <=0x" + pointer(head) +
                          ", >=0x" + pointer(high) + " k=-7 v=" + pointer(&value) + "\n";
    std::string highLine = "Ext node 0x" + pointer(high) + ": B,r: p=0x" + pointer(root) + ", <=0x" + pointer(low) +
                           ", >=0x" + pointer(head) + " k=2147483647 v=" + pointer(&value) + "\n";
    std::string rootLine = "Int node 0x" + pointer(root) + ": B,r: l=0x" + pointer(low) + ", r=0x" + pointer(high) +
                           ", p=0x" + pointer(head) + ", lr=(-7,2147483647)\n";
    EXPECT_EQ(printed([&] { return RbPrintTreeI(head, 0); }),
              "Head: 0x" + pointer(head) + ".  Root = 0x" + pointer(root) + ", < = 0x" + pointer(high) + ", > = 0x" +
                  pointer(low) + "\n  " + lowLine + "  " + highLine + rootLine);
    EXPECT_EQ(printed([&] { return RbPrintTreeI(low, -3); }), lowLine); // no spaces below 0
    EXPECT_EQ(printed([&] { return RbPrintTreeI(root, 1); }), "   " + lowLine + "   " + highLine + " " + rootLine);
}

} // namespace

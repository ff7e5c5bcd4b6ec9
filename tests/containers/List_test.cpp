#include "general/list.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Item {
    ListNode links;
    int value;
};

Item *makeItem(List *list, int value)
{
    auto *item = static_cast<Item *>(ListMakeNode(list));
    item->value = value;
    return item;
}

/// The values in order; the backward links are checked against the forward ones on the way.
std::vector<int> contents(const List *list)
{
    std::vector<int> values;
    const ListNode *previous = &list->links;
    for (const ListNode *node = list->links.next; node != &list->links; previous = node, node = node->next) {
        EXPECT_EQ(node->previous, previous);
        values.push_back(reinterpret_cast<const Item *>(node)->value);
    }
    EXPECT_EQ(list->links.previous, previous);
    return values;
}

TEST(List, LinksBeforeAPositionAndUnlinks)
{
    List *list = ListMake(sizeof(Item));
    Item *two = makeItem(list, 2);
    ListInsert(&list->links, &two->links);
    EXPECT_EQ(list->links.next, &two->links);
    EXPECT_EQ(list->links.previous, &two->links);
    Item *one = makeItem(list, 1);
    ListInsert(&two->links, &one->links);
    Item *three = makeItem(list, 3);
    ListInsert(&list->links, &three->links);
    EXPECT_EQ(contents(list), (std::vector<int>{1, 2, 3}));

    ListRmvItem(&two->links);
    EXPECT_EQ(two->links.next, &three->links); // its own links stay
    EXPECT_EQ(two->links.previous, &one->links);
    EXPECT_EQ(contents(list), (std::vector<int>{1, 3}));
    ListRmvItem(&three->links);
    ListRmvItem(&one->links);
    EXPECT_EQ(list->links.next, &list->links);
    for (Item *item : {one, two, three})
        ListFreeNode(list, item);
    EXPECT_EQ(ListDestroy(list), 1);
}

TEST(List, RecyclesNodesNewestFirstAndFreesEachOnce)
{
    test_support::HeapWatch watch;
    List *list = ListMake(sizeof(Item));
    Item *linked = makeItem(list, 0);
    ListInsert(&list->links, &linked->links);
    Item *first = makeItem(list, 1);
    Item *second = makeItem(list, 2);
    EXPECT_EQ(watch.lastSize(), sizeof(Item));
    ListFreeNode(list, first);
    ListFreeNode(list, second);
    EXPECT_EQ(watch.liveBlocks(), 5) << "spare nodes stay with the list";
    EXPECT_EQ(ListMakeNode(list), second);
    EXPECT_EQ(ListMakeNode(list), first);
    Item *third = makeItem(list, 3);
    for (Item *item : {first, second, third})
        ListFreeNode(list, item);
    EXPECT_EQ(ListDestroy(list), 1);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(List, NodesAreNeverSmallerThanTheirLinks)
{
    test_support::HeapWatch watch;
    List *list = ListMake(0);
    void *node = ListMakeNode(list);
    EXPECT_EQ(watch.lastSize(), sizeof(ListNode));
    ListFreeNode(list, node);
    EXPECT_EQ(ListDestroy(list), 1);
}

TEST(List, IgnoresWhatIsNotAList)
{
    Item item = {};
    List foreign = {};
    for (List *list : {static_cast<List *>(nullptr), &foreign}) {
        EXPECT_EQ(ListMakeNode(list), nullptr);
        ListFreeNode(list, &item);
        EXPECT_EQ(ListDestroy(list), 0);
    }
    EXPECT_EQ(item.links.next, nullptr);
}

TEST(List, SurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        List *list = ListMake(sizeof(Item));
        if (list == nullptr) {
            EXPECT_TRUE(watch.failed());
            return;
        }
        void *node = ListMakeNode(list);
        EXPECT_EQ(node == nullptr, watch.failed());
        ListFreeNode(list, node);
        EXPECT_EQ(ListDestroy(list), 1);
    });
}

} // namespace

#include "bench/support/row.h"

#include "general/list.h"

#include <list>

namespace {

constexpr int length = 1000;

struct Item {
    ListNode links;
    int value;
};

void fillWalkAndDrainList(benchmark::State &state)
{
    List *list = ListMake(sizeof(Item));
    for (auto _ : state) {
        for (int i = 0; i < length; ++i) {
            auto *item = static_cast<Item *>(ListMakeNode(list));
            item->value = i;
            ListInsert(&list->links, &item->links);
        }
        int sum = 0;
        for (ListNode *node = list->links.next; node != &list->links; node = node->next)
            sum += reinterpret_cast<Item *>(node)->value;
        benchmark::DoNotOptimize(sum);
        while (list->links.next != &list->links) {
            ListNode *node = list->links.next;
            ListRmvItem(node);
            ListFreeNode(list, node);
        }
    }
    ListDestroy(list);
}

void fillWalkAndDrainStdList(benchmark::State &state)
{
    std::list<int> list;
    for (auto _ : state) {
        for (int i = 0; i < length; ++i)
            list.push_back(i);
        int sum = 0;
        for (int value : list)
            sum += value;
        benchmark::DoNotOptimize(sum);
        while (!list.empty())
            list.pop_front();
    }
}

const bool registered = [] {
    bench::contend("list: append 1000 nodes, walk, remove 1000", "general", fillWalkAndDrainList, 1.0);
    bench::contend("list: append 1000 nodes, walk, remove 1000", "std::list", fillWalkAndDrainStdList);
    return true;
}();

} // namespace

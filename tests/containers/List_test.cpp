#include "general/list.h"

#include "tests/support/handles.h"

#include <random>
#include <vector>

namespace {

TEST(List, LinksUnlinksAndRecyclesNewestFirstUnderRandomTraffic)
{
    for (uint32_t size : {20u, 0u}) { // never smaller than the links
        auto make = [size] { return ListMake(size); };
        test_support::runTraffic(60, 3000, make, ListDestroy, [size](auto &watch, int steps, List *list) {
            std::mt19937 random(2);
            std::vector<ListNode *> model;
            std::vector<ListNode *> spares;
            for (int step = 0; step < steps; ++step) {
                auto place = model.begin() + static_cast<ptrdiff_t>(random() % (model.size() + 1));
                if (random() % 2 == 0) {
                    int blocks = watch.liveBlocks();
                    auto *node = static_cast<ListNode *>(ListMakeNode(list));
                    ASSERT_EQ(node == nullptr, watch.justFailed());
                    if (node == nullptr)
                        continue;
                    ASSERT_EQ(watch.liveBlocks() - blocks, spares.empty());
                    if (!spares.empty()) {
                        ASSERT_EQ(node, spares.back());
                        spares.pop_back();
                    }
                    ListInsert(place == model.end() ? &list->links : *place, node);
                    model.insert(place, node);
                    ASSERT_EQ(watch.lastSize(), size == 0 ? sizeof(ListNode) : size);
                } else if (place != model.end()) {
                    ListNode links = **place;
                    ListRmvItem(*place);
                    ASSERT_TRUE((*place)->next == links.next && (*place)->previous == links.previous);
                    ListFreeNode(list, *place);
                    spares.push_back(*place);
                    model.erase(place);
                }
                ListNode *node = &list->links;
                for (size_t i = 0; i <= model.size(); ++i) {
                    ListNode *next = i < model.size() ? model[i] : &list->links;
                    ASSERT_TRUE(node->next == next && next->previous == node) << "step " << step;
                    node = next;
                }
            }
        });
    }
}

} // namespace

#include "general/refcounter.h"
#include "general/strlist.h"
#include "general/strvec.h"
#include "general/vstr.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using test_support::fieldOf;
using test_support::HeapWatch;

std::string randomText(std::mt19937 &random)
{
    return std::string(random() % (random() % 9 == 0 ? 100 : 30), static_cast<char>('a' + random() % 26));
}

// A failed append lowers the recorded size by what the string would have taken, at times below zero.
TEST(StrList, PacksStringsThatAVectorPointsTo)
{
    StrList list;
    auto destroy = [](StrList *full) {
        StrListDestroy(full);
        EXPECT_EQ(full->buffer, nullptr);
        EXPECT_EQ(full->allocated | full->growthIncrement | full->used | full->count, 0u);
    };
    for (uint32_t increment : {64u, 0u})
        test_support::runTraffic(
            8, 500, [&list] { return &list; }, destroy,
            [&](auto &watch, int steps, auto *) {
                std::mt19937 random(2);
                StrListInit(&list, 4, increment);
                int64_t allocated = watch.justFailed() ? 0 : 4;
                std::vector<std::string> model;
                uint32_t used = 0;
                for (int step = 0; step < steps; ++step) {
                    std::string text = randomText(random);
                    auto size = static_cast<uint32_t>(text.size()) + 1;
                    char *copy = StrListAppend(&list, text.c_str());
                    bool failed = watch.justFailed();
                    ASSERT_EQ(copy, failed ? nullptr : list.buffer + used);
                    if (failed)
                        allocated -= size;
                    else if (used + size > allocated)
                        allocated += std::max(used + size - allocated, int64_t{increment});
                    if (!failed)
                        model.push_back(text);
                    used += failed ? 0 : size;
                    ASSERT_EQ(list.allocated, static_cast<uint32_t>(allocated));
                    ASSERT_TRUE(list.used == used && list.count == model.size());
                }
                char **vector = StrVecCreate(list.buffer, list.count);
                EXPECT_EQ(vector == nullptr, watch.justFailed());
                EXPECT_TRUE(vector == nullptr || std::equal(model.begin(), model.end(), vector));
                EXPECT_TRUE(vector == nullptr || vector[model.size()] == nullptr);
                StrVecDestroy(vector);
            });
}

TEST(Vstr, BehavesAsAStringUnderRandomTraffic)
{
    auto create = [] { return VstrCreate(50); };
    test_support::runTraffic(20, 3000, create, VstrDestroy, [](auto &watch, int steps, Vstr *string) {
        std::mt19937 random(8);
        std::string model;
        std::string bytes; // emptying keeps them
        uint32_t allocated = 0;
        for (int step = 0; step < steps; ++step) {
            std::string text = randomText(random);
            bool empties = step % 100 == 15;
            uint32_t stat = empties ? VstrEmpty(string) : VstrAppend(string, text.c_str());
            ASSERT_EQ(stat, watch.justFailed() ? VSTR_NO_MEMORY : VSTR_OK);
            if (empties) {
                model.clear();
            } else if (stat == VSTR_OK) {
                bytes = model += text;
                auto size = static_cast<uint32_t>(model.size()) + 1;
                allocated += size > allocated ? std::max(size - allocated, 50u) : 0;
            }
            char *shown = nullptr;
            int32_t length = -1;
            ASSERT_EQ(VstrGet(string, &shown) | VstrLength(string, &length), VSTR_OK);
            ASSERT_TRUE(allocated == 0 ? shown == nullptr : shown == bytes);
            ASSERT_EQ(length, empties || allocated == 0 ? 0 : static_cast<int32_t>(model.size()) + 1);
            ASSERT_EQ(fieldOf(string, 3), allocated);
        }
    });
}

TEST(Strings, DoNotGrowTo2GiB)
{
    Vstr *string = VstrCreate(INT32_MAX);
    fieldOf(string, 3) = 1; // a byte there already
    EXPECT_EQ(VstrAppend(string, "x"), VSTR_NO_MEMORY);
    EXPECT_EQ(VstrDestroy(string), VSTR_OK);

    StrList list;
    StrListInit(&list, 1, 1);
    list.allocated = list.used = INT32_MAX;
    EXPECT_EQ(StrListAppend(&list, "x"), nullptr);
    StrListDestroy(&list);
}

TEST(RefCounter, ReleasesItsValueOnceWithTheLastReference)
{
    struct Owner {
        RefCounter *counter;
        int released;
    };
    auto release = [](void *value, void *context) {
        auto *owner = static_cast<Owner *>(context);
        EXPECT_EQ(value, &owner->released);
        ++owner->released;
        RefCounterReleaseReference(owner->counter); // from the callback: nothing
        EXPECT_EQ(RefCounterGetReferenceCount(owner->counter), 0u);
        RefCounterReleaseReference(RefCounterAddReference(owner->counter)); // once is enough
    };
    test_support::failEachAllocation([&](HeapWatch &watch) {
        Owner owner = {};
        owner.counter = RefCounterCreate(&owner.released, release, &owner);
        EXPECT_EQ(owner.counter == nullptr, watch.failed());
        if (owner.counter == nullptr)
            return;
        EXPECT_EQ(RefCounterGetValue(owner.counter), &owner.released);
        EXPECT_EQ(RefCounterAddReference(owner.counter), owner.counter);
        for (uint32_t left : {2u, 1u}) {
            EXPECT_TRUE(RefCounterGetReferenceCount(owner.counter) == left && owner.released == 0);
            RefCounterReleaseReference(owner.counter);
        }
        EXPECT_EQ(owner.released, 1);
    });
}

} // namespace

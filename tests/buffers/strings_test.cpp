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
    for (uint32_t increment : {64u, 0u})
        test_support::runTraffic(8, 500, [increment](HeapWatch &watch, int steps) {
            std::mt19937 random(2);
            StrList list;
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
                ASSERT_EQ(list.allocated, static_cast<uint32_t>(allocated));
                if (!failed)
                    model.push_back(text);
                used += failed ? 0 : size;
                ASSERT_EQ(list.used, used);
                ASSERT_EQ(list.count, model.size());
            }
            char **vector = StrVecCreate(list.buffer, list.count);
            EXPECT_EQ(vector == nullptr, watch.justFailed());
            EXPECT_TRUE(vector == nullptr || std::equal(model.begin(), model.end(), vector));
            EXPECT_TRUE(vector == nullptr || vector[model.size()] == nullptr);
            StrVecDestroy(vector);
            StrListDestroy(&list);
            EXPECT_EQ(list.buffer, nullptr);
            EXPECT_EQ(list.allocated + list.growthIncrement + list.used + list.count, 0u);
        });
    for (uint32_t count : {UINT32_MAX, UINT32_MAX / 4 + 5})
        EXPECT_EQ(StrVecCreate(nullptr, count), nullptr);
}

TEST(Vstr, BehavesAsAStringUnderRandomTraffic)
{
    test_support::runTraffic(20, 3000, [](HeapWatch &watch, int steps) {
        std::mt19937 random(8);
        Vstr *string = VstrCreate(50);
        std::string model;
        std::string bytes; // emptying keeps them
        uint32_t allocated = 0;
        for (int step = 0; step < steps && string != nullptr; ++step) {
            std::string text = randomText(random);
            if (step % 100 == 15) {
                ASSERT_EQ(VstrEmpty(string), VSTR_OK);
                model.clear();
            } else {
                uint32_t stat = VstrAppend(string, text.c_str());
                ASSERT_EQ(stat, watch.justFailed() ? VSTR_NO_MEMORY : VSTR_OK);
                if (stat == VSTR_OK) {
                    bytes = model += text;
                    auto size = static_cast<uint32_t>(model.size()) + 1;
                    allocated += size > allocated ? std::max(size - allocated, 50u) : 0;
                }
            }
            char *shown = nullptr;
            int32_t length = -1;
            ASSERT_EQ(VstrGet(string, &shown) | VstrLength(string, &length), VSTR_OK);
            ASSERT_EQ(shown == nullptr, allocated == 0);
            ASSERT_TRUE(shown == nullptr || shown == bytes);
            ASSERT_EQ(length, step % 100 == 15 || allocated == 0 ? 0 : static_cast<int32_t>(model.size()) + 1);
            ASSERT_EQ(fieldOf(string, 3), allocated);
        }
        EXPECT_EQ(VstrDestroy(string), string == nullptr ? VSTR_BAD_HANDLE : VSTR_OK);
    });
}

TEST(Vstr, RefusesWhatIsOutOfRange)
{
    test_support::forEachForeign<Vstr>([&](Vstr *none) {
        test_support::expectEach(VSTR_BAD_HANDLE, {VstrAppend(none, "x"), VstrEmpty(none), VstrGet(none, nullptr),
                                                   VstrLength(none, nullptr), VstrDestroy(none)});
    });
    for (int32_t increment : {0, -5})
        EXPECT_EQ(VstrCreate(increment), nullptr);
    Vstr *string = VstrCreate(INT32_MAX);
    fieldOf(string, 3) = 1; // a byte there already: the growth passes 2^31
    EXPECT_EQ(VstrAppend(string, "x"), VSTR_NO_MEMORY);
    EXPECT_EQ(fieldOf(string, 2), 0u);
    EXPECT_EQ(VstrDestroy(string), VSTR_OK);
}

TEST(RefCounter, ReleasesItsValueOnceWithTheLastReference)
{
    struct Released {
        RefCounter *counter;
        void *value;
        int times;
    } released;
    auto release = [](void *value, void *context) {
        auto *record = static_cast<Released *>(context);
        record->value = value;
        ++record->times;
        RefCounterReleaseReference(record->counter); // from the callback: nothing
        EXPECT_EQ(RefCounterGetReferenceCount(record->counter), 0u);
    };
    test_support::failEachAllocation([&](test_support::HeapWatch &watch) {
        int value = 0;
        released = {RefCounterCreate(&value, release, &released), nullptr, 0};
        EXPECT_EQ(released.counter == nullptr, watch.failed());
        if (released.counter == nullptr)
            return;
        EXPECT_EQ(RefCounterGetValue(released.counter), &value);
        EXPECT_EQ(RefCounterAddReference(released.counter), released.counter);
        EXPECT_EQ(RefCounterGetReferenceCount(released.counter), 2u);
        RefCounterReleaseReference(released.counter);
        EXPECT_EQ(released.times, 0);
        RefCounterReleaseReference(released.counter);
        EXPECT_EQ(released.times, 1);
        EXPECT_EQ(released.value, &value);
    });
}

} // namespace

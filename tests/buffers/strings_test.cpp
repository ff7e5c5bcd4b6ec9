#include "general/refcounter.h"
#include "general/strlist.h"
#include "general/strvec.h"
#include "general/vstr.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

std::string randomText(std::mt19937 &random)
{
    return std::string(random() % 30, static_cast<char>('a' + random() % 26));
}

void expectStrings(const StrList &list, const std::vector<std::string> &model)
{
    char **vector = StrVecCreate(list.buffer, list.count);
    ASSERT_NE(vector, nullptr);
    for (size_t i = 0; i < model.size(); ++i)
        EXPECT_EQ(vector[i], model[i]);
    EXPECT_EQ(vector[model.size()], nullptr);
    StrVecDestroy(vector);
}

TEST(StrList, PacksStringsThatAVectorPointsTo)
{
    std::mt19937 random(2);
    StrList list;
    StrListInit(&list, 16, 64);
    EXPECT_STREQ(StrListAppend(&list, "twenty characters..."), "twenty characters...");
    EXPECT_EQ(list.allocated, 80u); // the increment wins over the shortfall of 5
    std::vector<std::string> model{"twenty characters..."};
    uint32_t used = 21;
    for (int i = 0; i < 500; ++i) {
        model.push_back(randomText(random));
        const char *copy = StrListAppend(&list, model.back().c_str());
        ASSERT_EQ(copy, list.buffer + used);
        used += static_cast<uint32_t>(model.back().size()) + 1;
        ASSERT_EQ(list.used, used);
        ASSERT_EQ(list.count, model.size());
        ASSERT_GE(list.allocated, used);
    }
    expectStrings(list, model);
    StrListDestroy(&list);
    EXPECT_EQ(list.buffer, nullptr);
    EXPECT_EQ(list.allocated + list.growthIncrement + list.used + list.count, 0u);
    expectStrings(list, {});
    EXPECT_EQ(StrVecCreate(nullptr, UINT32_MAX), nullptr);
    EXPECT_EQ(StrVecCreate(nullptr, UINT32_MAX / 4), nullptr);
}

// A failed append lowers the recorded size by what the string would have taken, here to below zero.
TEST(StrList, KeepsItsTextWhenMemoryIsExhausted)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        StrList list;
        StrListInit(&list, 4, 8);
        EXPECT_EQ(list.allocated, watch.failed() ? 0u : 4u);
        std::vector<std::string> model;
        for (const char *text : {"one", "a text of 20 letters", "x", "another long text of 32 letters."}) {
            uint32_t before = list.allocated;
            bool hadFailed = watch.failed();
            char *copy = StrListAppend(&list, text);
            EXPECT_EQ(copy == nullptr, watch.failed() && !hadFailed);
            if (copy == nullptr)
                EXPECT_EQ(list.allocated, before - (std::string(text).size() + 1));
            else
                model.emplace_back(text);
            EXPECT_EQ(list.count, model.size());
            if (char **vector = StrVecCreate(list.buffer, list.count)) {
                EXPECT_TRUE(std::equal(model.begin(), model.end(), vector));
                StrVecDestroy(vector);
            }
        }
        StrListDestroy(&list);
    });
}

TEST(Vstr, BehavesAsAStringUnderRandomTraffic)
{
    test_support::HeapWatch watch;
    std::mt19937 random(8);
    EXPECT_EQ(VstrCreate(0), nullptr);
    EXPECT_EQ(VstrCreate(-5), nullptr);
    Vstr *string = VstrCreate(50);
    std::string model;
    char *text = nullptr;
    EXPECT_EQ(VstrGet(string, &text), VSTR_OK);
    EXPECT_EQ(text, nullptr);
    for (int step = 0; step < 3000; ++step) {
        if (step % 100 == 99) {
            ASSERT_EQ(VstrEmpty(string), VSTR_OK);
            int32_t length = -1;
            VstrLength(string, &length);
            ASSERT_EQ(length, 0);
            VstrGet(string, &text);
            ASSERT_EQ(text, model) << "the bytes stay";
            model.clear();
        }
        std::string more = randomText(random);
        ASSERT_EQ(VstrAppend(string, more.c_str()), VSTR_OK);
        model += more;
        int32_t length = -1;
        VstrLength(string, &length);
        VstrGet(string, &text);
        ASSERT_EQ(length, static_cast<int32_t>(model.size()) + 1);
        ASSERT_EQ(text, model);
    }
    EXPECT_LT(watch.allocations(), 60) << "grows by 50 at least";
    EXPECT_EQ(VstrDestroy(string), VSTR_OK);

    uint32_t foreign[5] = {};
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *none = reinterpret_cast<Vstr *>(record);
        EXPECT_EQ(VstrAppend(none, "x"), VSTR_BAD_HANDLE);
        EXPECT_EQ(VstrEmpty(none), VSTR_BAD_HANDLE);
        EXPECT_EQ(VstrGet(none, &text), VSTR_BAD_HANDLE);
        EXPECT_EQ(VstrLength(none, nullptr), VSTR_BAD_HANDLE);
        EXPECT_EQ(VstrDestroy(none), VSTR_BAD_HANDLE);
    }
}

TEST(Vstr, SurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        Vstr *string = VstrCreate(1);
        if (string == nullptr)
            return;
        std::string model;
        for (int i = 0; i < 2; ++i) {
            bool hadFailed = watch.failed();
            uint32_t stat = VstrAppend(string, "text");
            EXPECT_EQ(stat == VSTR_NO_MEMORY, watch.failed() && !hadFailed);
            model += stat == VSTR_OK ? "text" : "";
        }
        char *text = nullptr;
        VstrGet(string, &text);
        EXPECT_EQ(text, model);
        EXPECT_EQ(VstrDestroy(string), VSTR_OK);
        Vstr *huge = VstrCreate(INT32_MAX);
        if (huge != nullptr) {
            int allocations = watch.allocations();
            reinterpret_cast<int32_t *>(huge)[3] = 1; // one byte there already: the next growth passes 2^31
            EXPECT_EQ(VstrAppend(huge, "x"), VSTR_NO_MEMORY);
            EXPECT_EQ(watch.allocations(), allocations);
        }
        VstrDestroy(huge);
    });
}

TEST(RefCounter, ReleasesItsValueOnceWithTheLastReference)
{
    struct Released {
        RefCounter *counter;
        void *value;
        int times;
    } released = {nullptr, nullptr, 0};
    auto release = [](void *value, void *context) {
        auto *record = static_cast<Released *>(context);
        record->value = value;
        ++record->times;
        RefCounterReleaseReference(record->counter); // from the callback: nothing
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

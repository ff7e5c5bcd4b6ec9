#include "general/stack.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Destroy {
    void operator()(Stack *stack) const { EXPECT_EQ(StackDestroy(stack), STACK_OK); }
};
using StackPtr = std::unique_ptr<Stack, Destroy>;

uint32_t lengthOf(const Stack *stack)
{
    uint32_t length = 0;
    EXPECT_EQ(StackLength(stack, &length), STACK_OK);
    return length;
}

TEST(Stack, HandsElementsOutNewestFirstAcrossGrowth)
{
    constexpr int steps = 45; // past two growths
    for (uint32_t size : {1u, 2u, 4u, 7u, 24u}) {
        StackPtr stack(StackCreate(size));
        unsigned char element[24];
        for (int i = 0; i < steps; ++i) {
            std::fill_n(element, size, static_cast<unsigned char>(i));
            ASSERT_EQ(StackAdd(stack.get(), element), STACK_OK);
        }
        EXPECT_EQ(lengthOf(stack.get()), uint32_t{steps});
        for (int i = steps; i-- > 0;) {
            unsigned char guarded[25];
            std::fill_n(guarded, sizeof guarded, static_cast<unsigned char>(0xEE));
            ASSERT_EQ(StackRmv(stack.get(), guarded), STACK_OK);
            EXPECT_EQ(std::count(guarded, guarded + size, i), size);
            EXPECT_EQ(guarded[size], 0xEE) << "wrote past the element";
        }
    }
}

TEST(Stack, ReportsTheFirstThingWrong)
{
    int value = 7;
    uint32_t notAStack[8] = {};
    for (Stack *foreign : {static_cast<Stack *>(nullptr), reinterpret_cast<Stack *>(notAStack)}) {
        EXPECT_EQ(StackDestroy(foreign), STACK_BAD_HANDLE);
        EXPECT_EQ(StackLength(foreign, nullptr), STACK_BAD_HANDLE);
        EXPECT_EQ(StackAdd(foreign, nullptr), STACK_BAD_HANDLE);
        EXPECT_EQ(StackRmv(foreign, nullptr), STACK_BAD_HANDLE);
    }
    StackPtr stack(StackCreate(sizeof value));
    EXPECT_EQ(StackLength(stack.get(), nullptr), STACK_BAD_ARG);
    EXPECT_EQ(StackAdd(stack.get(), nullptr), STACK_BAD_ARG);
    EXPECT_EQ(StackRmv(stack.get(), nullptr), STACK_EMPTY); // emptiness before the pointer
    StackAdd(stack.get(), &value);
    EXPECT_EQ(StackRmv(stack.get(), nullptr), STACK_BAD_ARG);
    EXPECT_EQ(lengthOf(stack.get()), 1u);
}

TEST(Stack, RefusesSizesThatDoNotFitTheAddressSpace)
{
    EXPECT_EQ(StackCreate(0), nullptr);
    EXPECT_EQ(StackCreate(UINT32_MAX / 20 + 1), nullptr); // 20 of them would wrap to a short block
    EXPECT_EQ(StackCreate(UINT32_MAX), nullptr);
}

TEST(Stack, GrowsByTenAndSurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        Stack *stack = StackCreate(sizeof(int));
        if (stack == nullptr) {
            EXPECT_TRUE(watch.failed());
            return;
        }
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(StackAdd(stack, &i), STACK_OK);
        int extra = 20;
        uint32_t added = StackAdd(stack, &extra);
        EXPECT_EQ(watch.lastSize(), 30 * sizeof(int));
        EXPECT_EQ(added, watch.failed() ? STACK_NO_MEMORY : STACK_OK);
        EXPECT_EQ(lengthOf(stack), watch.failed() ? 20u : 21u);
        int newest = -1;
        StackRmv(stack, &newest);
        EXPECT_EQ(newest, watch.failed() ? 19 : 20);
        EXPECT_EQ(StackDestroy(stack), STACK_OK);
        EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed stack keeps its magic";
    });
}

} // namespace

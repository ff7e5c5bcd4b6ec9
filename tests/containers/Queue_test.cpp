#include "general/queue.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>

namespace {

struct Destroy {
    void operator()(Queue *queue) const { EXPECT_EQ(QueDestroy(queue), QUE_OK); }
};
using QueuePtr = std::unique_ptr<Queue, Destroy>;

std::deque<int> contents(const Queue *queue)
{
    uint32_t length = 0;
    EXPECT_EQ(QueLength(queue, &length), QUE_OK);
    std::deque<int> elements;
    for (uint32_t i = 0; i < length; ++i) {
        int looked = -1;
        void *peeked = nullptr;
        EXPECT_EQ(QueLook(queue, i, &looked), QUE_OK);
        EXPECT_EQ(QuePeek(queue, i, &peeked), QUE_OK);
        EXPECT_EQ(*static_cast<int *>(peeked), looked);
        elements.push_back(looked);
    }
    return elements;
}

// Random traffic keeps the live region wrapping around the end of the ring, through every growth
// and both ways of closing a gap, and is compared with std::deque after each step.
TEST(Queue, BehavesAsADequeUnderRandomTraffic)
{
    std::mt19937 random(20);
    QueuePtr queue(QueCreate(sizeof(int)));
    std::deque<int> model;
    size_t deepest = 0;
    for (int step = 0; step < 20000; ++step) {
        bool filling = (step / 500) % 2 == 0;
        unsigned choice = random() % 10;
        if (choice < (filling ? 6u : 3u)) {
            ASSERT_EQ(QueAdd(queue.get(), &step), QUE_OK);
            model.push_back(step);
        } else if (model.empty()) {
            ASSERT_EQ(QueDel(queue.get()), QUE_EMPTY);
        } else if (choice < 7) {
            int oldest = -1;
            ASSERT_EQ(QueRmv(queue.get(), &oldest), QUE_OK);
            ASSERT_EQ(oldest, model.front());
            model.pop_front();
        } else if (choice == 7) {
            ASSERT_EQ(QueDel(queue.get()), QUE_OK);
            model.pop_front();
        } else {
            auto index = static_cast<uint32_t>(random() % model.size());
            ASSERT_EQ(QueDelIndex(queue.get(), index), QUE_OK);
            model.erase(model.begin() + index);
        }
        ASSERT_EQ(contents(queue.get()), model) << "step " << step;
        deepest = std::max(deepest, model.size());
    }
    EXPECT_GT(deepest, 60u);
}

TEST(Queue, DelIndexClosesTheGapWithoutMovingTheHead)
{
    QueuePtr queue(QueCreate(sizeof(int)));
    for (int i = 0; i < 5; ++i)
        QueAdd(queue.get(), &i);
    void *before = nullptr;
    void *after = nullptr;
    QuePeek(queue.get(), 0, &before);
    EXPECT_EQ(QueDelIndex(queue.get(), 0), QUE_OK);
    QuePeek(queue.get(), 0, &after);
    EXPECT_EQ(before, after);
    EXPECT_EQ(contents(queue.get()), (std::deque<int>{1, 2, 3, 4}));
}

TEST(Queue, CopiesExactlyOneElement)
{
    for (uint32_t size : {1u, 3u, 4u, 9u}) {
        QueuePtr queue(QueCreate(size));
        unsigned char out[10] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        for (int i = 1; i <= 25; ++i) {
            unsigned char in[9];
            std::fill_n(in, size, static_cast<unsigned char>(i));
            QueAdd(queue.get(), in);
        }
        QueLook(queue.get(), 24, out);
        EXPECT_EQ(std::count(out, out + size, 25), size);
        QueRmv(queue.get(), out);
        EXPECT_EQ(std::count(out, out + size, 1), size);
        EXPECT_EQ(out[size], 0) << "wrote past the element";
    }
}

TEST(Queue, ReportsTheFirstThingWrong)
{
    int value = 7;
    void *address = nullptr;
    uint32_t notAQueue[8] = {};
    for (Queue *foreign : {static_cast<Queue *>(nullptr), reinterpret_cast<Queue *>(notAQueue)}) {
        EXPECT_EQ(QueDestroy(foreign), QUE_BAD_HANDLE);
        EXPECT_EQ(QueLength(foreign, nullptr), QUE_BAD_HANDLE);
        EXPECT_EQ(QueAdd(foreign, nullptr), QUE_BAD_HANDLE);
        EXPECT_EQ(QueRmv(foreign, nullptr), QUE_BAD_HANDLE);
        EXPECT_EQ(QueDel(foreign), QUE_BAD_HANDLE);
        EXPECT_EQ(QueDelIndex(foreign, 0), QUE_BAD_HANDLE);
        EXPECT_EQ(QueLook(foreign, 0, nullptr), QUE_BAD_HANDLE);
        EXPECT_EQ(QuePeek(foreign, 0, nullptr), QUE_BAD_HANDLE);
    }
    QueuePtr queue(QueCreate(sizeof value));
    EXPECT_EQ(QueLength(queue.get(), nullptr), QUE_BAD_ARG);
    EXPECT_EQ(QueAdd(queue.get(), nullptr), QUE_BAD_ARG);
    // Emptiness comes before pointers and indices.
    EXPECT_EQ(QueRmv(queue.get(), nullptr), QUE_EMPTY);
    EXPECT_EQ(QueDel(queue.get()), QUE_EMPTY);
    EXPECT_EQ(QueDelIndex(queue.get(), 9), QUE_EMPTY);
    EXPECT_EQ(QueLook(queue.get(), 9, nullptr), QUE_EMPTY);
    EXPECT_EQ(QuePeek(queue.get(), 9, nullptr), QUE_EMPTY);

    QueAdd(queue.get(), &value);
    EXPECT_EQ(QueRmv(queue.get(), nullptr), QUE_BAD_ARG);
    EXPECT_EQ(QueLook(queue.get(), 0, nullptr), QUE_BAD_ARG);
    EXPECT_EQ(QuePeek(queue.get(), 0, nullptr), QUE_BAD_ARG);
    for (uint32_t index : {1u, 0x7FFFFFFFu, UINT32_MAX}) {
        EXPECT_EQ(QueDelIndex(queue.get(), index), QUE_BAD_ARG);
        EXPECT_EQ(QueLook(queue.get(), index, &value), QUE_BAD_ARG);
        EXPECT_EQ(QuePeek(queue.get(), index, &address), QUE_BAD_ARG);
    }
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(contents(queue.get()), std::deque<int>{7});
}

TEST(Queue, RefusesSizesThatDoNotFitTheAddressSpace)
{
    EXPECT_EQ(QueCreate(0), nullptr);
    EXPECT_EQ(QueCreate(UINT32_MAX / 20 + 1), nullptr); // 20 of them would wrap to a short block
    EXPECT_EQ(QueCreate(UINT32_MAX), nullptr);
}

TEST(Queue, GrowsByTenAndSurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        Queue *queue = QueCreate(sizeof(int));
        if (queue == nullptr) {
            EXPECT_TRUE(watch.failed());
            return;
        }
        std::deque<int> model;
        for (int i = 0; i < 27; ++i) { // full, with the head in the middle
            EXPECT_EQ(QueAdd(queue, &i), QUE_OK);
            model.push_back(i);
            if (i < 7) {
                QueDel(queue);
                model.pop_front();
            }
        }
        int extra = 27;
        uint32_t added = QueAdd(queue, &extra);
        EXPECT_EQ(watch.lastSize(), 30 * sizeof(int));
        EXPECT_EQ(added, watch.failed() ? QUE_NO_MEMORY : QUE_OK);
        if (added == QUE_OK)
            model.push_back(extra);
        EXPECT_EQ(contents(queue), model);
        EXPECT_EQ(QueDestroy(queue), QUE_OK);
        EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed queue keeps its magic";
    });
}

} // namespace

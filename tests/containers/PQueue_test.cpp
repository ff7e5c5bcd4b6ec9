#include "general/pqueue.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

struct Destroy {
    void operator()(PQueue *queue) const { EXPECT_EQ(PQDestroy(queue), PQ_OK); }
};
using PQueuePtr = std::unique_ptr<PQueue, Destroy>;

uint32_t wordAt(const void *element)
{
    uint32_t word = 0;
    std::memcpy(&word, element, sizeof word);
    return word;
}

/// The priority is in the upper half of an element's first word, the rest tells equals apart.
uint32_t priority(uint32_t word)
{
    return word >> 16;
}

int largestFirst(const void *queued, const void *added)
{
    return static_cast<int>(priority(wordAt(queued))) - static_cast<int>(priority(wordAt(added)));
}

std::vector<uint32_t> contents(const PQueue *queue)
{
    uint32_t length = 0;
    EXPECT_EQ(PQLength(queue, &length), PQ_OK);
    std::vector<uint32_t> words;
    for (int32_t i = 0; i < static_cast<int32_t>(length); ++i) {
        char looked[16];
        void *peeked = nullptr;
        EXPECT_EQ(PQLook(queue, i, looked), PQ_OK);
        EXPECT_EQ(PQPeek(queue, i, &peeked), PQ_OK);
        EXPECT_EQ(wordAt(peeked), wordAt(looked));
        words.push_back(wordAt(looked));
    }
    return words;
}

TEST(PQueue, BehavesAsASortedVectorUnderRandomTraffic)
{
    for (uint32_t size : {4u, 9u}) {
        std::mt19937 random(9);
        PQueuePtr queue(PQCreate(size, largestFirst));
        std::vector<uint32_t> model;
        for (uint32_t step = 0; step < 10000; ++step) {
            unsigned choice = random() % 8;
            auto index = static_cast<int32_t>(random() % (model.size() + 2)) - 1;
            bool inside = index >= 0 && static_cast<size_t>(index) < model.size();
            char out[16];
            std::memset(out, 0x55, sizeof out);
            if (choice < 4) {
                char element[16] = {};
                uint32_t word = (random() % 8) << 16 | (step & 0xFFFF);
                std::memcpy(element, &word, sizeof word);
                ASSERT_EQ(PQAdd(queue.get(), element), PQ_OK);
                model.insert(std::upper_bound(model.begin(), model.end(), word,
                                              [](uint32_t a, uint32_t b) { return priority(a) > priority(b); }),
                             word);
            } else if (choice < 6) { // at an index, at times one outside
                bool handsOut = choice == 4;
                uint32_t stat = handsOut ? PQRmvIndex(queue.get(), index, out) : PQDelIndex(queue.get(), index);
                ASSERT_EQ(stat, inside ? PQ_OK : PQ_BAD_INDEX);
                if (inside) {
                    ASSERT_EQ(wordAt(out), handsOut ? model[static_cast<size_t>(index)] : 0x55555555u);
                    model.erase(model.begin() + index);
                }
            } else {
                bool handsOut = choice == 6;
                uint32_t stat = handsOut ? PQRmv(queue.get(), out) : PQDel(queue.get());
                ASSERT_EQ(stat, model.empty() ? PQ_BAD_INDEX : PQ_OK);
                if (!model.empty()) {
                    ASSERT_EQ(wordAt(out), handsOut ? model.front() : 0x55555555u);
                    model.erase(model.begin());
                }
            }
            ASSERT_EQ(out[size], 0x55) << "wrote past the element";
            ASSERT_EQ(contents(queue.get()), model) << "step " << step;
        }
    }
}

TEST(PQueue, ReportsTheFirstThingWrong)
{
    uint32_t foreign[6] = {};
    uint32_t word = 7;
    void *address = nullptr;
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *queue = reinterpret_cast<PQueue *>(record);
        EXPECT_EQ(PQDestroy(queue), PQ_BAD_HANDLE);
        EXPECT_EQ(PQAdd(queue, &word), PQ_BAD_HANDLE);
        EXPECT_EQ(PQRmv(queue, &word), PQ_BAD_HANDLE);
        EXPECT_EQ(PQDel(queue), PQ_BAD_HANDLE);
        EXPECT_EQ(PQRmvIndex(queue, -1, &word), PQ_BAD_HANDLE);
        EXPECT_EQ(PQDelIndex(queue, -1), PQ_BAD_HANDLE);
        EXPECT_EQ(PQLength(queue, &word), PQ_BAD_HANDLE);
        EXPECT_EQ(PQLook(queue, -1, &word), PQ_BAD_HANDLE);
        EXPECT_EQ(PQPeek(queue, -1, &address), PQ_BAD_HANDLE);
    }
    PQueuePtr queue(PQCreate(sizeof word, largestFirst));
    PQAdd(queue.get(), &word);
    for (int32_t index : {-1, 1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(PQLook(queue.get(), index, &word), PQ_BAD_INDEX);
        EXPECT_EQ(PQPeek(queue.get(), index, &address), PQ_BAD_INDEX);
    }
    EXPECT_EQ(word, 7u);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(PQCreate(UINT32_MAX / 20 + 1, largestFirst), nullptr); // 20 of them would wrap to a short block
}

TEST(PQueue, GrowsByTenAndSurvivesExhaustedMemory)
{
    for (uint32_t size : {4u, 0u}) // elements of no size are counted like others
        test_support::failEachAllocation([size](test_support::HeapWatch &watch) {
            PQueue *queue = PQCreate(size, [](const void *, const void *) { return 0; });
            if (queue == nullptr)
                return;
            uint32_t word = 1;
            for (int i = 0; i < 20; ++i)
                EXPECT_EQ(PQAdd(queue, &word), PQ_OK);
            uint32_t added = PQAdd(queue, &word);
            EXPECT_EQ(added, watch.failed() ? PQ_NO_MEMORY : PQ_OK);
            EXPECT_EQ(watch.lastSize(), size == 0 ? 1 : 30 * size);
            uint32_t length = 0;
            PQLength(queue, &length);
            EXPECT_EQ(length, watch.failed() ? 20u : 21u);
            EXPECT_EQ(PQDestroy(queue), PQ_OK);
            EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed queue keeps its magic";
        });
}

} // namespace

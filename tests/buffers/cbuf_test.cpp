#include "general/cbuf.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

namespace {

struct Destroy {
    void operator()(CBuf *buffer) const { EXPECT_EQ(CBufDestroy(buffer), CBUF_OK); }
};
using CBufPtr = std::unique_ptr<CBuf, Destroy>;

std::string contents(const CBuf *buffer)
{
    void *data = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(CBufGet(buffer, &data, &length), CBUF_OK);
    return length == 0 ? std::string() : std::string(static_cast<char *>(data), length);
}

uint32_t allocated(const CBuf *buffer)
{
    return reinterpret_cast<const uint32_t *>(buffer)[3];
}

TEST(CBuf, BehavesAsAStringUnderRandomTraffic)
{
    std::mt19937 random(7);
    uint32_t quantum = 100;
    CBufPtr buffer(CBufCreate(quantum));
    std::string model;
    uint32_t memory = 0;
    auto grow = [&](size_t length) {
        auto size = static_cast<uint32_t>((length + quantum - 1) / quantum * quantum);
        memory = length == 0 ? memory : std::max(memory, size);
    };
    for (uint32_t step = 0; step < 30000; ++step) {
        std::string text(random() % 60, static_cast<char>('a' + step % 26));
        auto count = static_cast<uint32_t>(text.size());
        auto offset = static_cast<uint32_t>(random() % (model.size() + 2));
        bool inside = offset <= model.size();
        void *room = nullptr;
        switch (random() % 10) {
        case 0:
            ASSERT_EQ(CBufAppend(buffer.get(), text.data(), count), CBUF_OK);
            grow((model += text).size());
            break;
        case 1:
            ASSERT_EQ(CBufGetAppend(buffer.get(), &room, count), CBUF_OK);
            text.copy(static_cast<char *>(room), count);
            grow((model += text).size());
            break;
        case 2:
            offset = step % 3 == 0 ? CBUF_END : offset;
            inside = inside || offset == CBUF_END;
            ASSERT_EQ(CBufInsert(buffer.get(), text.data(), offset, count), inside ? CBUF_OK : CBUF_BAD_SIZE);
            if (inside)
                grow(model.insert(std::min(size_t{offset}, model.size()), text).size());
            break;
        case 3:
            ASSERT_EQ(CBufGetInsert(buffer.get(), &room, offset, count), inside ? CBUF_OK : CBUF_BAD_SIZE);
            if (inside) {
                text.copy(static_cast<char *>(room), count);
                grow(model.insert(offset, text).size());
            }
            break;
        case 4:
        case 5:
        case 6: {
            std::string out(count, '?');
            inside = size_t{offset} + count <= model.size();
            ASSERT_EQ(CBufCut(buffer.get(), step % 2 ? out.data() : nullptr, offset, count),
                      inside ? CBUF_OK : CBUF_BAD_SIZE);
            if (inside) {
                ASSERT_EQ(out, step % 2 ? model.substr(offset, count) : out);
                model.erase(offset, count);
            }
            break;
        }
        case 7:
            quantum = 1 + random() % 150;
            ASSERT_EQ(CBufSetQuantum(buffer.get(), quantum), CBUF_OK);
            break;
        case 8:
            ASSERT_EQ(CBufShrink(buffer.get()), CBUF_OK);
            memory = static_cast<uint32_t>(model.size());
            break;
        default:
            if (step % 40 == 0) {
                ASSERT_EQ(CBufSet(buffer.get(), text.data(), count), CBUF_OK);
                grow((model = text).size());
            } else if (step % 40 == 1) {
                ASSERT_EQ(CBufReset(buffer.get()), CBUF_OK);
                model.clear();
            } else if (step % 40 == 2) {
                ASSERT_EQ(CBufClear(buffer.get()), CBUF_OK);
                model.clear();
                memory = 0;
            }
        }
        ASSERT_EQ(contents(buffer.get()), model) << "step " << step;
        ASSERT_EQ(allocated(buffer.get()), memory) << "step " << step;
    }
}

TEST(CBuf, ReportsTheFirstThingWrong)
{
    uint32_t foreign[6] = {};
    void *address = foreign;
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *buffer = reinterpret_cast<CBuf *>(record);
        EXPECT_EQ(CBufDestroy(buffer), CBUF_BAD_HANDLE);
        EXPECT_EQ(CBufAppend(buffer, "x", 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(CBufGetAppend(buffer, &address, 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(address, foreign);
        EXPECT_EQ(CBufSet(buffer, "x", 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(CBufInsert(buffer, "x", 9, 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(CBufCut(buffer, nullptr, 9, 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(CBufGet(buffer, nullptr, nullptr), CBUF_BAD_HANDLE);
        EXPECT_EQ(CBufSetQuantum(buffer, 0), CBUF_BAD_HANDLE);
        for (auto call : {CBufReset, CBufClear, CBufShrink})
            EXPECT_EQ(call(buffer), CBUF_BAD_HANDLE);
        void *room = foreign;
        EXPECT_EQ(CBufGetInsert(buffer, &room, 1, 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(room, nullptr);
    }
    EXPECT_EQ(CBufCreate(0), nullptr);
    CBufPtr buffer(CBufCreate(100));
    EXPECT_EQ(CBufSetQuantum(buffer.get(), 0), CBUF_BAD_QUANTUM);
    CBufSet(buffer.get(), "abc", 3);
    EXPECT_EQ(allocated(buffer.get()), 100u);

    // The address follows the offset as given, whatever the result.
    void *data = nullptr;
    for (uint32_t offset : {3u, 4u, CBUF_END}) {
        EXPECT_EQ(CBufGetInsert(buffer.get(), &address, offset, 0), offset == 4 ? CBUF_BAD_SIZE : CBUF_OK);
        CBufGet(buffer.get(), &data, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(address), reinterpret_cast<uintptr_t>(data) + offset);
    }
    EXPECT_STREQ(CBufStatStr(0), "CBUF_OK");
    EXPECT_STREQ(CBufStatStr(4), "CBUF_BAD_SIZE");
    for (int32_t unknown : {5, -1, INT32_MIN})
        EXPECT_STREQ(CBufStatStr(unknown), "Bad cbufStat value");
}

TEST(CBuf, RefusesLengthsThatDoNotFitTheAddressSpace)
{
    test_support::HeapWatch watch;
    CBufPtr buffer(CBufCreate(100));
    CBufSet(buffer.get(), "abc", 3);
    int allocations = watch.allocations();
    void *room = nullptr;
    for (uint32_t count : {UINT32_MAX, UINT32_MAX - 3, UINT32_MAX - 2, UINT32_MAX - 50}) { // wrap, or wrap when rounded
        EXPECT_EQ(CBufGetAppend(buffer.get(), &room, count), CBUF_BAD_MALLOC);
        EXPECT_EQ(CBufInsert(buffer.get(), nullptr, 1, count), CBUF_BAD_MALLOC);
        EXPECT_EQ(CBufCut(buffer.get(), nullptr, 1, count), CBUF_BAD_SIZE);
        EXPECT_EQ(CBufCut(buffer.get(), nullptr, count, 200), CBUF_BAD_SIZE);
    }
    EXPECT_EQ(CBufSet(buffer.get(), "", UINT32_MAX), CBUF_BAD_MALLOC);
    EXPECT_EQ(watch.allocations(), allocations);
    EXPECT_EQ(contents(buffer.get()), "abc");
}

TEST(CBuf, SurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        CBuf *buffer = CBufCreate(4);
        if (buffer == nullptr)
            return;
        std::string model;
        for (int i = 0; i < 3; ++i) {
            uint32_t stat = CBufAppend(buffer, "abcdefgh", 8);
            model += stat == CBUF_OK ? "abcdefgh" : "";
            EXPECT_EQ(stat, stat == CBUF_OK ? CBUF_OK : CBUF_BAD_MALLOC);
            EXPECT_EQ(contents(buffer), model);
            EXPECT_EQ(allocated(buffer), model.empty() ? 8 : model.size()) << "recorded even without data";
        }
        CBufCut(buffer, nullptr, 1, 2);
        bool hadFailed = watch.failed();
        uint32_t shrunk = CBufShrink(buffer);
        EXPECT_EQ(shrunk, watch.failed() && !hadFailed ? CBUF_BAD_MALLOC : CBUF_OK);
        EXPECT_EQ(contents(buffer), model.erase(1, 2));
        EXPECT_EQ(CBufDestroy(buffer), CBUF_OK);
        EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed buffer keeps its magic";
    });
}

} // namespace

#include "general/cbuf.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <random>
#include <string>

namespace {

using test_support::expectEach;
using test_support::fieldOf;

constexpr size_t allocatedField = 3;

std::string contents(const CBuf *buffer)
{
    void *data = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(CBufGet(buffer, &data, &length), CBUF_OK);
    return length == 0 ? std::string() : std::string(static_cast<char *>(data), length);
}

TEST(CBuf, BehavesAsAStringUnderRandomTraffic)
{
    test_support::runTraffic(60, 30000, [](test_support::HeapWatch &watch, int steps) {
        std::mt19937 random(7);
        uint32_t quantum = 100;
        CBuf *buffer = CBufCreate(quantum);
        EXPECT_EQ(buffer == nullptr, watch.justFailed());
        std::string model;
        uint32_t memory = 0;
        bool hasData = false;
        for (int step = 0; step < steps && buffer != nullptr; ++step) {
            std::string text(random() % 60, '\0');
            std::generate(text.begin(), text.end(), [&random] { return static_cast<char>(random()); });
            auto count = static_cast<uint32_t>(text.size());
            auto offset = static_cast<uint32_t>(random() % (model.size() + 2));
            bool inside = offset <= model.size();
            std::string wanted = model;
            void *room = nullptr;
            uint32_t stat = CBUF_OK;
            unsigned choice = random() % 24;
            bool sets = choice < 9 && inside;
            if (choice < 3) {
                stat = CBufAppend(buffer, text.data(), count);
                sets = true;
                wanted += text;
            } else if (choice < 5) {
                stat = CBufGetAppend(buffer, &room, count);
                sets = true;
                wanted += text;
            } else if (choice < 7) {
                stat = CBufInsert(buffer, text.data(), offset == model.size() ? CBUF_END : offset, count);
                wanted.insert(std::min(size_t{offset}, model.size()), text);
            } else if (choice < 9) {
                stat = CBufGetInsert(buffer, &room, offset, count);
                wanted.insert(std::min(size_t{offset}, model.size()), text);
            } else if (choice < 17) {
                std::string out(count, '?');
                inside = size_t{offset} + count <= model.size();
                stat = CBufCut(buffer, step % 2 ? out.data() : nullptr, offset, count);
                if (inside) {
                    ASSERT_EQ(out, step % 2 ? model.substr(offset, count) : out);
                    wanted.erase(offset, count);
                }
            } else if (choice < 19) {
                quantum = 1 + random() % 150;
                stat = CBufSetQuantum(buffer, quantum);
            } else if (choice < 21) {
                stat = CBufShrink(buffer);
                memory = stat == CBUF_OK ? static_cast<uint32_t>(model.size()) : memory;
                hasData = hasData && memory != 0;
            } else if (step % 3 == 0) {
                sets = true;
                stat = CBufSet(buffer, text.data(), count);
                wanted = text;
            } else {
                stat = step % 3 == 1 ? CBufReset(buffer) : CBufClear(buffer);
                memory = step % 3 == 1 ? memory : 0;
                hasData = hasData && memory != 0;
                wanted.clear();
            }
            bool refused = choice >= 5 && choice < 17 && !inside;
            ASSERT_EQ(stat, refused ? CBUF_BAD_SIZE : watch.justFailed() ? CBUF_BAD_MALLOC : CBUF_OK) << step;
            auto rounded = static_cast<uint32_t>((wanted.size() + quantum - 1) / quantum * quantum);
            if (sets && rounded != 0 && (stat == CBUF_OK || !hasData)) {
                memory = hasData ? std::max(memory, rounded) : rounded; // recorded even if there is none
                hasData = stat == CBUF_OK;
            }
            if (stat == CBUF_OK && room != nullptr)
                text.copy(static_cast<char *>(room), count);
            model = stat == CBUF_OK ? wanted : model;
            ASSERT_EQ(contents(buffer), model) << "step " << step;
            ASSERT_EQ(fieldOf(buffer, allocatedField), memory) << "step " << step;
        }
        EXPECT_EQ(CBufDestroy(buffer), buffer == nullptr ? CBUF_BAD_HANDLE : CBUF_OK);
        EXPECT_TRUE(buffer == nullptr || watch.wordOfLastFreedBlock() == 0) << "the magic stays";
    });
}

TEST(CBuf, ReportsTheFirstThingWrong)
{
    uint32_t mark = 0;
    test_support::forEachForeign<CBuf>([&](CBuf *buffer) {
        void *address = &mark;
        expectEach(CBUF_BAD_HANDLE,
                   {CBufDestroy(buffer), CBufAppend(buffer, "x", 1), CBufGetAppend(buffer, &address, 1),
                    CBufSet(buffer, "x", 1), CBufInsert(buffer, "x", 9, 1), CBufCut(buffer, nullptr, 9, 1),
                    CBufGet(buffer, &address, nullptr), CBufReset(buffer), CBufClear(buffer), CBufShrink(buffer),
                    CBufSetQuantum(buffer, 0)});
        EXPECT_EQ(address, &mark);
        EXPECT_EQ(CBufGetInsert(buffer, &address, 1, 1), CBUF_BAD_HANDLE);
        EXPECT_EQ(address, nullptr);
    });
    EXPECT_EQ(CBufCreate(0), nullptr);
    CBuf *buffer = CBufCreate(100);
    EXPECT_EQ(CBufSetQuantum(buffer, 0), CBUF_BAD_QUANTUM);
    CBufSet(buffer, "abc", 3);
    // The address follows the offset as given, whatever the result.
    for (uint32_t offset : {3u, 4u, CBUF_END}) {
        void *address = nullptr;
        void *data = nullptr;
        EXPECT_EQ(CBufGetInsert(buffer, &address, offset, 0), offset == 4 ? CBUF_BAD_SIZE : CBUF_OK);
        CBufGet(buffer, &data, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(address), reinterpret_cast<uintptr_t>(data) + offset);
    }
    // Counts that wrap, or wrap when rounded to whole quanta.
    for (uint32_t count : {UINT32_MAX, UINT32_MAX - 3, UINT32_MAX - 2, UINT32_MAX - 50}) {
        void *room = &mark;
        expectEach(CBUF_BAD_MALLOC, {CBufGetAppend(buffer, &room, count), CBufInsert(buffer, nullptr, 1, count)});
        expectEach(CBUF_BAD_SIZE, {CBufCut(buffer, nullptr, 1, count), CBufCut(buffer, nullptr, count, 200)});
        EXPECT_EQ(room, &mark);
    }
    EXPECT_EQ(CBufSet(buffer, "", UINT32_MAX), CBUF_BAD_MALLOC);
    EXPECT_EQ(contents(buffer), "abc");
    EXPECT_EQ(fieldOf(buffer, allocatedField), 100u);
    EXPECT_EQ(CBufDestroy(buffer), CBUF_OK);

    EXPECT_STREQ(CBufStatStr(0), "CBUF_OK");
    EXPECT_STREQ(CBufStatStr(4), "CBUF_BAD_SIZE");
    for (int32_t unknown : {5, -1, INT32_MIN})
        EXPECT_STREQ(CBufStatStr(unknown), "Bad cbufStat value");
}

} // namespace

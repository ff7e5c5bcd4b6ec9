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
    auto create = [] { return CBufCreate(100); };
    test_support::runTraffic(60, 30000, create, CBufDestroy, [](auto &watch, int steps, CBuf *buffer) {
        std::mt19937 random(7);
        uint32_t quantum = 100;
        std::string model;
        uint32_t memory = 0;
        bool hasData = false;
        for (int step = 0; step < steps; ++step) {
            std::string text(random() % (random() % 3 == 0 ? 4 : 140), '\0');
            std::generate(text.begin(), text.end(), [&random] { return static_cast<char>(random()); });
            auto count = static_cast<uint32_t>(text.size());
            size_t offset = random() % (model.size() + 2);
            auto given = static_cast<uint32_t>(offset);
            unsigned choice = random() % 13;
            bool refused = choice >= 3 && choice < 5 && offset > model.size();
            std::string wanted = model;
            void *room = nullptr;
            uint32_t stat = CBUF_OK;
            if (choice < 2) {
                stat = choice == 0 ? CBufAppend(buffer, text.data(), count) : CBufGetAppend(buffer, &room, count);
                wanted += text;
            } else if (choice == 2) {
                stat = CBufSet(buffer, text.data(), count);
                wanted = text;
            } else if (choice < 5) {
                stat = choice == 3 ? CBufInsert(buffer, text.data(), offset == model.size() ? CBUF_END : given, count)
                                   : CBufGetInsert(buffer, &room, given, count);
                wanted.insert(std::min(offset, model.size()), text);
            } else if (choice < 10) {
                std::string out(count, '?');
                refused = offset + count > model.size();
                stat = CBufCut(buffer, step % 2 ? out.data() : nullptr, given, count);
                ASSERT_EQ(out, step % 2 && !refused ? model.substr(offset, count) : std::string(count, '?'));
                if (!refused)
                    wanted.erase(offset, count);
            } else if (choice == 10) {
                quantum = 1 + random() % 150;
                stat = CBufSetQuantum(buffer, quantum);
            } else if (choice == 11) {
                stat = CBufShrink(buffer);
                memory = stat == CBUF_OK ? static_cast<uint32_t>(model.size()) : memory;
                hasData = hasData && memory != 0;
            } else {
                stat = step % 2 ? CBufReset(buffer) : CBufClear(buffer);
                memory = step % 2 ? memory : 0;
                hasData = hasData && memory != 0;
                wanted.clear();
            }
            ASSERT_EQ(stat, refused ? CBUF_BAD_SIZE : watch.justFailed() ? CBUF_BAD_MALLOC : CBUF_OK) << step;
            auto rounded = static_cast<uint32_t>((wanted.size() + quantum - 1) / quantum * quantum);
            if (choice < 5 && !refused && rounded != 0 && (stat == CBUF_OK || !hasData)) {
                memory = hasData ? std::max(memory, rounded) : rounded; // recorded even if there is none
                hasData = stat == CBUF_OK;
            }
            if (stat == CBUF_OK && room != nullptr)
                text.copy(static_cast<char *>(room), count);
            model = stat == CBUF_OK ? wanted : model;
            ASSERT_EQ(contents(buffer), model) << "step " << step;
            ASSERT_EQ(fieldOf(buffer, allocatedField), memory) << "step " << step;
        }
    });
}

TEST(CBuf, RefusesCountsThatWrapAndTakesOffsetsAsGiven)
{
    CBuf *buffer = CBufCreate(100);
    expectEach(CBUF_OK, {CBufSet(buffer, "abc", 3), CBufSetQuantum(buffer, 0) - CBUF_BAD_QUANTUM});
    for (uint32_t offset : {3u, 4u, CBUF_END}) {
        void *address = nullptr;
        void *data = nullptr;
        EXPECT_EQ(CBufGetInsert(buffer, &address, offset, 0), offset == 4 ? CBUF_BAD_SIZE : CBUF_OK);
        CBufGet(buffer, &data, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(address), reinterpret_cast<uintptr_t>(data) + offset);
    }
    // They wrap at once, or when rounded to whole quanta.
    for (uint32_t count : {UINT32_MAX, UINT32_MAX - 3, UINT32_MAX - 2, UINT32_MAX - 50}) {
        void *room = nullptr;
        expectEach(CBUF_BAD_MALLOC, {CBufGetAppend(buffer, &room, count), CBufInsert(buffer, nullptr, 1, count),
                                     CBufSet(buffer, "", count)});
        expectEach(CBUF_BAD_SIZE, {CBufCut(buffer, nullptr, 1, count), CBufCut(buffer, nullptr, count, 200)});
        EXPECT_EQ(room, nullptr);
    }
    EXPECT_EQ(contents(buffer), "abc");
    EXPECT_EQ(fieldOf(buffer, allocatedField), 100u);
    EXPECT_EQ(CBufGet(buffer, nullptr, nullptr), CBUF_OK);
    EXPECT_EQ(CBufDestroy(buffer), CBUF_OK);
    test_support::expectNames(CBufStatStr,
                              {"CBUF_OK", "CBUF_BAD_HANDLE", "CBUF_BAD_MALLOC", "CBUF_BAD_QUANTUM", "CBUF_BAD_SIZE"},
                              "Bad cbufStat value");
}

} // namespace

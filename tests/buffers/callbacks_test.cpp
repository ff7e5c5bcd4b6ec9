#include "general/action.h"
#include "general/keycall.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <deque>
#include <random>
#include <tuple>
#include <vector>

namespace {

using test_support::HeapWatch;

/// A registry beside its model, both changed by random calls that the callbacks make while a
/// dispatch runs, nested ones included.
struct ActionTraffic {
    struct Entry {
        int32_t id;
        ActionCallback callback;
        bool removed;
    };

    HeapWatch &watch;
    std::mt19937 random;
    int32_t nextId;
    Action *action = ActionCreate();
    std::vector<Entry> model = {};
    std::vector<size_t> positions = {}; ///< of each running pass, the model entry that comes next
    bool destroyed = false;

    static void first(void *traffic, void *id, void *second) { called(&first, traffic, id, second); }
    static void other(void *traffic, void *id, void *second) { called(&other, traffic, id, second); }
    static void called(ActionCallback callback, void *traffic, void *id, void *second)
    {
        EXPECT_EQ(static_cast<char *>(second) - static_cast<char *>(traffic), 1);
        static_cast<ActionTraffic *>(traffic)->visit(callback, id);
    }

    static bool skips(const Entry &entry) { return entry.removed || entry.callback == nullptr; }

    /// One callback of the innermost pass: entries that it skipped have to be removed ones, or to
    /// have none.
    void visit(ActionCallback callback, void *userData)
    {
        size_t &position = positions.back();
        while (position < model.size() && skips(model[position]))
            ++position;
        ASSERT_LT(position, model.size());
        EXPECT_EQ(model[position].callback, callback);
        EXPECT_EQ(reinterpret_cast<intptr_t>(userData), model[position].id);
        ++position;
        for (int i = 0; i < 2 && model.size() < 60; ++i)
            step();
    }

    void step()
    {
        unsigned choice = random() % 32;
        if (choice < 12) {
            ActionCallback callback = choice < 4 ? first : choice < 8 ? other : nullptr;
            int32_t id = ActionAdd(action, callback, reinterpret_cast<void *>(intptr_t{nextId}));
            EXPECT_EQ(id, watch.justFailed() ? 0 : nextId);
            if (id != 0)
                model.push_back({id, callback, false});
            nextId = id == 0 ? nextId : id == INT32_MAX ? 0 : id + 1; // none is given twice
        } else if (choice < 18) {
            int32_t id = model.empty() || choice == 12 ? -1 : model[random() % model.size()].id;
            remove([id](const Entry &entry) { return entry.id == id; }, ActionRmv(action, id));
        } else if (choice < 20) {
            remove([](const Entry &entry) { return entry.callback == other; }, ActionRmvCall(action, other));
        } else if (choice == 20) {
            EXPECT_EQ(ActionRmvAll(action), ACTION_OK);
            for (Entry &entry : model)
                entry.removed = true;
        } else if (choice == 21 && (model.size() > 4 || nextId == 0)) {
            destroyed = true; // calls go on until the outermost pass ends
            EXPECT_EQ(ActionDestroy(action), ACTION_OK);
        } else if (choice < 26 && positions.size() < 3) {
            positions.push_back(0);
            EXPECT_EQ(ActionDo(action, this, reinterpret_cast<char *>(this) + 1), ACTION_OK);
            EXPECT_TRUE(std::all_of(model.begin() + static_cast<ptrdiff_t>(positions.back()), model.end(), skips));
            positions.pop_back();
        }
        if (destroyed && positions.empty())
            return;
        uint32_t count = 0;
        test_support::expectEach(ACTION_OK,
                                 {ActionCount(action, &count), ActionCount(action, nullptr) - ACTION_NO_ENTRY});
        EXPECT_EQ(count, std::count_if(model.begin(), model.end(), [](auto &entry) { return !entry.removed; }));
        if (positions.empty())
            std::erase_if(model, [](const Entry &entry) { return entry.removed; });
    }

    template<typename Predicate>
    void remove(Predicate picked, uint32_t stat)
    {
        auto found = std::find_if(model.begin(), model.end(), picked); // removed or not
        EXPECT_EQ(stat, found == model.end() ? ACTION_NO_ENTRY : ACTION_OK);
        if (found != model.end())
            found->removed = true;
    }
};

TEST(Action, CallbacksMayDoAnythingToTheirRegistry)
{
    auto drive = [](HeapWatch &watch, unsigned seed) {
        ActionTraffic traffic{watch, std::mt19937(seed), seed % 2 == 0 ? 1 : INT32_MAX - 9};
        EXPECT_EQ(traffic.action == nullptr, watch.justFailed());
        if (traffic.action == nullptr)
            return;
        test_support::fieldOf(traffic.action, 1) = static_cast<uint32_t>(traffic.nextId);
        while (!traffic.destroyed && !HasFailure())
            traffic.step();
    };
    test_support::failEachAllocation([&](HeapWatch &watch) { drive(watch, 3); });
    for (unsigned seed = 0; seed < 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        HeapWatch watch;
        drive(watch, seed);
        EXPECT_EQ(watch.liveBlocks(), 0);
    }
}

using Triple = std::tuple<uint32_t, void *, void *>;

TEST(KeyCall, BehavesAsADequeUnderRandomTraffic)
{
    test_support::runTraffic(60, 9000, KeyCallCreate, KeyCallDestroy, [](auto &watch, int steps, KeyCall *registry) {
        std::mt19937 random(1);
        std::deque<Triple> model;
        auto pointer = [&random] { return reinterpret_cast<void *>(static_cast<uintptr_t>(random())); };
        for (int step = 0; step < steps; ++step) {
            ASSERT_EQ(KeyCallNext(registry), static_cast<uint32_t>(step + 1));
            unsigned choice = random() % 7;
            uint32_t wanted = random() % 12;
            auto index = choice == 6 ? 0 : static_cast<int32_t>(random() % (model.size() + 2)) - 1;
            auto found = std::find_if(model.begin(), model.end(), [=](auto &t) { return std::get<0>(t) == wanted; });
            if (choice >= 5)
                found = index < 0 || index >= static_cast<int32_t>(model.size()) ? model.end() : model.begin() + index;
            Triple got = {wanted, nullptr, nullptr};
            auto &[key, callback, data] = got;
            if (choice < 3) {
                Triple added = {wanted, pointer(), pointer()};
                uint32_t stat = KeyCallAdd(registry, wanted, std::get<1>(added), std::get<2>(added));
                ASSERT_EQ(stat, watch.justFailed() ? KEYCALL_NO_MEMORY : KEYCALL_OK);
                if (stat == KEYCALL_OK)
                    model.push_back(added);
                stat = KeyCallGetI(registry, 0, nullptr, nullptr, nullptr);
                ASSERT_EQ(stat, model.empty() ? KEYCALL_NO_ENTRY : KEYCALL_OK);
                continue;
            }
            uint32_t stat = choice == 3   ? KeyCallGet(registry, wanted, &callback, &data)
                            : choice == 4 ? KeyCallRmv(registry, wanted, &callback, &data)
                            : choice == 5 ? KeyCallGetI(registry, index, &key, &callback, &data)
                                          : KeyCallRmvAny(registry, &key, &callback, &data);
            ASSERT_EQ(stat, found == model.end() ? KEYCALL_NO_ENTRY : KEYCALL_OK) << "step " << step;
            ASSERT_EQ(got, found == model.end() ? Triple(wanted, nullptr, nullptr) : *found) << "step " << step;
            if (found != model.end() && choice % 2 == 0)
                model.erase(found);
        }
    });
}

} // namespace

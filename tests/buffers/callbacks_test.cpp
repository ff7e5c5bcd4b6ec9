#include "general/action.h"
#include "general/keycall.h"

#include "tests/support/heap_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <tuple>
#include <vector>

namespace {

/// A registry beside its model, both changed by random calls that the callbacks make while a
/// dispatch runs, nested ones included.
class ActionTraffic {
public:
    explicit ActionTraffic(unsigned seed) : random_(seed) {}

    void run()
    {
        while (!destroyed_ && !testing::Test::HasFailure())
            step();
    }

private:
    struct Entry {
        int32_t id;
        ActionCallback callback;
        bool removed;
    };

    static void first(void *traffic, void *id, void *second) { called(&first, traffic, id, second); }
    static void other(void *traffic, void *id, void *second) { called(&other, traffic, id, second); }

    static void called(ActionCallback callback, void *traffic, void *id, void *second)
    {
        EXPECT_EQ(traffic, second);
        static_cast<ActionTraffic *>(traffic)->visit(callback, id);
    }

    /// One callback of the innermost pass: entries that it skipped have to be removed ones, or to
    /// have none.
    void visit(ActionCallback callback, void *userData)
    {
        size_t &position = positions_.back();
        while (position < model_.size() && skips(model_[position]))
            ++position;
        ASSERT_LT(position, model_.size());
        EXPECT_EQ(model_[position].callback, callback);
        EXPECT_EQ(reinterpret_cast<intptr_t>(userData), model_[position].id);
        ++position;
        for (int i = 0; i < 2 && model_.size() < 60; ++i)
            step();
    }

    static bool skips(const Entry &entry) { return entry.removed || entry.callback == nullptr; }

    void step()
    {
        unsigned choice = random_() % 32;
        auto live = [](const Entry &entry) { return !entry.removed; };
        if (choice < 12) {
            ActionCallback callbacks[] = {first, other, nullptr};
            ActionCallback callback = callbacks[random_() % 3];
            int32_t id = ActionAdd(action_, callback, reinterpret_cast<void *>(intptr_t{nextId_}));
            EXPECT_EQ(id, nextId_++);
            model_.push_back({id, callback, false});
        } else if (choice < 18) {
            int32_t id = static_cast<int32_t>(random_() % static_cast<unsigned>(nextId_ + 1));
            remove([id](const Entry &entry) { return entry.id == id; }, ActionRmv(action_, id));
        } else if (choice < 20) {
            remove([](const Entry &entry) { return entry.callback == &other; }, ActionRmvCall(action_, other));
        } else if (choice == 20) {
            EXPECT_EQ(ActionRmvAll(action_), ACTION_OK);
            for (Entry &entry : model_)
                entry.removed = true;
        } else if (choice == 21 && model_.size() > 4) {
            destroyed_ = true; // calls go on until the outermost pass ends
            EXPECT_EQ(ActionDestroy(action_), ACTION_OK);
        } else if (choice < 26 && positions_.size() < 3) {
            dispatch();
        }
        if (destroyed_ && positions_.empty())
            return;
        uint32_t count = 0;
        EXPECT_EQ(ActionCount(action_, &count), ACTION_OK);
        EXPECT_EQ(count, std::count_if(model_.begin(), model_.end(), live));
        if (positions_.empty())
            std::erase_if(model_, [](const Entry &entry) { return entry.removed; });
    }

    void dispatch()
    {
        positions_.push_back(0);
        EXPECT_EQ(ActionDo(action_, this, this), ACTION_OK);
        EXPECT_TRUE(std::all_of(model_.begin() + static_cast<ptrdiff_t>(positions_.back()), model_.end(), skips));
        positions_.pop_back();
    }

    template<typename Predicate>
    void remove(Predicate picked, uint32_t stat)
    {
        auto found = std::find_if(model_.begin(), model_.end(), picked); // removed or not
        EXPECT_EQ(stat, found == model_.end() ? ACTION_NO_ENTRY : ACTION_OK);
        if (found != model_.end())
            found->removed = true;
    }

    std::mt19937 random_;
    Action *action_ = ActionCreate();
    std::vector<Entry> model_;
    std::vector<size_t> positions_; ///< of each running pass, the model entry that comes next
    int32_t nextId_ = 1;
    bool destroyed_ = false;
};

TEST(Action, CallbacksMayDoAnythingToTheirRegistry)
{
    for (unsigned seed = 0; seed < 300; ++seed) {
        test_support::HeapWatch watch;
        {
            SCOPED_TRACE(seed);
            ActionTraffic(seed).run();
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST(Action, FreesAfterTheOutermostPass)
{
    static Action *action;
    static int runs;
    test_support::HeapWatch watch;
    action = ActionCreate();
    runs = 0;
    auto nest = [](void *depth, void *, void *) {
        if (depth == nullptr) {
            EXPECT_EQ(ActionDo(action, action, nullptr), ACTION_OK);
            EXPECT_EQ(ActionRmv(action, 2), ACTION_OK) << "still there after the nested pass";
            EXPECT_EQ(ActionRmv(action, 2), ACTION_OK) << "found until it is freed";
        }
    };
    ActionAdd(action, nest, nullptr);
    ActionAdd(
        action, [](void *, void *, void *) { EXPECT_EQ(ActionDestroy(action), ACTION_OK); }, nullptr);
    ActionAdd(
        action, [](void *, void *, void *) { ++runs; }, nullptr);
    int blocks = watch.liveBlocks();
    EXPECT_EQ(blocks, 4);
    EXPECT_EQ(ActionDo(action, nullptr, nullptr), ACTION_OK);
    EXPECT_EQ(runs, 2) << "the rest of both passes runs";
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(Action, ReportsWhatIsWrong)
{
    uint32_t foreign[5] = {};
    uint32_t count = 7;
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *action = reinterpret_cast<Action *>(record);
        EXPECT_EQ(ActionDestroy(action), ACTION_BAD_HANDLE);
        EXPECT_EQ(ActionAdd(action, nullptr, nullptr), 0);
        EXPECT_EQ(ActionRmv(action, 1), ACTION_BAD_HANDLE);
        EXPECT_EQ(ActionRmvCall(action, nullptr), ACTION_BAD_HANDLE);
        EXPECT_EQ(ActionRmvAll(action), ACTION_BAD_HANDLE);
        EXPECT_EQ(ActionDo(action, nullptr, nullptr), ACTION_BAD_HANDLE);
        EXPECT_EQ(ActionCount(action, &count), ACTION_BAD_HANDLE);
    }
    test_support::failEachAllocation([&](test_support::HeapWatch &watch) {
        Action *action = ActionCreate();
        if (action == nullptr)
            return;
        EXPECT_EQ(ActionRmv(action, 1), ACTION_NO_ENTRY);
        EXPECT_EQ(ActionCount(action, nullptr), ACTION_NO_ENTRY);
        int32_t id = ActionAdd(action, nullptr, nullptr);
        EXPECT_EQ(id, watch.failed() ? 0 : 1);
        EXPECT_EQ(ActionCount(action, &count), ACTION_OK);
        EXPECT_EQ(count, watch.failed() ? 0u : 1u);
        EXPECT_EQ(ActionDestroy(action), ACTION_OK);
    });
    Action *action = ActionCreate();
    reinterpret_cast<int32_t *>(action)[1] = INT32_MAX;
    EXPECT_EQ(ActionAdd(action, nullptr, nullptr), INT32_MAX);
    EXPECT_EQ(ActionAdd(action, nullptr, nullptr), 0) << "ids are never given twice";
    EXPECT_EQ(ActionDestroy(action), ACTION_OK);
}

using Triple = std::tuple<uint32_t, void *, void *>;

TEST(KeyCall, BehavesAsADequeUnderRandomTraffic)
{
    std::mt19937 random(1);
    test_support::HeapWatch watch;
    KeyCall *registry = KeyCallCreate();
    EXPECT_EQ(KeyCallNext(registry), 1u);
    EXPECT_EQ(KeyCallNext(registry), 2u);
    std::deque<Triple> model;
    auto pointer = [&random] { return reinterpret_cast<void *>(static_cast<uintptr_t>(random())); };
    for (int step = 0; step < 20000; ++step) {
        uint32_t key = random() % 12;
        auto index = static_cast<int32_t>(random() % (model.size() + 2)) - 1;
        auto found = std::find_if(model.begin(), model.end(), [key](auto &t) { return std::get<0>(t) == key; });
        Triple got{};
        auto &[gotKey, callback, data] = got;
        uint32_t stat = KEYCALL_OK;
        bool removes = false;
        switch (random() % 7) {
        case 0:
        case 1:
        case 2:
            model.emplace_back(key, pointer(), pointer());
            ASSERT_EQ(KeyCallAdd(registry, key, std::get<1>(model.back()), std::get<2>(model.back())), KEYCALL_OK);
            continue;
        case 3:
            stat = KeyCallGet(registry, key, &callback, &data);
            break;
        case 4:
            removes = true;
            stat = KeyCallRmv(registry, key, &callback, &data);
            break;
        case 5:
            found = index < 0 || index >= static_cast<int32_t>(model.size()) ? model.end() : model.begin() + index;
            stat = KeyCallGetI(registry, index, &gotKey, &callback, &data);
            key = gotKey;
            break;
        default:
            removes = true;
            found = model.begin();
            stat = KeyCallRmvAny(registry, &gotKey, &callback, &data);
            key = gotKey;
        }
        ASSERT_EQ(stat, found == model.end() ? KEYCALL_NO_ENTRY : KEYCALL_OK) << "step " << step;
        if (found == model.end())
            continue;
        gotKey = key;
        ASSERT_EQ(got, *found) << "step " << step;
        if (removes)
            model.erase(found);
    }
    KeyCallAdd(registry, 99, nullptr, nullptr);
    EXPECT_EQ(KeyCallGet(registry, 99, nullptr, nullptr), KEYCALL_OK);
    EXPECT_EQ(KeyCallRmv(registry, 99, nullptr, nullptr), KEYCALL_OK);
    EXPECT_EQ(KeyCallDestroy(registry), KEYCALL_OK);
    EXPECT_EQ(watch.firstWordOfLastFreedBlock(), 0u) << "a destroyed registry keeps its magic";
}

TEST(KeyCall, ReportsWhatIsWrong)
{
    uint32_t foreign[3] = {};
    for (uint32_t *record : {static_cast<uint32_t *>(nullptr), foreign}) {
        auto *registry = reinterpret_cast<KeyCall *>(record);
        EXPECT_EQ(KeyCallDestroy(registry), KEYCALL_BAD_HANDLE);
        EXPECT_EQ(KeyCallNext(registry), 0u);
        EXPECT_EQ(KeyCallAdd(registry, 1, nullptr, nullptr), KEYCALL_BAD_HANDLE);
        EXPECT_EQ(KeyCallRmv(registry, 1, nullptr, nullptr), KEYCALL_BAD_HANDLE);
        EXPECT_EQ(KeyCallRmvAny(registry, nullptr, nullptr, nullptr), KEYCALL_BAD_HANDLE);
        EXPECT_EQ(KeyCallGet(registry, 1, nullptr, nullptr), KEYCALL_BAD_HANDLE);
        EXPECT_EQ(KeyCallGetI(registry, -1, nullptr, nullptr, nullptr), KEYCALL_BAD_HANDLE);
    }
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        KeyCall *registry = KeyCallCreate();
        if (registry == nullptr)
            return;
        uint32_t added = KeyCallAdd(registry, 1, nullptr, nullptr);
        EXPECT_EQ(added, watch.failed() ? KEYCALL_NO_MEMORY : KEYCALL_OK);
        EXPECT_EQ(KeyCallRmvAny(registry, nullptr, nullptr, nullptr), watch.failed() ? KEYCALL_NO_ENTRY : KEYCALL_OK);
        EXPECT_EQ(KeyCallDestroy(registry), KEYCALL_OK);
    });
}

} // namespace

#include "general/action.h"
#include "general/keycall.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <array>
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
        EXPECT_EQ(static_cast<char *>(second) - static_cast<char *>(traffic), 1);
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
        if (choice < 12) {
            ActionCallback callback = std::array{&first, &other, ActionCallback{}}[random_() % 3];
            int32_t id = ActionAdd(action_, callback, reinterpret_cast<void *>(intptr_t{nextId_}));
            EXPECT_EQ(id, nextId_++);
            model_.push_back({id, callback, false});
        } else if (choice < 18) {
            auto id = static_cast<int32_t>(random_() % static_cast<unsigned>(nextId_ + 1));
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
            positions_.push_back(0);
            EXPECT_EQ(ActionDo(action_, this, reinterpret_cast<char *>(this) + 1), ACTION_OK);
            EXPECT_TRUE(std::all_of(model_.begin() + static_cast<ptrdiff_t>(positions_.back()), model_.end(), skips));
            positions_.pop_back();
        }
        if (destroyed_ && positions_.empty())
            return;
        uint32_t count = 0;
        EXPECT_EQ(ActionCount(action_, &count), ACTION_OK);
        EXPECT_EQ(count, std::count_if(model_.begin(), model_.end(), [](auto &entry) { return !entry.removed; }));
        if (positions_.empty())
            std::erase_if(model_, [](const Entry &entry) { return entry.removed; });
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
    for (unsigned seed = 0; seed < 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        test_support::HeapWatch watch;
        ActionTraffic(seed).run();
        EXPECT_EQ(watch.liveBlocks(), 0);
    }
}

TEST(Action, ReportsWhatIsWrong)
{
    uint32_t count = 7;
    test_support::forEachForeign<Action>([&](Action *action) {
        test_support::expectEach(ACTION_BAD_HANDLE,
                                 {ActionDestroy(action), ActionRmv(action, 1), ActionRmvCall(action, nullptr),
                                  ActionRmvAll(action), ActionDo(action, nullptr, nullptr), ActionCount(action, &count),
                                  ActionCount(action, nullptr)});
        EXPECT_EQ(ActionAdd(action, nullptr, nullptr), 0);
    });
    EXPECT_EQ(count, 7u);
    test_support::failEachAllocation([&](test_support::HeapWatch &watch) {
        Action *action = ActionCreate();
        if (action == nullptr)
            return;
        EXPECT_EQ(ActionCount(action, nullptr), ACTION_NO_ENTRY);
        test_support::fieldOf(action, 1) = INT32_MAX;
        int32_t id = ActionAdd(action, nullptr, nullptr);
        EXPECT_EQ(id, watch.failed() ? 0 : INT32_MAX);
        EXPECT_EQ(ActionAdd(action, nullptr, nullptr), INT32_MAX - id) << "ids are never given twice";
        EXPECT_EQ(ActionDestroy(action), ACTION_OK);
    });
}

using Triple = std::tuple<uint32_t, void *, void *>;

TEST(KeyCall, KeepsTheOrderOfAdding)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        KeyCall *registry = KeyCallCreate();
        if (registry == nullptr)
            return;
        test_support::expectEach(1, {KeyCallNext(registry), KeyCallNext(registry) - 1, KeyCallNext(registry) - 2});
        char marks[8];
        std::deque<Triple> model;
        for (uint32_t key : {5u, 7u, 5u, 0u, 7u}) {
            Triple triple = {key, &marks[key], &marks[model.size()]};
            uint32_t stat = KeyCallAdd(registry, key, std::get<1>(triple), std::get<2>(triple));
            EXPECT_EQ(stat, watch.justFailed() ? KEYCALL_NO_MEMORY : KEYCALL_OK);
            if (stat == KEYCALL_OK)
                model.push_back(triple);
        }
        auto expectAt = [&](int32_t index, uint32_t stat, const Triple &got, bool removes) {
            bool exists = index >= 0 && index < static_cast<int32_t>(model.size());
            EXPECT_EQ(stat, exists ? KEYCALL_OK : KEYCALL_NO_ENTRY);
            EXPECT_EQ(got, exists ? model[static_cast<size_t>(index)] : Triple()) << "at " << index;
            if (exists && removes)
                model.erase(model.begin() + index);
        };
        Triple got;
        auto &[key, callback, data] = got;
        for (int32_t index = -1; index <= static_cast<int32_t>(model.size()); ++index, got = Triple())
            expectAt(index, KeyCallGetI(registry, index, &key, &callback, &data), got, false);
        for (bool removes : {false, true})
            for (uint32_t wanted : {7u, 5u, 6u}) {
                auto isWanted = [wanted](const Triple &triple) { return std::get<0>(triple) == wanted; };
                auto found = std::find_if(model.begin(), model.end(), isWanted);
                uint32_t stat = (removes ? KeyCallRmv(registry, wanted, &callback, &data)
                                         : KeyCallGet(registry, wanted, &callback, &data));
                key = stat == KEYCALL_OK ? wanted : 0;
                expectAt(static_cast<int32_t>(found - model.begin()), stat, got, removes);
                got = Triple();
            }
        test_support::expectEach(KEYCALL_OK, {KeyCallGetI(registry, 0, nullptr, nullptr, nullptr)});
        for (size_t left = model.size() + 1; left-- > 0; got = Triple())
            expectAt(0, KeyCallRmvAny(registry, &key, &callback, &data), got, true);
        KeyCallAdd(registry, 1, nullptr, nullptr);
        EXPECT_EQ(KeyCallDestroy(registry), KEYCALL_OK);
        EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "the magic stays";
    });
    test_support::forEachForeign<KeyCall>([](KeyCall *registry) {
        test_support::expectEach(
            KEYCALL_BAD_HANDLE,
            {KeyCallDestroy(registry), KeyCallAdd(registry, 1, nullptr, nullptr),
             KeyCallRmv(registry, 1, nullptr, nullptr), KeyCallRmvAny(registry, nullptr, nullptr, nullptr),
             KeyCallGet(registry, 1, nullptr, nullptr), KeyCallGetI(registry, -1, nullptr, nullptr, nullptr)});
        EXPECT_EQ(KeyCallNext(registry), 0u);
    });
}

} // namespace

#include "general/action.h"
#include "general/keycall.h"

#include "tests/support/handles.h"

#include <array>
#include <climits>
#include <functional>
#include <string>

namespace {

using namespace test_support;

/// What an entry of the registry stands for.
struct Task {
    char name;
    std::function<void()> work = [] {};
};

std::string done; ///< the names of the tasks that were called

void perform(void *first, void *task, void *second)
{
    EXPECT_EQ(static_cast<char *>(second) - static_cast<char *>(first), 1);
    done += static_cast<Task *>(task)->name;
    static_cast<Task *>(task)->work();
}

void dispatch(Action *action)
{
    char arguments[2];
    EXPECT_EQ(ActionDo(action, &arguments[0], &arguments[1]), ACTION_OK);
}

uint32_t countOf(Action *action)
{
    uint32_t count = UINT32_MAX;
    EXPECT_EQ(ActionCount(action, &count), ACTION_OK);
    EXPECT_EQ(ActionCount(action, nullptr), ACTION_NO_ENTRY);
    return count;
}

TEST(Action, CallsItsEntriesInOrderAndGivesNoNumberTwice)
{
    failEachAllocation([](HeapWatch &watch) {
        Task a{'a'}, b{'b'}, c{'c'};
        Action *action = ActionCreate();
        if (action == nullptr)
            return;
        int32_t next = 1;
        for (Task *task : {&a, &b, &a, &c}) {
            int32_t id = ActionAdd(action, task == &c ? nullptr : perform, task); // c has no callback
            EXPECT_EQ(id, watch.justFailed() ? 0 : next);
            next += id != 0;
        }
        EXPECT_EQ(countOf(action), static_cast<uint32_t>(next - 1));
        if (!watch.failed()) {
            dispatch(action);
            expectEach(ACTION_OK,
                       {ActionRmv(action, 2), ActionRmvCall(action, perform), ActionRmvCall(action, nullptr)});
            expectEach(ACTION_NO_ENTRY, {ActionRmv(action, 2), ActionRmv(action, 1), ActionRmvCall(action, nullptr)});
            dispatch(action);
            EXPECT_EQ(std::exchange(done, {}), "abaa");
        }
        expectEach(ACTION_OK, {ActionRmvAll(action), countOf(action), ActionDestroy(action)});
    });
}

TEST(Action, CallbacksMayDoAnythingToTheirRegistry)
{
    HeapWatch watch;
    Action *action = ActionCreate();
    auto otherCallback = [](void *first, void *task, void *second) { perform(first, task, second); };
    Task plain{'p'}, other{'o'}, removing{'r'}, nesting{'n'}, clearing{'c'}, destroying{'d'};
    auto add = [&](Task &task) { return ActionAdd(action, &task == &other ? +otherCallback : perform, &task); };

    // Until the pass ends, what is removed can be removed again, by callback too: the second "o" stays.
    removing.work = [&] {
        expectEach(ACTION_OK, {ActionRmv(action, 2), ActionRmv(action, 2), ActionRmvCall(action, otherCallback),
                               ActionRmvCall(action, otherCallback), countOf(action) - 2, add(plain) - 5});
    };
    expectEach(10, {add(removing) + 9, add(plain) + 8, add(other) + 7, add(other) + 6});
    dispatch(action);
    EXPECT_EQ(std::exchange(done, {}), "rop");
    EXPECT_EQ(ActionRmv(action, 2), ACTION_NO_ENTRY);
    expectEach(ACTION_OK, {ActionRmv(action, 1), ActionRmvCall(action, otherCallback), countOf(action) - 1});

    fieldOf(action, 1) = INT_MAX;
    EXPECT_EQ(add(plain), INT_MAX);
    expectEach(0, {add(plain), ActionRmv(action, INT_MAX)}); // there are no more numbers
    fieldOf(action, 1) = 6;
    nesting.work = [&] { // a pass inside another frees nothing
        EXPECT_EQ(ActionRmv(action, 6), ACTION_OK);
        int blocks = watch.liveBlocks();
        dispatch(action);
        EXPECT_EQ(watch.liveBlocks(), blocks);
    };
    expectEach(6, {add(nesting), add(plain) - 1});
    dispatch(action);
    EXPECT_EQ(std::exchange(done, {}), "pnppp");

    clearing.work = [&] { expectEach(ACTION_OK, {ActionRmvAll(action), countOf(action), add(destroying) - 10}); };
    destroying.work = [&] { expectEach(ACTION_OK, {ActionDestroy(action), ActionRmv(action, 10), add(plain) - 11}); };
    expectEach(8, {add(clearing), add(plain) - 1});
    dispatch(action);
    EXPECT_EQ(std::exchange(done, {}), "ppcdp") << "calls go on until the outermost pass ends";
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(KeyCall, KeepsTriplesInOrder)
{
    failEachAllocation([](HeapWatch &watch) {
        using Outcome = std::array<uintptr_t, 4>; // result, key, callback, data
        KeyCall *registry = KeyCallCreate();
        uint32_t key = 7;
        void *callback = nullptr, *data = nullptr;
        auto pointer = [](uintptr_t number) { return reinterpret_cast<void *>(number); };
        auto outcome = [&](uint32_t stat) {
            return Outcome{stat, key, reinterpret_cast<uintptr_t>(callback), reinterpret_cast<uintptr_t>(data)};
        };
        for (uint32_t added : {5, 6, 5}) {
            ++key;
            uint32_t stat = KeyCallAdd(registry, added, pointer(key), pointer(key + 100));
            EXPECT_EQ(stat, registry == nullptr  ? KEYCALL_BAD_HANDLE
                            : watch.justFailed() ? KEYCALL_NO_MEMORY
                                                 : KEYCALL_OK);
        }
        if (!watch.failed()) {
            expectEach(1, {KeyCallNext(registry), KeyCallNext(registry) - 1, KeyCallNext(registry) - 2});
            EXPECT_EQ(outcome(KeyCallGet(registry, 4, &callback, &data)), (Outcome{KEYCALL_NO_ENTRY, 10}));
            EXPECT_EQ(outcome(KeyCallGet(registry, 5, &callback, &data)), (Outcome{KEYCALL_OK, 10, 8, 108}));
            EXPECT_EQ(outcome(KeyCallGetI(registry, 1, &key, &callback, &data)), (Outcome{KEYCALL_OK, 6, 9, 109}));
            EXPECT_EQ(outcome(KeyCallGetI(registry, -1, &key, &callback, &data)),
                      (Outcome{KEYCALL_NO_ENTRY, 6, 9, 109}));
            EXPECT_EQ(outcome(KeyCallRmv(registry, 5, &callback, &data)), (Outcome{KEYCALL_OK, 6, 8, 108}));
            EXPECT_EQ(outcome(KeyCallGetI(registry, 1, &key, nullptr, &data)), (Outcome{KEYCALL_OK, 5, 8, 110}));
            EXPECT_EQ(outcome(KeyCallRmvAny(registry, &key, &callback, &data)), (Outcome{KEYCALL_OK, 6, 9, 109}));
            EXPECT_EQ(outcome(KeyCallRmv(registry, 5, &callback, nullptr)), (Outcome{KEYCALL_OK, 6, 10, 109}));
            EXPECT_EQ(outcome(KeyCallRmvAny(registry, &key, &callback, &data)),
                      (Outcome{KEYCALL_NO_ENTRY, 6, 10, 109}));
        }
        EXPECT_EQ(KeyCallDestroy(registry), registry == nullptr ? KEYCALL_BAD_HANDLE : KEYCALL_OK);
    });
}

} // namespace

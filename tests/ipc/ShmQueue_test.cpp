#include "tests/ipc/processes.h"
#include "tests/ipc/raw_peer.h"
#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <aclapi.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

using namespace ipc_test;
using namespace test_support;

namespace {

bool isSet(HANDLE event)
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

std::string record(std::initializer_list<DWORD> words)
{
    return {reinterpret_cast<const char *>(words.begin()), words.size() * sizeof(DWORD)};
}

/// A connection in one process: the library at one end, the raw peer at the other; null if that failed.
struct Link : Queue {
    explicit Link(bool accepts, DWORD capacity = 8, const std::string &name = "link")
    {
        std::string init = "QVSShmInit" + name, connection = "QVSShm" + name + "07";
        if (accepts)
            listener.reset(ShmQueueListen(name.c_str()));
        if (accepts && listener == nullptr)
            return;
        shake.emplace(accepts ? RawPeer::requester : RawPeer::listener, init, 256);
        shake->put(accepts ? "1234" : record({7, capacity}));
        if (!accepts && SetEvent(shake->peerEvent))
            raw.emplace(RawPeer::acceptor, connection, capacity);
        reset(accepts ? ShmQueueAccept(listener.get(), 7, capacity) : ShmQueueConnect(name.c_str()));
        if (accepts && *this != nullptr)
            raw.emplace(RawPeer::connector, connection, capacity);
    }
    DWORD &theirs(Word word) { return raw->out(word); } ///< in the ring that the raw peer writes
    DWORD &ours(Word word) { return raw->in(word); }

    Queue listener;
    std::optional<RawPeer> shake, raw;
};

TEST(ShmQueue, MakesItsSegmentsAndObjectsAsPeersExpectThem)
{
    Link link(true, 1000);
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link.shake->in(end) + link.shake->out(end), 512u);
    EXPECT_TRUE(isSet(link.shake->ownEvent) && !isSet(link.shake->ownEvent)); // reset by the first wait
    EXPECT_EQ(link.shake->get(9), record({7, 1000}));
    for (DWORD i = 0; i < 521; ++i)
        EXPECT_EQ((&link.raw->processId())[i], i == 4 || i == 264 ? 1000u : 0u);
    for (HANDLE event : {link.raw->ownEvent, link.raw->peerEvent, link.raw->ownWake, link.raw->peerWake}) {
        SetEvent(event);
        EXPECT_TRUE(isSet(event) && isSet(event)); // manual reset
        ResetEvent(event);
    }
    EXPECT_EQ(ShmQueueListen("link"), nullptr);
    for (auto [number, name] : {std::pair(123u, "QVSShmlink123"), {0u, "QVSShmlink00"}, {~0u, "QVSShmlink-1"}}) {
        link.shake->put("1234");
        Queue queue(ShmQueueAccept(link.listener.get(), number, 0));
        EXPECT_EQ(queue.add("a"), SHMQUEUE_FULL); // a ring of no bytes
        EXPECT_NE(RawPeer(RawPeer::connector, name, 0).view, nullptr) << name;
    }
    HANDLE mapping = OpenFileMappingA(READ_CONTROL, FALSE, "QVSShmlink07");
    ACL *list = reinterpret_cast<ACL *>(1);
    GetSecurityInfo(mapping, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr, nullptr);
    EXPECT_EQ(list, nullptr); // present and null: everyone may do everything
    CloseHandle(mapping);
}

TEST(ShmQueue, RefusesWhatItCannotServe)
{
    Footprint before;
    for (const char *name : {static_cast<const char *>(nullptr), "sixteen_letters_", "bad\\name", "nobody"}) {
        EXPECT_EQ(Queue(ShmQueueListen(name)) != nullptr, name != nullptr && *name == 'n');
        EXPECT_EQ(ShmQueueConnect(name), nullptr);
    }
    Queue none;
    for (uint32_t status :
         {none.add("a"), none.remove(1), none.select(1), none.choose(1), none.events(), none.destroy()})
        EXPECT_EQ(status, SHMQUEUE_BAD_HANDLE);
    EXPECT_EQ(ShmQueueGetEvent(nullptr), nullptr);

    Link link(true, 8, "fifteen_letters");
    ASSERT_NE(link, nullptr);
    for (ShmQueue *queue : {static_cast<ShmQueue *>(nullptr), link.get(), link.listener.get()}) // nothing pending
        EXPECT_EQ(ShmQueueAccept(queue, 8, 8), nullptr);
    link.shake->put("1234");
    for (uint32_t size : {0x7FFFFFD6u, 0x7FFFFFD7u, 0x7FFFFFD8u, 0x80000000u, ~0u}) // 2S + 84 goes over 32 bits
        EXPECT_EQ(ShmQueueAccept(link.listener.get(), 8, size), nullptr);
    EXPECT_EQ(link.shake->out(count), 4u);                         // the request is still there
    EXPECT_EQ(ShmQueueAccept(link.listener.get(), 7, 8), nullptr); // the number is in use
    EXPECT_EQ(link.shake->out(count), 0u);
    SetEvent(link.shake->ownEvent); // a client that is let go by it finds another one's connection
    link.raw->announce(GetCurrentProcessId() + 1);
    EXPECT_EQ(ShmQueueConnect("fifteen_letters"), nullptr);
    EXPECT_EQ(link.raw->processId(), GetCurrentProcessId() + 1);
    // The segment is smaller than the reply says, or not all there: one of its two pages is.
    HANDLE segment =
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0, 8192, "QVSShmliar01");
    void *view = MapViewOfFile(segment, FILE_MAP_WRITE, 0, 0, 0);
    VirtualAlloc(view, 4096, MEM_COMMIT, PAGE_READWRITE);
    for (DWORD promised : {4000u, 5000u, 0x7FFFFFD5u, 0x7FFFFFD6u, ~0u}) {
        RawPeer listener(RawPeer::listener, "QVSShmInitliar", 256), acceptor(RawPeer::acceptor, "QVSShmliar01", 100);
        listener.put(record({1, promised}));
        SetEvent(listener.peerEvent);
        EXPECT_EQ(ShmQueueConnect("liar"), nullptr) << promised;
    }
    UnmapViewOfFile(view);
    CloseHandle(segment);
}

TEST(ShmQueue, InteroperatesInBothRoles)
{
    std::mt19937 random(5);
    for (auto [accepts, capacity] : {std::pair(true, 1u), {true, 7u}, {false, 7u}, {true, 64u}, {false, 1001u}}) {
        Link link(accepts, capacity);
        ASSERT_NE(link, nullptr);
        EXPECT_EQ(link.raw->processId(), accepts ? 0 : GetCurrentProcessId());
        EXPECT_EQ(isSet(link.raw->processWait), !accepts);
        Bytes written[2] = {{1}, {2}}, seen[2] = {{1}, {2}}; // outward and inward
        uint32_t held[2] = {};
        for (int step = 0; step < 2000; ++step) {
            bool inward = random() % 2 == 0, adds = random() % 2 == 0;
            uint32_t length = 1 + random() % (2 * capacity), status = SHMQUEUE_OK;
            uint32_t moved = std::min(length, adds ? capacity - held[inward] : held[inward]);
            if (adds) {
                std::string data = Bytes(written[inward]).next(length);
                inward ? link.value = link.raw->put(data) : status = link.add(data);
                written[inward].next(moved);
            } else {
                inward ? status = link.remove(length) : (link.bytes = link.raw->get(length), 0);
                ASSERT_EQ(link.bytes, seen[inward].next(moved));
            }
            ASSERT_EQ(status, moved > 0 || adds == inward ? SHMQUEUE_OK : adds ? SHMQUEUE_FULL : SHMQUEUE_EMPTY);
            ASSERT_TRUE(!adds || link.value == (status == SHMQUEUE_FULL ? length : moved));
            held[inward] += adds ? moved : 0 - moved;
            ASSERT_EQ(link.ours(count), held[0]);
            ASSERT_TRUE(held[1] != 0 || link.theirs(readPos) + link.theirs(writePos) == 0);
            ASSERT_EQ(link.select(3, 0), SHMQUEUE_OK);
            ASSERT_EQ(link.value, (held[1] == 0 ? 0 : 1) + (held[0] == capacity ? 0u : 2u));
        }
    }
}

/// What one side sleeps on, has pending, and whether its adds found the ring full.
struct SideWords {
    DWORD waits = 0, pending = 0, blocked = 0;
    bool operator==(const SideWords &) const = default;
};

/// A call of either end, its status and what it hands over, and the words of both sides after it.
struct Step {
    const char *call;
    DWORD argument = 0, status = SHMQUEUE_OK, value = 0;
    SideWords ours = {}, theirs = {};
};

TEST(ShmQueue, WakesAndRaisesEvents)
{
    Link link(true);
    ASSERT_NE(link, nullptr);
    RawPeer &peer = *link.raw;
    {
        FailingImport<BOOL WINAPI(HANDLE)> failing("SetEvent", FALSE, 1);
        EXPECT_EQ(link.choose(63), SHMQUEUE_BAD_HANDLE); // the first step finds the same bits due
    }
    DWORD slept = 0, argument = 0;
    const std::map<std::string, std::function<uint32_t()>> calls = {
        {"add", [&] { return link.add(std::string(argument, 'x')); }},
        {"remove", [&] { return link.remove(argument); }},
        {"choose", [&] { return link.choose(argument); }},
        {"events", [&] { return link.events(); }},
        {"select", [&] { return link.select(argument, 10); }},
        {"put", [&] { return link.value = link.raw->put(std::string(argument, 'y')), 0; }},
        {"get", [&] { return link.value = link.raw->get(argument).size(), 0; }},
        {"watch", [&] { return link.theirs(eventMask) = argument, ResetEvent(peer.ownEvent), peer.out(pending) = 0; }},
        {"sleep", [&] { return link.theirs(waitMask) = slept = argument, ResetEvent(peer.ownWake), 0; }},
        {"close", [&] { return link.theirs(closed) = link.ours(closed) = 1, peer.tell(0, 32), 0; }}};
    // clang-format off
    const Step steps[] = {
        // Raised if due by the present state, added up when raised twice, dropped when no longer chosen.
        {.call = "choose", .argument = 63, .ours = {.pending = 2}},
        {.call = "put", .argument = 4, .value = 4, .ours = {.pending = 11}},
        {.call = "events", .value = 11},
        {.call = "remove", .argument = 1, .value = 1, .ours = {.pending = 9}},
        {.call = "remove", .argument = 1, .value = 1, .ours = {.pending = 18}},
        {.call = "choose", .argument = 2, .ours = {.pending = 2}},
        {.call = "choose", .argument = 3, .ours = {.pending = 3}},
        {.call = "events", .value = 3},
        {.call = "choose", .argument = 11, .ours = {.pending = 8}},
        {.call = "remove", .argument = 9, .value = 2, .ours = {.pending = 8}},
        {.call = "choose", .argument = 34},
        // The peer is woken and told by what comes into an empty ring, and only the full ring blocks.
        {.call = "watch", .argument = 11},
        {.call = "sleep", .argument = 6, .theirs = {.waits = 6}},
        {.call = "add", .argument = 4, .value = 4, .theirs = {.waits = 6, .pending = 9}},
        {.call = "sleep", .argument = 1, .theirs = {.waits = 1, .pending = 9}},
        {.call = "add", .argument = 2, .value = 2, .theirs = {.waits = 1, .pending = 9}},
        {.call = "add", .argument = 10, .value = 2, .theirs = {.waits = 1, .pending = 9}},
        {.call = "add", .argument = 10, .status = SHMQUEUE_FULL, .value = 10, .ours = {.blocked = 1}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "get", .argument = 1, .value = 1, .ours = {.pending = 2}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "events", .value = 2, .theirs = {.waits = 1, .pending = 9}},
        {.call = "add", .argument = 1, .value = 1, .theirs = {.waits = 1, .pending = 9}},
        // The wait mask stays after a time-out; woken by the late signal, a select finds nothing ready.
        {.call = "select", .argument = 3, .ours = {.waits = 3}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "select", .argument = 1, .ours = {.waits = 1}, .theirs = {.waits = 1, .pending = 9}}, // of this wait alone
        {.call = "select", .argument = 3, .ours = {.waits = 3}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "get", .argument = 1, .value = 1, .ours = {.waits = 1}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "add", .argument = 1, .value = 1, .ours = {.waits = 1}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "select", .argument = 2, .theirs = {.waits = 1, .pending = 9}},
        {.call = "select", .argument = 1, .ours = {.waits = 1}, .theirs = {.waits = 1, .pending = 9}},
        {.call = "put", .argument = 7, .value = 7, .theirs = {.waits = 1, .pending = 9}},
        {.call = "put", .argument = 2, .value = 1, .theirs = {.waits = 1, .pending = 9}},
        // A blocked peer is told once.
        {.call = "watch", .argument = 2, .theirs = {.waits = 1}},
        {.call = "put", .argument = 1, .theirs = {.waits = 1, .blocked = 1}},
        {.call = "sleep", .argument = 6, .theirs = {.waits = 6, .blocked = 1}},
        {.call = "remove", .argument = 3, .value = 3, .theirs = {.waits = 4, .pending = 2}},
        {.call = "remove", .argument = 3, .value = 3, .theirs = {.waits = 4, .pending = 2}},
        // What was added before the end is still removed.
        {.call = "close", .ours = {.pending = 32}, .theirs = {.waits = 4, .pending = 2}},
        {.call = "add", .argument = 1, .status = SHMQUEUE_CLOSED, .value = 1, .ours = {.pending = 32}, .theirs = {.waits = 4, .pending = 2}},
        {.call = "remove", .argument = 9, .value = 2, .ours = {.pending = 32}, .theirs = {.waits = 4, .pending = 2}},
        {.call = "remove", .argument = 9, .status = SHMQUEUE_CLOSED, .ours = {.pending = 32}, .theirs = {.waits = 4, .pending = 2}},
        {.call = "choose", .theirs = {.waits = 4, .pending = 2}},
        {.call = "choose", .argument = 63, .ours = {.pending = 32}, .theirs = {.waits = 4, .pending = 2}},
    };
    // clang-format on
    for (const Step &step : steps) {
        SCOPED_TRACE(testing::Message() << "step " << &step - steps << ": " << step.call);
        argument = step.argument;
        link.value = 0;
        EXPECT_EQ(calls.at(step.call)(), step.status);
        EXPECT_EQ(link.value, step.value);
        EXPECT_TRUE((step.ours == SideWords{link.ours(waitMask), link.ours(pending), link.ours(blocked)}));
        EXPECT_TRUE((step.theirs == SideWords{peer.out(waitMask), peer.out(pending), peer.out(blocked)}));
        EXPECT_EQ(link.isTold(), step.ours.pending != 0);
        EXPECT_EQ(isSet(peer.ownEvent), step.theirs.pending != 0);
        EXPECT_EQ(isSet(peer.ownWake), step.theirs.waits != slept);
    }
}

TEST(ShmQueue, LosesNoSignalToATimeOut)
{
    Link link(true);
    ASSERT_NE(link, nullptr);
    std::thread peer([&] { // keeps the mutex for longer than the time-out of the select that it wakes
        while (link.ours(waitMask) == 0)
            Sleep(1);
        WaitForSingleObject(link.raw->mutex, patience);
        link.raw->tell(1, 0);
        Sleep(700);
        ReleaseMutex(link.raw->mutex);
    });
    EXPECT_EQ(link.select(1, 500), SHMQUEUE_OK);
    EXPECT_EQ(link.value, 1u);
    peer.join();
}

/// Every call takes the mutex, and fails once when its owner has died.
TEST(ShmQueue, TakesTheMutexInEveryCall)
{
    Link link(true);
    ASSERT_NE(link, nullptr);
    const std::function<uint32_t()> calls[] = {[&] { return link.add("a"); },
                                               [&] { return link.remove(1); },
                                               [&] { return link.select(3, 0); },
                                               [&] { return link.select(2); },
                                               [&] { return link.choose(63); },
                                               [&] { return link.events(); },
                                               [&] { return ShmQueueDestroy(link.get()); }};
    for (const auto &call : calls) {
        SCOPED_TRACE(&call - calls);
        std::thread([&] { WaitForSingleObject(link.raw->mutex, patience); }).join();
        EXPECT_EQ(call(), SHMQUEUE_BAD_HANDLE);
    }
}

std::function<void()> look; ///< what a hook does in place of giving way in a look-out
int looks;

/// A select looks out only where the wait before was short and there is a processor for the peer as well.
TEST(ShmQueue, LooksOutWhereThatPays)
{
    Link link(true);
    ASSERT_NE(link, nullptr);
    ImportHook looking("Sleep", winapi([](DWORD) { ++looks, look(); }));
    auto looksIn = [&](const std::function<void()> &act, uint32_t timeout, uint32_t ready) {
        looks = 0;
        look = act;
        EXPECT_EQ(link.select(SHMQUEUE_SELECT_READ, timeout), SHMQUEUE_OK);
        EXPECT_EQ(link.value, ready);
        return looks;
    };
    for (DWORD_PTR usable : {1u, 6u}) {
        static DWORD_PTR processors;
        processors = usable;
        ImportHook affinity("GetProcessAffinityMask", winapi([](HANDLE, PDWORD_PTR process, PDWORD_PTR) {
                                *process = processors;
                                return TRUE;
                            }));
        ImportHook clock("QueryPerformanceCounter", winapi([](LARGE_INTEGER *now) {
                             now->QuadPart = looks * 1000; // a look takes long, and a sleep no time
                             return TRUE;
                         }));
        for (int poll = 0; poll < 3; ++poll)
            EXPECT_EQ(looksIn([] {}, 1, 0), 0);
        link.ours(waitMask) = 0;
        std::thread peer([&] {
            while (link.ours(waitMask) == 0)
                SwitchToThread();
            link.raw->put("a");
        });
        EXPECT_EQ(looksIn([] {}, patience, 1), 0);
        peer.join();
        link.remove(1);
        bool pays = usable != 1;
        EXPECT_EQ(looksIn([&] { link.raw->put("b"); }, pays ? patience : 1, pays), pays);
        EXPECT_EQ(link.remove(9), pays ? SHMQUEUE_OK : SHMQUEUE_EMPTY);
        EXPECT_EQ(looksIn([] {}, 1, 0) > 0, pays); // in vain: the next one does not
        EXPECT_EQ(looksIn([] {}, 1, 0), 0);
    }
}

/// Woken once more, the watcher takes the process for ended.
void endWatcher(Link &link)
{
    link.choose(32);
    for (int i = 0; i < 100 && !link.isTold(20); ++i)
        link.raw->announce(GetCurrentProcessId());
}

const DWORD testThread = GetCurrentThreadId();
std::atomic<int> watcherSignals;

/// Whoever sleeps while the watcher fails is woken, and each failed call passes the mutex on.
void failWatcher(Link &link)
{
    auto inThread = [](auto act) { return std::thread(act).join(); };
    std::thread connector([&] {
        while (link.ours(waitMask) == 0)
            Sleep(1);
        link.raw->announce(0xFFFFFFF0); // no such process
    });
    EXPECT_EQ(link.select(SHMQUEUE_SELECT_READ), SHMQUEUE_BAD_HANDLE);
    connector.join();
    EXPECT_TRUE(link.isTold());
    inThread([&] { EXPECT_EQ(WaitForSingleObject(link.raw->mutex, patience), WAIT_OBJECT_0); }); // and dies with it
    EXPECT_EQ(link.add("a"), SHMQUEUE_BAD_HANDLE);
    inThread([&] { EXPECT_EQ(link.add("a"), SHMQUEUE_OK); });
    link.raw->get(1);
}

/// What can go wrong around the watcher: destroy neither hangs nor frees what the watcher still uses.
TEST(ShmQueue, DestroyWaitsForTheWatcherAndNeverForever)
{
    enum { asleep, acknowledged, watching, failed, ended, unread };
    Footprint before;
    ImportHook slow("SetEvent", winapi([](HANDLE event) { // holds the watcher up where it acknowledges
                        if (GetCurrentThreadId() == testThread)
                            return SetEvent(event);
                        Sleep(100);
                        ++watcherSignals;
                        return SetEvent(event);
                    }));
    for (int watcher : {asleep, acknowledged, watching, failed, ended, unread}) {
        SCOPED_TRACE(watcher);
        Link link(true);
        ASSERT_NE(link, nullptr);
        link.choose(watcher == acknowledged || watcher == watching ? 2 : 32); // with write, the event is set already
        if (watcher == watching)
            link.raw->announce(GetCurrentProcessId());
        if (watcher == failed || watcher == ended)
            watcher == failed ? failWatcher(link) : endWatcher(link);
        if (watcher == unread)
            link.add("a");
        link.theirs(waitMask) = 3;
        link.theirs(eventMask) = 32;
        EXPECT_EQ(link.destroy(), SHMQUEUE_OK);
        EXPECT_GE(watcherSignals.exchange(0), 1);
        EXPECT_EQ(link.ours(closed) & link.theirs(closed), 1u);
        EXPECT_EQ(link.theirs(pending), 32u);
        EXPECT_EQ(link.theirs(waitMask), watcher == unread ? 3u : 2u); // only a reader with nothing to read is woken
    }
}

/// A whole life of a connection; any call may fail if something was made to.
void liveThrough(bool accepts, bool watcherEnds, const std::function<bool()> &mayFail)
{
    Link link(accepts, 64);
    if (link == nullptr) {
        EXPECT_TRUE(mayFail());
        return;
    }
    link.theirs(waitMask) = 3;
    link.theirs(eventMask) = 63;
    link.theirs(blocked) = 1;
    for (uint32_t status :
         {link.choose(63), link.add(std::string(64, 'x')), link.select(1, 1), 0 * uint32_t(link.raw->put("abcd")),
          link.remove(2), link.select(2, 1), link.events(), link.choose(1), link.choose(32)}) // the put signals late
        EXPECT_TRUE(status == SHMQUEUE_OK || (status == SHMQUEUE_BAD_HANDLE && mayFail()));
    if (accepts && watcherEnds)
        endWatcher(link);
}

/// Lives through with each call of one import failing in turn.
template<typename... Arguments>
void failEachCall(const std::string &import)
{
    SCOPED_TRACE(import);
    Footprint before;
    int failures = 0;
    DWORD failure = import.starts_with("Wait") ? WAIT_FAILED : 0;
    for (int mode = 0; mode < 3; ++mode)
        for (int call = 1, failed = true; failed && !testing::Test::HasFailure(); ++call) {
            HeapWatch watch;
            FailingImport<DWORD WINAPI(Arguments...)> failing(import.c_str(), failure, call, ERROR_NOT_ENOUGH_MEMORY);
            liveThrough(mode < 2, mode == 1, [&] { return failing.failed(); });
            EXPECT_EQ(watch.liveBlocks(), 0);
            failures += failed = failing.failed();
        }
    EXPECT_GT(failures, 0);
}

TEST(ShmQueue, LeavesNothingBehindWhenASystemCallFails)
{
    using D = DWORD; // as wide as every argument and result
    const std::pair<const char *, void (*)(const std::string &)> imports[] = {
        {"SetEvent", failEachCall<D>},
        {"InitializeSecurityDescriptor WaitForSingleObject", failEachCall<D, D>},
        {"OpenFileMappingA CreateMutexA VirtualQuery OpenProcess", failEachCall<D, D, D>},
        {"CreateEventA SetSecurityDescriptorDacl WaitForMultipleObjects", failEachCall<D, D, D, D>},
        {"MapViewOfFile", failEachCall<D, D, D, D, D>},
        {"CreateFileMappingA CreateThread", failEachCall<D, D, D, D, D, D>}};
    for (auto [names, failEach] : imports) {
        std::istringstream list(names);
        for (std::string import; list >> import;)
            failEach(import);
    }
    for (bool accepts : {true, false})
        failEachAllocation([&](HeapWatch &watch) { liveThrough(accepts, false, [&] { return watch.failed(); }); });
}

TEST(ShmQueue, NeedsNoAccessRightsWhereThereAreNone)
{
    FailingImport<decltype(InitializeSecurityDescriptor)> missing("InitializeSecurityDescriptor", FALSE, 1,
                                                                  ERROR_CALL_NOT_IMPLEMENTED);
    EXPECT_NE(Queue(ShmQueueListen("95")), nullptr);
    EXPECT_TRUE(missing.failed());
}

HANDLE hooked; ///< for the hook on Sleep

/// A client that comes between a listener's first and last object makes one that it meant to open.
TEST(ShmQueue, ListensDespiteAClientThatComesTooEarly)
{
    hooked = CreateEventA(nullptr, TRUE, FALSE, "QVSShmInitearlyEvent2");
    EXPECT_EQ(ShmQueueListen("early"), nullptr);
    ImportHook leaving("Sleep", winapi([](DWORD) { CloseHandle(hooked); }));
    EXPECT_NE(Queue(ShmQueueListen("early")), nullptr);
}

TEST(ShmQueue, IsEnabledByTheRegistry)
{
    using Values = std::vector<std::pair<const char *, const char *>>;
    const std::pair<Values, int> cases[] = {
        // names are compared with their case, and an overlong one hides those behind it
        {{}, 0},
        {{{"", "ON"}}, 1},
        {{{"", "off"}}, 0},
        {{{"", "on"}, {"Spool", "off"}}, 1},
        {{{"", "on"}, {"spool", "oFF"}}, 0},
        {{{"spool", "on"}}, 0},
        {{{"", "a value of more than thirty-two letters"}}, 0},
        {{{"", "on"}, {"a_name_of_sixteen", ""}, {"spool", "off"}}, 1},
    };
    const char *key = "Software\\Borvik\\FastConnection";
    EXPECT_EQ(ShmQueueEnabled("spool") + ShmQueueEnabled(nullptr), 0);
    for (const auto &[values, enabled] : cases) {
        HKEY opened = nullptr;
        RegCreateKeyA(HKEY_LOCAL_MACHINE, key, &opened);
        for (auto [name, data] : values)
            RegSetValueExA(opened, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(data), strlen(data) + 1);
        RegCloseKey(opened);
        EXPECT_EQ(ShmQueueEnabled("spool"), enabled) << &values - &cases[0].first;
        RegDeleteKeyA(HKEY_LOCAL_MACHINE, key);
    }
}

} // namespace

#include "tests/ipc/raw_peer.h"
#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <aclapi.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <tuple>

using namespace ipc_test;
using namespace test_support;

namespace {

TEST(ShmQueue, MakesItsSegmentsAndObjectsAsPeersExpectThem)
{
    Link link(true, 1000);
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link.shake->in(end), 256u);
    EXPECT_EQ(link.shake->out(end), 256u);
    EXPECT_TRUE(isSet(link.shake->ownEvent));
    EXPECT_FALSE(isSet(link.shake->ownEvent)); // reset by the first wait
    EXPECT_EQ(link.shake->get(9), record({7, 1000}));
    for (DWORD i = 0; i < 521; ++i)
        EXPECT_EQ((&link.raw->processId())[i], i == 4 || i == 264 ? 1000u : 0u);
    for (HANDLE event : {link.raw->ownEvent, link.raw->peerEvent, link.raw->ownWake, link.raw->peerWake}) {
        SetEvent(event);
        EXPECT_TRUE(isSet(event));
        EXPECT_TRUE(isSet(event)); // manual reset
        ResetEvent(event);
    }
    EXPECT_EQ(ShmQueueListen("link"), nullptr);
    for (auto [number, name] : {std::pair(123u, "QVSShmlink123"), {0u, "QVSShmlink00"}, {~0u, "QVSShmlink-1"}}) {
        link.shake->put("1234");
        Queue queue(ShmQueueAccept(link.listener.get(), number, 0));
        EXPECT_EQ(queue.add("a"), SHMQUEUE_FULL); // a ring of no bytes
        EXPECT_NE(RawPeer(RawPeer::connector, name, 0).view, nullptr) << name;
    }
}

TEST(ShmQueue, RefusesWhatItCannotServe)
{
    for (const char *name : {static_cast<const char *>(nullptr), "sixteen_letters_", "bad\\name", "nobody"}) {
        EXPECT_EQ(Queue(ShmQueueListen(name)) != nullptr, name != nullptr && *name == 'n');
        EXPECT_EQ(ShmQueueConnect(name), nullptr);
    }
    Queue none;
    for (uint32_t status :
         {none.add("a"), none.remove(1), none.select(1), none.choose(1), none.events(), none.destroy()})
        EXPECT_EQ(status, SHMQUEUE_BAD_HANDLE);
    EXPECT_EQ(ShmQueueGetEvent(nullptr), nullptr);

    leavesNothingBehind([] {
        Link link(true, 8, "fifteen_letters");
        ASSERT_NE(link, nullptr);
        for (ShmQueue *queue : {static_cast<ShmQueue *>(nullptr), link.listener.get()}) // nothing pending
            EXPECT_EQ(ShmQueueAccept(queue, 8, 8), nullptr);
        link.raw->put("1234");
        EXPECT_EQ(ShmQueueAccept(link.get(), 8, 8), nullptr); // no listener
        EXPECT_EQ(link.remove(9), SHMQUEUE_OK);               // and its ring is left alone
        link.shake->put("1234");
        for (uint32_t size : {0x7FFFFFD6u, 0x7FFFFFD7u, 0x7FFFFFD8u, 0x80000000u, ~0u}) // 2S + 84 goes over 32 bits
            EXPECT_EQ(ShmQueueAccept(link.listener.get(), 8, size), nullptr);
        EXPECT_EQ(link.shake->out(count), 4u);                         // the request is still there
        EXPECT_EQ(ShmQueueAccept(link.listener.get(), 7, 8), nullptr); // the number is in use
        EXPECT_EQ(link.shake->out(count), 0u);
    });
}

/// What is mapped is plain memory, all of it there and as much as the reply says.
TEST(ShmQueue, ConnectsToNothingButMemory)
{
    leavesNothingBehind([] {
        HANDLE segment = // one of its two pages is there
            CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0, 8192, "QVSShmliar07");
        void *view = MapViewOfFile(segment, FILE_MAP_WRITE, 0, 0, 0);
        VirtualAlloc(view, 4096, MEM_COMMIT, PAGE_READWRITE);
        for (DWORD promised : {4000u, 5000u, 0x7FFFFFD5u, 0x7FFFFFD6u, ~0u}) {
            RawPeer listener(RawPeer::listener, "QVSShmInitliar"), acceptor(RawPeer::acceptor, "QVSShmliar07", 100);
            listener.put(record({7, promised}));
            SetEvent(listener.peerEvent);
            EXPECT_EQ(ShmQueueConnect("liar"), nullptr) << promised;
        }
        UnmapViewOfFile(view);
        CloseHandle(segment);
        // A program file, mapped as one, whose headers fit: the ring lies over entries that nobody reads.
        char program[MAX_PATH], copy[] = "image.exe";
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        CopyFileA(program, copy, FALSE);
        const DWORD ring[10] = {0, 0, 0, 256};
        DWORD written = 0;
        HANDLE file = CreateFileA(copy, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        SetFilePointer(file, 296, nullptr, FILE_BEGIN);
        WriteFile(file, ring, sizeof ring, &written, nullptr);
        HANDLE image = CreateFileMappingA(file, nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, "QVSShmInitimage");
        EXPECT_NE(image, nullptr);
        EXPECT_EQ(ShmQueueConnect("image"), nullptr);
        CloseHandle(image);
        CloseHandle(file);
    });
}

TEST(ShmQueue, InteroperatesInBothRoles)
{
    std::mt19937 random(5);
    Bytes stream{1};
    for (auto [accepts, capacity] : {std::pair(true, 1u), {true, 7u}, {false, 7u}, {true, 64u}, {false, 1001u}}) {
        Link link(accepts, capacity);
        ASSERT_NE(link, nullptr);
        EXPECT_EQ(link.raw->processId(), accepts ? 0 : GetCurrentProcessId());
        EXPECT_EQ(isSet(link.raw->processWait), !accepts);
        std::string outward, inward; // what is on its way
        auto taken = [](std::string &bytes, size_t length) {
            std::string first = bytes.substr(0, length);
            bytes.erase(0, length);
            return first;
        };
        for (int step = 0; step < 2000; ++step) {
            uint32_t length = 1 + random() % (2 * capacity), kind = random() % 4;
            std::string data = stream.next(length);
            if (kind == 0) {
                ASSERT_EQ(link.add(data), outward.size() == capacity ? SHMQUEUE_FULL : SHMQUEUE_OK);
                std::string added = taken(data, capacity - outward.size());
                ASSERT_EQ(link.value, added.empty() ? length : added.size());
                outward += added;
            } else if (kind == 1) {
                ASSERT_EQ(link.raw->get(length), taken(outward, length));
            } else if (kind == 2) {
                inward += taken(data, link.raw->put(data));
            } else {
                ASSERT_EQ(link.remove(length), inward.empty() ? SHMQUEUE_EMPTY : SHMQUEUE_OK);
                ASSERT_EQ(link.bytes, taken(inward, length));
            }
            ASSERT_EQ(link.ours(count), outward.size());
            ASSERT_LE(inward.empty() ? link.theirs(readPos) + link.theirs(writePos) : 0, 0u); // begins anew
            ASSERT_EQ(link.select(3, 0), SHMQUEUE_OK);
            ASSERT_EQ(link.value, (inward.empty() ? 0u : 1u) + (outward.size() == capacity ? 0 : 2));
        }
    }
}

constexpr DWORD same = 77; ///< a word is as after the step before

/// A call of either end, its status and what it hands over, and the words of both sides after it: what each sleeps on,
/// has pending, and whether its adds found the ring full.
struct Step {
    const char *call;
    DWORD argument = 0, status = SHMQUEUE_OK, value = 0;
    DWORD ourWaits = same, ourPending = same, ourBlocked = same;
    DWORD theirWaits = same, theirPending = same, theirBlocked = same;
};

// clang-format off
const Step steps[] = {
    {.call = "choose", .argument = 63, .ourPending = 2}, // due by the present state: there is room
    {.call = "put", .argument = 4, .value = 4, .ourPending = 11},
    {.call = "events", .value = 11, .ourPending = 0},
    {.call = "remove", .argument = 1, .value = 1, .ourPending = 9}, // more is waiting
    {.call = "remove", .argument = 1, .value = 1, .ourPending = 18}, // added up, not merged
    {.call = "choose", .argument = 2, .ourPending = 2}, // what is no longer chosen is dropped
    {.call = "events", .value = 2, .ourPending = 0},
    {.call = "choose", .argument = 10, .ourPending = 8}, // WRITE stays chosen, and is not raised again
    {.call = "remove", .argument = 9, .value = 2}, // all: nothing more is waiting
    {.call = "choose", .argument = 34, .ourPending = 0},
    {.call = "watch", .argument = 11},
    {.call = "sleep", .argument = 6, .theirWaits = 6},
    {.call = "add", .argument = 4, .value = 4, .theirPending = 9}, // into an empty ring; nobody sleeps for reading
    {.call = "sleep", .argument = 1, .theirWaits = 1},
    {.call = "add", .argument = 2, .value = 2}, // the ring held something: nobody is woken or told
    {.call = "add", .argument = 10, .value = 2}, // a part is no full ring
    {.call = "add", .argument = 10, .status = SHMQUEUE_FULL, .value = 10, .ourBlocked = 1},
    {.call = "get", .argument = 1, .value = 1, .ourPending = 2, .ourBlocked = 0},
    {.call = "events", .value = 2, .ourPending = 0},
    {.call = "add", .argument = 1, .value = 1},
    {.call = "select", .argument = 1, .ourWaits = 1},
    {.call = "select", .argument = 3, .ourWaits = 3}, // the wait mask stays after a time-out, that of this wait alone
    {.call = "get", .argument = 1, .value = 1, .ourWaits = 1}, // a late signal
    {.call = "add", .argument = 1, .value = 1},
    {.call = "select", .argument = 2, .ourWaits = 0}, // ends early by it, with nothing ready
    {.call = "select", .argument = 1, .ourWaits = 1}, // which has reset the event
    {.call = "put", .argument = 7, .value = 7, .ourWaits = 0},
    {.call = "put", .argument = 2, .value = 1},
    {.call = "watch", .argument = 2, .theirPending = 0},
    {.call = "put", .argument = 1, .theirBlocked = 1},
    {.call = "sleep", .argument = 6, .theirWaits = 6},
    {.call = "remove", .argument = 3, .value = 3, .theirWaits = 4, .theirPending = 2, .theirBlocked = 0},
    {.call = "remove", .argument = 3, .value = 3}, // told once
    {.call = "close", .ourPending = 32},
    {.call = "add", .argument = 1, .status = SHMQUEUE_CLOSED, .value = 1},
    {.call = "remove", .argument = 9, .value = 2}, // what was added before the end
    {.call = "remove", .argument = 9, .status = SHMQUEUE_CLOSED},
    {.call = "choose", .argument = 0, .ourPending = 0},
    {.call = "choose", .argument = 63, .ourPending = 32}, // due: closed, and so not to be written
};
// clang-format on

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
        {"put", [&] { return link.value = peer.put(std::string(argument, 'y')), 0; }},
        {"get", [&] { return link.value = peer.get(argument).size(), 0; }},
        {"watch", [&] { return peer.out(eventMask) = argument, ResetEvent(peer.ownEvent), peer.out(pending) = 0; }},
        {"sleep", [&] { return peer.out(waitMask) = slept = argument, ResetEvent(peer.ownWake), 0; }},
        {"close", [&] { return peer.out(closed) = peer.in(closed) = 1, peer.tell(0, 32), 0; }}};
    Step last{.call = "none",
              .ourWaits = 0,
              .ourPending = 0,
              .ourBlocked = 0,
              .theirWaits = 0,
              .theirPending = 0,
              .theirBlocked = 0};
    const std::tuple<const char *, DWORD Step::*, const DWORD &> words[] = {
        {"our wait mask", &Step::ourWaits, peer.in(waitMask)},
        {"our pending events", &Step::ourPending, peer.in(pending)},
        {"whether we are blocked", &Step::ourBlocked, peer.in(blocked)},
        {"their wait mask", &Step::theirWaits, peer.out(waitMask)},
        {"their pending events", &Step::theirPending, peer.out(pending)},
        {"whether they are blocked", &Step::theirBlocked, peer.out(blocked)}};
    for (const Step &step : steps) {
        SCOPED_TRACE(testing::Message() << "step " << &step - steps << ": " << step.call);
        argument = step.argument;
        link.value = 0;
        EXPECT_EQ(calls.at(step.call)(), step.status);
        EXPECT_EQ(link.value, step.value);
        for (auto [name, word, now] : words) {
            last.*word = step.*word == same ? last.*word : step.*word;
            EXPECT_EQ(now, last.*word) << name;
        }
        EXPECT_EQ(link.isTold(), last.ourPending != 0);
        EXPECT_EQ(isSet(peer.ownEvent), last.theirPending != 0);
        EXPECT_EQ(isSet(peer.ownWake), last.theirWaits != slept);
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
        link.raw->dieHolding([] {});
        EXPECT_EQ(call(), SHMQUEUE_BAD_HANDLE) << "call " << &call - calls;
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

/// A whole life of a connection; any call may fail if something was made to.
void liveThrough(bool accepts, bool connectorEnds, const std::function<bool()> &mayFail)
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
        EXPECT_TRUE(status == SHMQUEUE_OK || (status == SHMQUEUE_BAD_HANDLE && mayFail())) << status;
    if (connectorEnds)
        link.endConnector();
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
    liveThrough(true, true, [] { return false; }); // the system makes some things once
    for (auto [names, failEach] : imports) {
        std::istringstream list(names);
        for (std::string import; list >> import;)
            failEach(import);
    }
    FailingImport<decltype(InitializeSecurityDescriptor)> missing("InitializeSecurityDescriptor", FALSE, 1,
                                                                  ERROR_CALL_NOT_IMPLEMENTED);
    EXPECT_NE(Queue(ShmQueueListen("95")), nullptr); // where there are no access rights at all
    for (bool accepts : {true, false})
        failEachAllocation([&](HeapWatch &watch) { liveThrough(accepts, false, [&] { return watch.failed(); }); });
}

TEST(ShmQueue, IsEnabledByTheRegistry)
{
    using Values = std::vector<std::pair<const char *, const char *>>;
    const std::pair<Values, int> cases[] = {
        {{}, 0},
        {{{"", "ON"}}, 1},
        {{{"", "off"}}, 0},
        {{{"", "on"}, {"Spool", "off"}}, 1}, // names are compared with their case
        {{{"", "on"}, {"spool", "oFF"}}, 0},
        {{{"spool", "on"}}, 0},
        {{{"", "a value of more than thirty-two letters"}}, 0},
        {{{"", "on"}, {"a_name_of_sixteen", ""}, {"spool", "off"}}, 1}, // which hides those behind it
    };
    const char *key = "Software\\Borvik\\FastConnection";
    EXPECT_EQ(ShmQueueEnabled("spool"), 0);
    EXPECT_EQ(ShmQueueEnabled(nullptr), 0);
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

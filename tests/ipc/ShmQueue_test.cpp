#include "tests/ipc/processes.h"
#include "tests/ipc/raw_peer.h"
#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <aclapi.h>

#include <functional>
#include <memory>
#include <random>

using namespace ipc_test;

namespace {

enum Word {
    readPos = 4,
    writePos = 8,
    count = 16,
    blocked = 20,
    closed = 24,
    waitMask = 28,
    eventMask = 32,
    pending = 36
};

std::string connectionName(const char *name, int number)
{
    return std::string("QVSShm") + name + (number < 10 ? "0" : "") + std::to_string(number);
}

bool isSet(HANDLE event)
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

/// A connection in one process: the library at one end, the raw peer at the other. Null members tell
/// what could not be set up.
struct Link {
    Link(bool libraryAccepts, DWORD capacity, const char *name = "link", DWORD number = 7)
    {
        std::string init = std::string("QVSShmInit") + name, connection = connectionName(name, int(number));
        DWORD request = 0, reply[2] = {number, capacity};
        if (libraryAccepts) {
            listener = ShmQueueListen(name);
            handshake = std::make_unique<RawPeer>(RawPeer::requester, init, 256);
            if (listener == nullptr)
                return;
            handshake->put(&request, 4);
            library = ShmQueueAccept(listener, number, capacity);
            if (library != nullptr)
                raw = std::make_unique<RawPeer>(RawPeer::connector, connection, capacity);
        } else {
            handshake = std::make_unique<RawPeer>(RawPeer::listener, init, 256);
            handshake->put(reply, 8);
            raw = std::make_unique<RawPeer>(RawPeer::acceptor, connection, capacity);
            SetEvent(handshake->peerEvent());
            library = ShmQueueConnect(name);
        }
    }
    ~Link()
    {
        for (ShmQueue *queue : {library, listener})
            EXPECT_TRUE(queue == nullptr || destroyAfterDeath(queue) == SHMQUEUE_OK);
    }
    DWORD &theirs(Word word) { return raw->word(raw->out() + word); } ///< in the ring that the raw peer writes
    DWORD &ours(Word word) { return raw->word(raw->in() + word); }
    uint32_t add(uint32_t length)
    {
        std::string bytes(length, 'x');
        return ShmQueueAdd(library, bytes.data(), &(last = length));
    }
    uint32_t remove(uint32_t length)
    {
        std::string bytes(length, ' ');
        return ShmQueueRemove(library, bytes.data(), &(last = length));
    }
    uint32_t select(uint32_t wanted, uint32_t wait = 0)
    {
        uint32_t ready = 99;
        EXPECT_EQ(ShmQueueSelect(library, &wanted, wait, &ready), SHMQUEUE_OK);
        EXPECT_EQ(ready, wanted == 3 ? 2u : wanted == 0 ? 0u : 1u);
        return wanted;
    }
    uint32_t events()
    {
        uint32_t found = 99;
        EXPECT_EQ(ShmQueueEnumEvents(library, &found), SHMQUEUE_OK);
        EXPECT_FALSE(isSet(ShmQueueGetEvent(library)));
        return found;
    }

    ShmQueue *listener = nullptr, *library = nullptr;
    std::unique_ptr<RawPeer> handshake, raw;
    uint32_t last = 0;
};

TEST(ShmQueue, MakesItsSegmentsAndObjectsAsPeersExpectThem)
{
    Link link(true, 1000);
    ASSERT_NE(link.library, nullptr);
    DWORD reply[2] = {};
    EXPECT_EQ(link.handshake->word(12), 256u);
    EXPECT_EQ(link.handshake->word(296 + 12), 256u);
    EXPECT_TRUE(isSet(link.handshake->ownEvent()));
    EXPECT_FALSE(isSet(link.handshake->ownEvent())); // reset by the first wait
    EXPECT_EQ(link.handshake->get(reply, 8), 8u);
    EXPECT_EQ(reply[0], 7u);
    EXPECT_EQ(reply[1], 1000u);
    for (DWORD offset = 0; offset < 2084; offset += 4)
        EXPECT_EQ(link.raw->word(offset), offset == 4 + 12 || offset == 1044 + 12 ? 1000u : 0u) << offset;
    for (HANDLE event : {link.raw->ownEvent(), link.raw->peerEvent(), link.raw->ownWake(), link.raw->peerWake()}) {
        SetEvent(event);
        EXPECT_TRUE(isSet(event) && isSet(event)); // manual reset
        ResetEvent(event);
    }
    EXPECT_EQ(ShmQueueListen("link"), nullptr);
    for (auto [number, name] : {std::pair(123u, "QVSShmlink123"), {0u, "QVSShmlink00"}, {~0u, "QVSShmlink-1"}}) {
        DWORD request = 0;
        link.handshake->put(&request, 4);
        ShmQueue *end = ShmQueueAccept(link.listener, number, 0);
        EXPECT_EQ(ShmQueueAdd(end, &request, &(link.last = 4)), SHMQUEUE_FULL); // a ring of no bytes
        EXPECT_TRUE(RawPeer(RawPeer::connector, name, 0).exists()) << name;
        EXPECT_EQ(ShmQueueDestroy(end), SHMQUEUE_OK);
    }
    HANDLE objects[] = {OpenFileMappingA(READ_CONTROL, FALSE, "QVSShmlink07"),
                        OpenMutexA(READ_CONTROL, FALSE, "QVSShmlink07Mutex"),
                        OpenEventA(READ_CONTROL, FALSE, "QVSShmlink07ProcessWaitEvent")};
    for (HANDLE object : objects) {
        ACL *list = nullptr;
        void *descriptor = nullptr;
        EXPECT_EQ(GetSecurityInfo(object, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                                  &descriptor),
                  0u);
        EXPECT_EQ(list, nullptr); // present and null: everyone may do everything
        LocalFree(descriptor);
        CloseHandle(object);
    }
}

TEST(ShmQueue, RefusesWhatItCannotServe)
{
    Footprint before;
    {
        DWORD request = 0;
        uint32_t word = 0;
        for (const char *name : {static_cast<const char *>(nullptr), "sixteen_letters_", "bad\\name"}) {
            EXPECT_EQ(ShmQueueListen(name), nullptr);
            EXPECT_EQ(ShmQueueConnect(name), nullptr);
        }
        EXPECT_EQ(ShmQueueConnect("nobody"), nullptr);
        EXPECT_EQ(ShmQueueAccept(nullptr, 1, 1), nullptr);
        EXPECT_EQ(ShmQueueDestroy(nullptr), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueAdd(nullptr, &request, &word), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueRemove(nullptr, &request, &word), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueSelect(nullptr, &word, 0, &word), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueEventSelect(nullptr, 1), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueEnumEvents(nullptr, &word), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueGetEvent(nullptr), nullptr);

        Link link(true, 8, "fifteen_letters");
        ASSERT_NE(link.library, nullptr);
        EXPECT_EQ(ShmQueueAccept(link.listener, 8, 8), nullptr); // nothing pending
        link.handshake->put(&request, 4);
        for (uint32_t size : {0x7FFFFFD6u, 0x7FFFFFD7u, 0x7FFFFFD8u, ~0u})
            EXPECT_EQ(ShmQueueAccept(link.listener, 8, size), nullptr);
        EXPECT_EQ(link.handshake->word(296 + 16), 4u); // the request is still there
        EXPECT_EQ(ShmQueueAccept(link.library, 8, 8), nullptr);
        EXPECT_EQ(ShmQueueAccept(link.listener, 7, 8), nullptr); // the number is in use
        EXPECT_EQ(link.handshake->word(296 + 16), 0u);
        WaitForSingleObject(link.handshake->ownEvent(), 0); // a client of that name is let go, and refuses
        SetEvent(link.handshake->ownEvent());
        link.raw->word(0) = 1;
        EXPECT_EQ(ShmQueueConnect("fifteen_letters"), nullptr);
        EXPECT_EQ(link.raw->word(0), 1u);
    }
    EXPECT_TRUE(before.isBack());
    for (DWORD promised : {5000u, 0x7FFFFFD5u, 0x7FFFFFD6u, ~0u}) { // the segment is smaller than the reply says
        RawPeer listener(RawPeer::listener, "QVSShmInitliar", 256), acceptor(RawPeer::acceptor, "QVSShmliar01", 100);
        DWORD reply[2] = {1, promised};
        listener.put(reply, 8);
        SetEvent(listener.peerEvent());
        EXPECT_EQ(ShmQueueConnect("liar"), nullptr);
    }
    EXPECT_TRUE(before.isBack());
}

TEST(ShmQueue, InteroperatesInBothRoles)
{
    std::mt19937 random(5);
    for (bool libraryAccepts : {true, false})
        for (uint32_t capacity : {1u, 7u, 64u, 1001u}) {
            Link link(libraryAccepts, capacity);
            ASSERT_NE(link.library, nullptr);
            EXPECT_EQ(link.raw->word(0), libraryAccepts ? 0 : GetCurrentProcessId());
            EXPECT_EQ(isSet(link.raw->processWait()), !libraryAccepts);
            Bytes streams[2] = {{1}, {2}}, seen[2] = {{1}, {2}};
            uint32_t held[2] = {}, position = 0; // of the next byte in the outward ring
            uint8_t buffer[2100];
            for (int step = 0; step < 2000; ++step) {
                uint32_t length = 1 + random() % (2 * capacity), action = random() % 4, inward = action / 2;
                bool adds = action % 2 == 0;
                uint32_t expected = std::min<uint32_t>(length, adds ? capacity - held[inward] : held[inward]);
                if (adds)
                    Bytes(streams[inward]).fill(buffer, length);
                if (action == 0) {
                    ASSERT_EQ(ShmQueueAdd(link.library, buffer, &length), expected == 0 ? SHMQUEUE_FULL : SHMQUEUE_OK);
                    ASSERT_TRUE(expected == 0 || length == expected);
                } else if (action == 3) {
                    ASSERT_EQ(ShmQueueRemove(link.library, buffer, &length),
                              expected == 0 ? SHMQUEUE_EMPTY : SHMQUEUE_OK);
                    ASSERT_EQ(length, expected);
                } else {
                    ASSERT_EQ(adds ? link.raw->put(buffer, length) : link.raw->get(buffer, length), expected);
                }
                if (adds)
                    streams[inward].fill(buffer, expected);
                else
                    ASSERT_TRUE(seen[inward].match(buffer, expected));
                held[inward] += adds ? expected : 0 - expected;
                position = held[0] == 0 ? 0 : (position + (action == 0 ? expected : 0)) % capacity;
                ASSERT_EQ(link.ours(count), held[0]);
                ASSERT_EQ(link.ours(writePos), position);
                ASSERT_TRUE(held[1] != 0 || link.theirs(readPos) + link.theirs(writePos) == 0);
                ASSERT_EQ(link.select(3), (held[1] == 0 ? 0 : 1) + (held[0] == capacity ? 0u : 2u));
            }
        }
}

TEST(ShmQueue, RaisesAndAddsUpEvents)
{
    Link link(true, 8);
    ASSERT_NE(link.library, nullptr);
    EXPECT_EQ(ShmQueueEventSelect(link.library, 1 | 2 | 8 | 32), SHMQUEUE_OK);
    EXPECT_TRUE(isSet(link.raw->peerEvent()));
    EXPECT_EQ(link.events(), 2u); // due by the present state
    link.raw->put("abcd", 4);
    EXPECT_EQ(link.remove(1), SHMQUEUE_OK);
    EXPECT_EQ(link.remove(1), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 3u * (1 + 8)); // raised three times, added up
    EXPECT_EQ(ShmQueueEventSelect(link.library, 2), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 0u); // what stays chosen is not looked at again
    EXPECT_EQ(ShmQueueEventSelect(link.library, 1 | 2), SHMQUEUE_OK);
    EXPECT_EQ(link.ours(pending), 1u);
    EXPECT_EQ(ShmQueueEventSelect(link.library, 2 | 32), SHMQUEUE_OK);
    EXPECT_FALSE(isSet(link.raw->peerEvent())); // every pending event was dropped
    EXPECT_EQ(link.remove(9), SHMQUEUE_OK);

    link.theirs(eventMask) = 1 | 2 | 8;
    EXPECT_EQ(link.add(4), SHMQUEUE_OK);
    EXPECT_EQ(link.add(2), SHMQUEUE_OK); // into a ring that is not empty: no news
    EXPECT_EQ(link.theirs(pending), 9u);
    EXPECT_TRUE(isSet(link.raw->ownEvent()));
    EXPECT_EQ(link.add(10), SHMQUEUE_OK);
    EXPECT_EQ(link.last, 2u);
    EXPECT_EQ(link.ours(blocked), 0u); // a part was added: not blocked
    EXPECT_EQ(link.add(10), SHMQUEUE_FULL);
    EXPECT_EQ(link.last, 10u);
    EXPECT_EQ(link.ours(blocked), 1u);
    char byte = 0;
    link.raw->get(&byte, 1);
    EXPECT_EQ(link.events(), 2u);
    link.theirs(blocked) = 1;
    link.theirs(pending) = 0;
    link.raw->put("ab", 2);
    EXPECT_EQ(link.remove(1), SHMQUEUE_OK);
    EXPECT_EQ(link.theirs(blocked), 0u);
    EXPECT_EQ(link.theirs(pending), 2u);
    link.raw->close();
    EXPECT_EQ(link.events(), 32u);
    EXPECT_EQ(link.add(1), SHMQUEUE_CLOSED);
    EXPECT_EQ(link.remove(2), SHMQUEUE_OK);
    EXPECT_EQ(link.remove(2), SHMQUEUE_CLOSED);
    EXPECT_EQ(link.last, 0u);
    EXPECT_EQ(ShmQueueEventSelect(link.library, 0), SHMQUEUE_OK);
    EXPECT_EQ(ShmQueueEventSelect(link.library, 63), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 32u);
}

TEST(ShmQueue, KeepsTheWaitMaskAfterATimeOut)
{
    Link link(true, 8);
    ASSERT_NE(link.library, nullptr);
    EXPECT_EQ(link.select(0), 0u);
    EXPECT_EQ(link.select(1, 10), 0u);
    EXPECT_EQ(link.ours(waitMask), 1u);
    link.raw->put("a", 1); // the late signal
    EXPECT_EQ(link.remove(1), SHMQUEUE_OK);
    EXPECT_EQ(link.select(1, patience), 0u); // woken by it, with nothing ready
    EXPECT_EQ(link.ours(waitMask), 0u);
    EXPECT_EQ(link.add(8), SHMQUEUE_OK);
    EXPECT_EQ(link.select(3, 10), 0u);
    char byte = 0;
    link.raw->get(&byte, 1); // room: the writer is woken, the reader's bit stays
    EXPECT_EQ(link.ours(waitMask), 1u);
    EXPECT_EQ(link.select(1, 10), 0u);

    link.theirs(waitMask) = 2 | 4;
    EXPECT_EQ(link.add(1), SHMQUEUE_OK);
    EXPECT_FALSE(isSet(link.raw->ownWake()));
    link.raw->put("a", 1);
    EXPECT_EQ(link.remove(1), SHMQUEUE_OK);
    EXPECT_TRUE(isSet(link.raw->ownWake()));
    EXPECT_EQ(link.theirs(waitMask), 4u);
}

TEST(ShmQueue, TakesADamagedHeaderForAClosedRing)
{
    struct {
        DWORD offset, value;
    } const damages[] = {{0, 1},  {0, ~0u}, {4, 64},   {4, ~0u}, {8, 64},   {8, 0x80000000}, {8, 3},
                         {12, 0}, {12, 65}, {12, ~0u}, {16, 65}, {16, ~0u}, {16, 5}};
    for (bool libraryAccepts : {true, false})
        for (auto [offset, value] : damages) {
            Link link(libraryAccepts, 64);
            ASSERT_NE(link.library, nullptr);
            link.raw->put("abcd", 4);
            EXPECT_EQ(link.add(4), SHMQUEUE_OK);
            for (DWORD ring : {link.raw->out(), link.raw->in()})
                link.raw->word(ring + offset) = value;
            EXPECT_EQ(link.add(100), SHMQUEUE_CLOSED) << offset << ' ' << value;
            EXPECT_EQ(link.last, 100u);
            EXPECT_EQ(link.remove(100), SHMQUEUE_CLOSED) << offset << ' ' << value;
            EXPECT_EQ(link.last, 0u);
            EXPECT_EQ(link.select(3), 1u);
            EXPECT_EQ(ShmQueueEventSelect(link.library, 63), SHMQUEUE_OK);
            EXPECT_EQ(link.events(), 32u);
        }
}

/// Woken once more, the watcher takes the process for ended.
void endWatcher(Link &link)
{
    ShmQueueEventSelect(link.library, 32);
    for (int i = 0; i < 100 && !isSet(ShmQueueGetEvent(link.library)); ++i) {
        link.raw->announce(GetCurrentProcessId());
        Sleep(20);
    }
}

/// What can go wrong around the watcher: destroy neither hangs nor frees what the watcher still uses.
TEST(ShmQueue, DestroyWaitsForTheWatcherAndNeverForever)
{
    Footprint before;
    for (int scenario = 0; scenario < 5; ++scenario) {
        Link link(true, 8);
        ASSERT_NE(link.library, nullptr);
        // Where write is chosen, the acknowledgement is set already.
        EXPECT_EQ(ShmQueueEventSelect(link.library, scenario == 1 || scenario == 2 ? 2u : 0), SHMQUEUE_OK);
        if (scenario >= 2)
            link.raw->announce(scenario == 3 ? 0xFFFFFFF0 : GetCurrentProcessId());
        if (scenario == 3) { // no such process: the watcher leaves the mutex abandoned, and wakes who sleeps
            uint32_t flags = 1, ready = 0;
            EXPECT_EQ(ShmQueueSelect(link.library, &flags, patience, &ready), SHMQUEUE_BAD_HANDLE);
            EXPECT_EQ(link.add(1), SHMQUEUE_OK);
        }
        if (scenario == 4)
            endWatcher(link);
        link.theirs(waitMask) = 3;
        link.theirs(eventMask) = 32;
        ShmQueue *library = std::exchange(link.library, nullptr);
        EXPECT_EQ(ShmQueueDestroy(library), SHMQUEUE_OK) << scenario;
        EXPECT_EQ(link.ours(closed) & link.theirs(closed), 1u);
        EXPECT_EQ(link.theirs(pending), 32u);
        EXPECT_EQ(link.theirs(waitMask), scenario == 3 ? 3u : 2u); // only a reader is woken, with nothing to read
    }
    EXPECT_TRUE(before.isBack());
}

/// A whole life of a connection; any call may fail if something was made to.
void liveThrough(bool libraryAccepts, bool watcherEnds, const std::function<bool()> &mayFail)
{
    Link link(libraryAccepts, 64);
    if (link.library == nullptr) {
        EXPECT_TRUE(mayFail());
        return;
    }
    auto check = [&](uint32_t status) {
        EXPECT_TRUE(status == SHMQUEUE_OK || (status == SHMQUEUE_BAD_HANDLE && mayFail()));
    };
    uint32_t word = 0, flags = 1;
    link.theirs(waitMask) = 3;
    link.theirs(eventMask) = 63;
    check(ShmQueueEventSelect(link.library, 63));
    check(link.add(64));
    link.add(1);
    link.theirs(blocked) = 1;
    check(ShmQueueSelect(link.library, &flags, 1, &word));
    link.raw->put("abcd", 4);
    check(link.remove(2));
    check(ShmQueueEnumEvents(link.library, &word));
    check(ShmQueueEventSelect(link.library, 1));
    check(ShmQueueEventSelect(link.library, 32));
    if (libraryAccepts && watcherEnds)
        endWatcher(link);
    uint32_t status = ShmQueueDestroy(link.library);
    check(status);
    if (status == SHMQUEUE_OK)
        link.library = nullptr;
}

/// Lives through with each call of one import failing in turn.
template<typename Signature, typename Result>
void failEachCall(const char *import, Result failure, unsigned long error = ERROR_NOT_ENOUGH_MEMORY)
{
    SCOPED_TRACE(import);
    Footprint before;
    int failures = 0;
    for (int mode = 0; mode < 3; ++mode) {
        bool failed = true;
        for (int call = 1; failed && !testing::Test::HasFailure(); ++call) {
            test_support::HeapWatch watch;
            test_support::FailingImport<Signature> failing(import, failure, call, error);
            liveThrough(mode < 2, mode == 1, [&] { return failing.failed(); });
            EXPECT_EQ(watch.liveBlocks(), 0);
            failed = failing.failed();
            failures += failed ? 1 : 0;
        }
    }
    EXPECT_GT(failures, 0);
    EXPECT_TRUE(before.isBack());
}

TEST(ShmQueue, LeavesNothingBehindWhenASystemCallFails)
{
    using Open = HANDLE WINAPI(DWORD, BOOL, const char *);
    failEachCall<HANDLE WINAPI(HANDLE, SECURITY_ATTRIBUTES *, DWORD, DWORD, DWORD, const char *)>("CreateFileMappingA",
                                                                                                  HANDLE());
    failEachCall<Open>("OpenFileMappingA", HANDLE());
    failEachCall<HANDLE WINAPI(SECURITY_ATTRIBUTES *, BOOL, const char *)>("CreateMutexA", HANDLE());
    failEachCall<HANDLE WINAPI(SECURITY_ATTRIBUTES *, BOOL, BOOL, const char *)>("CreateEventA", HANDLE());
    failEachCall<void * WINAPI(HANDLE, DWORD, DWORD, DWORD, SIZE_T)>("MapViewOfFile", static_cast<void *>(nullptr));
    failEachCall<SIZE_T WINAPI(const void *, MEMORY_BASIC_INFORMATION *, SIZE_T)>("VirtualQuery", SIZE_T());
    failEachCall<BOOL WINAPI(void *, DWORD)>("InitializeSecurityDescriptor", FALSE);
    failEachCall<BOOL WINAPI(void *, BOOL, ACL *, BOOL)>("SetSecurityDescriptorDacl", FALSE);
    failEachCall<HANDLE WINAPI(SECURITY_ATTRIBUTES *, SIZE_T, LPTHREAD_START_ROUTINE, void *, DWORD, DWORD *)>(
        "CreateThread", HANDLE());
    failEachCall<HANDLE WINAPI(DWORD, BOOL, DWORD)>("OpenProcess", HANDLE());
    failEachCall<DWORD WINAPI(DWORD, const HANDLE *, BOOL, DWORD)>("WaitForMultipleObjects", WAIT_FAILED);
    failEachCall<DWORD WINAPI(HANDLE, DWORD)>("WaitForSingleObject", WAIT_FAILED);
    failEachCall<BOOL WINAPI(HANDLE)>("SetEvent", FALSE);
    failEachCall<BOOL WINAPI(HANDLE)>("ResetEvent", FALSE);
    failEachCall<BOOL WINAPI(HANDLE)>("ReleaseMutex", FALSE);
    for (bool libraryAccepts : {true, false})
        test_support::failEachAllocation([&](test_support::HeapWatch &watch) {
            liveThrough(libraryAccepts, false, [&] { return watch.failed(); });
        });
}

HANDLE hookedEvent;
DWORD signalsSeen;

void WINAPI seeSignal(DWORD)
{
    signalsSeen += isSet(hookedEvent) ? 1 : 0;
}

void WINAPI leave(DWORD)
{
    CloseHandle(std::exchange(hookedEvent, nullptr));
}

/// Two signals in a row are one to the system; an accept gives the client before time to see its own.
TEST(ShmQueue, LetsEveryWaitingClientGo)
{
    ShmQueue *listener = ShmQueueListen("twice");
    RawPeer clients(RawPeer::requester, "QVSShmInittwice", 256);
    clients.put("12345678", 8);
    hookedEvent = clients.ownEvent();
    test_support::ImportHook hook("Sleep", seeSignal);
    for (uint32_t number : {1u, 2u})
        EXPECT_EQ(ShmQueueDestroy(ShmQueueAccept(listener, number, 1)), SHMQUEUE_OK);
    EXPECT_EQ(signalsSeen, 1u);
    EXPECT_TRUE(isSet(hookedEvent));
    EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
}

/// A client that comes between a listener's first and last object makes one that it meant to open.
TEST(ShmQueue, ListensDespiteAClientThatComesTooEarly)
{
    hookedEvent = CreateEventA(nullptr, TRUE, FALSE, "QVSShmInitearlyEvent2");
    EXPECT_EQ(ShmQueueListen("early"), nullptr);
    test_support::ImportHook hook("Sleep", leave);
    EXPECT_EQ(ShmQueueDestroy(ShmQueueListen("early")), SHMQUEUE_OK);
}

TEST(ShmQueue, IsEnabledByTheRegistry)
{
    struct Value {
        const char *name, *data;
    };
    struct {
        std::vector<Value> values;
        int enabled;
    } const cases[] = {
        {{}, 0},
        {{{"", "ON"}}, 1},
        {{{"", "off"}}, 0},
        {{{"", "on"}, {"other", "off"}}, 1},
        {{{"", "on"}, {"Spool", "off"}}, 1}, // another case is another name
        {{{"", "on"}, {"spool", "oFF"}}, 0},
        {{{"spool", "on"}}, 0},
        {{{"", "a value of more than thirty-two letters"}}, 0},
        {{{"", "on"}, {"a_name_of_sixteen", ""}, {"spool", "off"}}, 1}, // hidden behind the long name
    };
    const char *key = "Software\\Borvik\\FastConnection";
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, key);
    EXPECT_EQ(ShmQueueEnabled("spool") + ShmQueueEnabled(nullptr), 0);
    for (const auto &[values, enabled] : cases) {
        HKEY opened = nullptr;
        RegCreateKeyA(HKEY_LOCAL_MACHINE, key, &opened);
        for (const Value &value : values)
            RegSetValueExA(opened, value.name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value.data),
                           DWORD(strlen(value.data)) + 1);
        EXPECT_EQ(ShmQueueEnabled("spool"), enabled) << (values.empty() ? "" : values.back().data);
        RegCloseKey(opened);
        RegDeleteKeyA(HKEY_LOCAL_MACHINE, key);
    }
}

} // namespace

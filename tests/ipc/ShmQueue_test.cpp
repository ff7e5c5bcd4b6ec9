#include "tests/ipc/processes.h"
#include "tests/ipc/raw_peer.h"
#include "tests/support/heap_watch.h"
#include "tests/support/import_hook.h"

#include <aclapi.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <thread>

using namespace ipc_test;

namespace {

bool isSet(HANDLE event)
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

/// A connection in one process: the library at one end, the raw peer at the other. Null members tell
/// what could not be set up.
struct Link {
    explicit Link(bool libraryAccepts, DWORD capacity = 8, const std::string &name = "link")
    {
        std::string init = "QVSShmInit" + name, connection = "QVSShm" + name + "07";
        DWORD reply[2] = {7, capacity};
        if (libraryAccepts)
            listener = ShmQueueListen(name.c_str());
        handshake = std::make_unique<RawPeer>(libraryAccepts ? RawPeer::requester : RawPeer::listener, init, 256);
        if (libraryAccepts && listener != nullptr) {
            handshake->put("1234", 4);
            library = ShmQueueAccept(listener, 7, capacity);
            if (library != nullptr)
                raw = std::make_unique<RawPeer>(RawPeer::connector, connection, capacity);
        } else if (!libraryAccepts) {
            handshake->put(reinterpret_cast<char *>(reply), 8);
            raw = std::make_unique<RawPeer>(RawPeer::acceptor, connection, capacity);
            SetEvent(handshake->peerEvent);
            library = ShmQueueConnect(name.c_str());
        }
    }
    ~Link()
    {
        for (ShmQueue *queue : {library, listener})
            EXPECT_TRUE(queue == nullptr || destroyAfterDeath(queue) == SHMQUEUE_OK);
    }
    DWORD &theirs(Word word) { return raw->out(word); } ///< in the ring that the raw peer writes
    DWORD &ours(Word word) { return raw->in(word); }
    uint32_t add(uint32_t length) { return ShmQueueAdd(library, std::string(length, 'x').c_str(), &(moved = length)); }
    uint32_t remove(uint32_t length)
    {
        return ShmQueueRemove(library, std::string(length, ' ').data(), &(moved = length));
    }
    uint32_t select(uint32_t wanted, uint32_t timeout = 0)
    {
        uint32_t ready = 99;
        EXPECT_EQ(ShmQueueSelect(library, &wanted, timeout, &ready), SHMQUEUE_OK);
        EXPECT_EQ(ready, wanted == 3 ? 2u : wanted == 0 ? 0u : 1u);
        return wanted;
    }
    uint32_t choose(uint32_t mask) { return ShmQueueEventSelect(library, mask); }
    uint32_t events()
    {
        uint32_t found = 99;
        EXPECT_EQ(isSet(ShmQueueGetEvent(library)), ours(pending) != 0);
        EXPECT_EQ(ShmQueueEnumEvents(library, &found), SHMQUEUE_OK);
        EXPECT_FALSE(isSet(ShmQueueGetEvent(library)));
        return found;
    }

    ShmQueue *listener = nullptr, *library = nullptr;
    std::unique_ptr<RawPeer> handshake, raw;
    uint32_t moved = 0;
};

TEST(ShmQueue, MakesItsSegmentsAndObjectsAsPeersExpectThem)
{
    Link link(true, 1000);
    ASSERT_NE(link.library, nullptr);
    DWORD reply[2] = {};
    EXPECT_EQ(link.handshake->in(end) + link.handshake->out(end), 512u);
    EXPECT_TRUE(isSet(link.handshake->ownEvent));
    EXPECT_FALSE(isSet(link.handshake->ownEvent)); // reset by the first wait
    EXPECT_EQ(link.handshake->get(reinterpret_cast<char *>(reply), 8), 8u);
    EXPECT_EQ(reply[0] + reply[1], 1007u);
    for (DWORD offset = 0; offset < 2084; offset += 4)
        EXPECT_EQ(*reinterpret_cast<DWORD *>(link.raw->view + offset),
                  offset == 4 + 12 || offset == 1044 + 12 ? 1000u : 0u);
    for (HANDLE event : {link.raw->ownEvent, link.raw->peerEvent, link.raw->ownWake, link.raw->peerWake}) {
        SetEvent(event);
        EXPECT_TRUE(isSet(event) && isSet(event)); // manual reset
        ResetEvent(event);
    }
    EXPECT_EQ(ShmQueueListen("link"), nullptr);
    for (auto [number, name] : {std::pair(123u, "QVSShmlink123"), {0u, "QVSShmlink00"}, {~0u, "QVSShmlink-1"}}) {
        link.handshake->put("1234", 4);
        ShmQueue *queue = ShmQueueAccept(link.listener, number, 0);
        EXPECT_EQ(ShmQueueAdd(queue, "a", &(link.moved = 1)), SHMQUEUE_FULL); // a ring of no bytes
        EXPECT_NE(RawPeer(RawPeer::connector, name, 0).view, nullptr) << name;
        EXPECT_EQ(ShmQueueDestroy(queue), SHMQUEUE_OK);
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
    {
        uint32_t word = 0;
        for (const char *name : {static_cast<const char *>(nullptr), "sixteen_letters_", "bad\\name", "nobody"}) {
            ShmQueue *listener = ShmQueueListen(name);
            EXPECT_EQ(listener != nullptr, name != nullptr && std::string(name) == "nobody");
            EXPECT_EQ(ShmQueueDestroy(listener), listener == nullptr ? SHMQUEUE_BAD_HANDLE : SHMQUEUE_OK);
            EXPECT_EQ(ShmQueueConnect(name), nullptr);
        }
        for (uint32_t status : {ShmQueueAdd(nullptr, "a", &word), ShmQueueRemove(nullptr, &word, &word),
                                ShmQueueSelect(nullptr, &word, 0, &word), ShmQueueEventSelect(nullptr, 1),
                                ShmQueueEnumEvents(nullptr, &word)})
            EXPECT_EQ(status, SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(ShmQueueGetEvent(nullptr), nullptr);

        Link link(true, 8, "fifteen_letters");
        ASSERT_NE(link.library, nullptr);
        EXPECT_EQ(ShmQueueAccept(nullptr, 8, 8), nullptr);
        EXPECT_EQ(ShmQueueAccept(link.library, 8, 8), nullptr);
        EXPECT_EQ(ShmQueueAccept(link.listener, 8, 8), nullptr); // nothing pending
        link.handshake->put("1234", 4);
        for (uint32_t size : {0x7FFFFFD6u, 0x7FFFFFD7u, 0x7FFFFFD8u, 0x80000000u, ~0u}) // 2S + 84 goes over 32 bits
            EXPECT_EQ(ShmQueueAccept(link.listener, 8, size), nullptr);
        EXPECT_EQ(link.handshake->out(count), 4u);               // the request is still there
        EXPECT_EQ(ShmQueueAccept(link.listener, 7, 8), nullptr); // the number is in use
        EXPECT_EQ(link.handshake->out(count), 0u);
        SetEvent(link.handshake->ownEvent); // a client that is let go by it finds another one's connection
        link.raw->announce(GetCurrentProcessId() + 1);
        EXPECT_EQ(ShmQueueConnect("fifteen_letters"), nullptr);
        EXPECT_EQ(*reinterpret_cast<DWORD *>(link.raw->view), GetCurrentProcessId() + 1);
    }
    EXPECT_TRUE(before.isBack());
    for (DWORD promised : {5000u, 0x7FFFFFD5u, 0x7FFFFFD6u, ~0u}) { // the segment is smaller than the reply says
        RawPeer listener(RawPeer::listener, "QVSShmInitliar", 256), acceptor(RawPeer::acceptor, "QVSShmliar01", 100);
        DWORD reply[2] = {1, promised};
        listener.put(reinterpret_cast<char *>(reply), 8);
        SetEvent(listener.peerEvent);
        EXPECT_EQ(ShmQueueConnect("liar"), nullptr) << promised;
    }
    EXPECT_TRUE(before.isBack());
}

TEST(ShmQueue, InteroperatesInBothRoles)
{
    std::mt19937 random(5);
    for (auto [libraryAccepts, capacity] :
         {std::pair(true, 1u), {true, 7u}, {false, 7u}, {true, 64u}, {false, 64u}, {false, 1001u}}) {
        Link link(libraryAccepts, capacity);
        ASSERT_NE(link.library, nullptr);
        EXPECT_EQ(*reinterpret_cast<DWORD *>(link.raw->view), libraryAccepts ? 0 : GetCurrentProcessId());
        EXPECT_EQ(isSet(link.raw->processWait), !libraryAccepts);
        Bytes written[2] = {{1}, {2}}, seen[2] = {{1}, {2}};
        uint32_t held[2] = {}, position = 0; // of the next byte in the outward ring
        char buffer[2100];
        for (int step = 0; step < 2000; ++step) {
            bool inward = random() % 2 == 0, adds = random() % 2 == 0;
            uint32_t length = 1 + random() % (2 * capacity), moved = length, status = SHMQUEUE_OK;
            uint32_t expected = std::min<uint32_t>(length, adds ? capacity - held[inward] : held[inward]);
            if (adds)
                Bytes(written[inward]).fill(buffer, length);
            if (adds == inward)
                moved = adds ? link.raw->put(buffer, length) : link.raw->get(buffer, length);
            else
                status =
                    adds ? ShmQueueAdd(link.library, buffer, &moved) : ShmQueueRemove(link.library, buffer, &moved);
            bool isFull = status == SHMQUEUE_FULL;
            ASSERT_EQ(status, expected > 0 || adds == inward ? SHMQUEUE_OK : adds ? SHMQUEUE_FULL : SHMQUEUE_EMPTY);
            ASSERT_EQ(moved, isFull ? length : expected);
            if (adds)
                written[inward].fill(buffer, expected);
            else
                ASSERT_TRUE(seen[inward].match(buffer, expected));
            held[inward] += adds ? expected : 0 - expected;
            position = held[0] == 0 ? 0 : (position + (adds && !inward ? expected : 0)) % capacity;
            ASSERT_EQ(link.ours(count), held[0]);
            ASSERT_EQ(link.ours(writePos), position);
            ASSERT_TRUE(held[1] != 0 || link.theirs(readPos) + link.theirs(writePos) == 0);
            ASSERT_EQ(link.select(3), (held[1] == 0 ? 0 : 1) + (held[0] == capacity ? 0u : 2u));
        }
    }
}

TEST(ShmQueue, RaisesAndAddsUpEvents)
{
    Link link(true);
    ASSERT_NE(link.library, nullptr);
    {
        test_support::FailingImport<BOOL WINAPI(HANDLE)> failing("SetEvent", FALSE, 1);
        EXPECT_EQ(link.choose(63), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(link.ours(eventMask) + link.ours(pending), 0u); // so that the next call finds the same bits due
    }
    EXPECT_EQ(link.choose(63), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 2u); // due by the present state
    link.raw->put("abcd", 4);
    EXPECT_EQ(link.remove(1) + link.remove(1), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 3u * (1 + 8)); // raised three times, added up
    EXPECT_EQ(link.choose(2) + link.choose(1 | 2), SHMQUEUE_OK);
    EXPECT_EQ(link.ours(pending), 1u); // what stays chosen is not looked at again
    EXPECT_EQ(link.choose(2 | 32), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 0u); // every pending event was dropped
    EXPECT_EQ(link.remove(9), SHMQUEUE_OK);

    link.theirs(eventMask) = 1 | 2 | 8;
    EXPECT_EQ(link.add(4) + link.add(2), SHMQUEUE_OK); // the second finds the ring not empty: no news
    EXPECT_EQ(link.theirs(pending), 9u);
    EXPECT_TRUE(isSet(link.raw->ownEvent));
    EXPECT_EQ(link.add(10), SHMQUEUE_OK);
    EXPECT_EQ(link.moved, 2u);
    EXPECT_EQ(link.ours(blocked), 0u); // a part was added: not blocked
    EXPECT_EQ(link.add(10), SHMQUEUE_FULL);
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
    link.theirs(closed) = link.ours(closed) = 1;
    link.raw->tell(0, 32);
    EXPECT_EQ(link.events(), 32u);
    EXPECT_EQ(link.add(1), SHMQUEUE_CLOSED);
    EXPECT_EQ(link.remove(2), SHMQUEUE_OK);
    EXPECT_EQ(link.remove(2), SHMQUEUE_CLOSED);
    EXPECT_EQ(link.moved, 0u);
    EXPECT_EQ(link.choose(0) + link.choose(63), SHMQUEUE_OK);
    EXPECT_EQ(link.events(), 32u);
}

TEST(ShmQueue, KeepsTheWaitMaskAfterATimeOut)
{
    Link link(true);
    ASSERT_NE(link.library, nullptr);
    std::thread peer([&] { // keeps the mutex for longer than the time-out of the select that it wakes
        while (link.ours(waitMask) == 0)
            Sleep(1);
        WaitForSingleObject(link.raw->mutex, patience);
        link.raw->tell(1, 0);
        Sleep(1300);
        ReleaseMutex(link.raw->mutex);
    });
    EXPECT_EQ(link.select(1, 1000), 1u);
    peer.join();
    EXPECT_EQ(link.select(0) + link.select(1, 10), 0u);
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
    link.theirs(waitMask) = 2 | 4;
    EXPECT_EQ(link.add(1), SHMQUEUE_OK);
    EXPECT_FALSE(isSet(link.raw->ownWake));
    link.raw->put("a", 1);
    EXPECT_EQ(link.remove(1), SHMQUEUE_OK);
    EXPECT_TRUE(isSet(link.raw->ownWake));
    EXPECT_EQ(link.theirs(waitMask), 4u);
}

TEST(ShmQueue, TakesADamagedHeaderForAClosedRing)
{
    struct {
        Word word;
        DWORD value;
    } const damages[] = {{base, 1},       {base, ~0u}, {readPos, 64}, {readPos, ~0u}, {writePos, 64}, {writePos, 3},
                         {writePos, ~0u}, {end, 0},    {end, 65},     {count, 65},    {count, 68},    {count, 5}};
    for (bool libraryAccepts : {true, false})
        for (auto [word, value] : damages) {
            Link link(libraryAccepts, 64);
            ASSERT_NE(link.library, nullptr);
            link.raw->put("abcd", 4);
            EXPECT_EQ(link.add(4), SHMQUEUE_OK);
            link.theirs(word) = link.ours(word) = value;
            EXPECT_EQ(link.add(100), SHMQUEUE_CLOSED) << word << ' ' << value;
            EXPECT_EQ(link.remove(100), SHMQUEUE_CLOSED) << word << ' ' << value;
            EXPECT_EQ(link.select(3), 1u);
            EXPECT_EQ(link.choose(63), SHMQUEUE_OK);
            EXPECT_EQ(link.events(), 32u);
        }
}

DWORD *hostileWord; ///< as the library sees it
bool isBeingRead;

/// Lets an access to the protected page pass by a single step, and spoils the word right after each read.
LONG WINAPI spoilOnceRead(EXCEPTION_POINTERS *exception)
{
    const EXCEPTION_RECORD &record = *exception->ExceptionRecord;
    bool isAccess = record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION,
         isStep = record.ExceptionCode == EXCEPTION_SINGLE_STEP;
    if (!isStep && (!isAccess || (record.ExceptionInformation[1] ^ reinterpret_cast<DWORD>(hostileWord)) >= 4096))
        return EXCEPTION_CONTINUE_SEARCH;
    if (isStep && isBeingRead)
        *hostileWord = 0x7FFFFF00;
    DWORD before = 0;
    VirtualProtect(hostileWord, 1, isStep ? PAGE_NOACCESS : PAGE_READWRITE, &before);
    isBeingRead = isAccess && record.ExceptionInformation[0] == 0 &&
                  record.ExceptionInformation[1] == reinterpret_cast<DWORD>(hostileWord);
    exception->ContextRecord->EFlags |= isAccess ? 0x100 : 0;
    return EXCEPTION_CONTINUE_EXECUTION;
}

/// A peer may change a word at any time: what was checked must be what is used.
TEST(ShmQueue, LooksAtAHeaderWordOnce)
{
    Link link(false, 64);
    ASSERT_NE(link.library, nullptr);
    void *handler = AddVectoredExceptionHandler(1, spoilOnceRead);
    for (Word word : {base, readPos, writePos, end, count})
        for (bool adds : {true, false}) {
            for (DWORD *ring : {&link.ours(base), &link.theirs(base)})
                std::copy_n(std::array<DWORD, 5>{0, 0, 4, 64, 4}.data(), 5, ring);
            hostileWord = reinterpret_cast<DWORD **>(link.library)[adds ? 2 : 3] + word; // sendRing, recvRing
            DWORD before = 0;
            VirtualProtect(hostileWord, 1, PAGE_NOACCESS, &before);
            EXPECT_EQ(adds ? link.add(100) : link.remove(100), SHMQUEUE_OK);
            EXPECT_EQ(link.moved, adds ? 60u : 4u);
            VirtualProtect(hostileWord, 1, PAGE_READWRITE, &before);
            EXPECT_EQ(adds ? link.ours(count) : link.theirs(count), adds ? 64u : 0u);
        }
    RemoveVectoredExceptionHandler(handler);
}

/// Woken once more, the watcher takes the process for ended.
void endWatcher(Link &link)
{
    link.choose(32);
    for (int i = 0; i < 100 && !isSet(ShmQueueGetEvent(link.library)); ++i) {
        link.raw->announce(GetCurrentProcessId());
        Sleep(20);
    }
}

const DWORD testThread = GetCurrentThreadId();
std::atomic<int> watcherSignals;

/// Holds the watcher up where it acknowledges.
BOOL WINAPI setEventSlowly(HANDLE event)
{
    if (GetCurrentThreadId() == testThread)
        return SetEvent(event);
    Sleep(100);
    ++watcherSignals;
    return SetEvent(event);
}

/// What can go wrong around the watcher: destroy neither hangs nor frees what the watcher still uses.
TEST(ShmQueue, DestroyWaitsForTheWatcherAndNeverForever)
{
    enum { asleep, acknowledged, watching, failed, ended };
    Footprint before;
    test_support::ImportHook slow("SetEvent", setEventSlowly);
    for (int watcher : {asleep, acknowledged, watching, failed, ended}) {
        Link link(true);
        ASSERT_NE(link.library, nullptr);
        link.choose(watcher == acknowledged || watcher == watching ? 2 : 32); // with write, the event is set already
        if (watcher == watching || watcher == ended)
            link.raw->announce(GetCurrentProcessId());
        if (watcher == failed) { // no such process: the mutex is left abandoned, and whoever sleeps is woken
            std::thread connector([&] {
                while (link.ours(waitMask) == 0)
                    Sleep(1);
                link.raw->announce(0xFFFFFFF0);
            });
            EXPECT_EQ(sleepUntilReadable(link.library), SHMQUEUE_BAD_HANDLE);
            connector.join();
            EXPECT_TRUE(isSet(ShmQueueGetEvent(link.library)));
            auto letPeerTakeMutex = [&](bool andDie) {
                std::thread([&] {
                    EXPECT_EQ(WaitForSingleObject(link.raw->mutex, patience), WAIT_OBJECT_0);
                    if (!andDie)
                        ReleaseMutex(link.raw->mutex);
                }).join();
            };
            letPeerTakeMutex(true); // each failed call has passed the mutex on
            EXPECT_EQ(link.add(1), SHMQUEUE_BAD_HANDLE);
            letPeerTakeMutex(false);
            EXPECT_EQ(link.add(1), SHMQUEUE_OK);
        }
        if (watcher == ended)
            endWatcher(link);
        link.theirs(waitMask) = 3;
        link.theirs(eventMask) = 32;
        EXPECT_EQ(ShmQueueDestroy(std::exchange(link.library, nullptr)), SHMQUEUE_OK) << watcher;
        EXPECT_GE(watcherSignals.exchange(0), 1) << watcher;
        EXPECT_EQ(link.ours(closed) & link.theirs(closed), 1u);
        EXPECT_EQ(link.theirs(pending), 32u);
        EXPECT_EQ(link.theirs(waitMask), watcher == failed ? 3u : 2u); // only a reader with nothing to read is woken
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
        return status;
    };
    uint32_t word = 0, flags = 1;
    link.theirs(waitMask) = 3;
    link.theirs(eventMask) = 63;
    check(link.choose(63));
    check(link.add(64));
    link.add(1);
    link.theirs(blocked) = 1;
    check(ShmQueueSelect(link.library, &flags, 1, &word));
    link.raw->put("abcd", 4);
    check(link.remove(2));
    check(ShmQueueSelect(link.library, &(flags = 2), 1, &word)); // a late signal is there already
    check(ShmQueueEnumEvents(link.library, &word));
    check(link.choose(1));
    check(link.choose(32));
    if (libraryAccepts && watcherEnds)
        endWatcher(link);
    if (check(ShmQueueDestroy(link.library)) == SHMQUEUE_OK)
        link.library = nullptr;
}

/// Lives through with each call of one import failing in turn.
template<typename Signature, typename Result>
void failEachCall(const char *import, Result failure)
{
    SCOPED_TRACE(import);
    Footprint before;
    int failures = 0;
    for (int mode = 0; mode < 3; ++mode) {
        bool failed = true;
        for (int call = 1; failed && !testing::Test::HasFailure(); ++call) {
            test_support::HeapWatch watch;
            test_support::FailingImport<Signature> failing(import, failure, call, ERROR_NOT_ENOUGH_MEMORY);
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
    using Security = SECURITY_ATTRIBUTES;
    const HANDLE none = nullptr;
    failEachCall<HANDLE WINAPI(HANDLE, Security *, DWORD, DWORD, DWORD, const char *)>("CreateFileMappingA", none);
    failEachCall<HANDLE WINAPI(DWORD, BOOL, const char *)>("OpenFileMappingA", none);
    failEachCall<HANDLE WINAPI(Security *, BOOL, const char *)>("CreateMutexA", none);
    failEachCall<HANDLE WINAPI(Security *, BOOL, BOOL, const char *)>("CreateEventA", none);
    failEachCall<void * WINAPI(HANDLE, DWORD, DWORD, DWORD, SIZE_T)>("MapViewOfFile", none);
    failEachCall<SIZE_T WINAPI(const void *, MEMORY_BASIC_INFORMATION *, SIZE_T)>("VirtualQuery", SIZE_T());
    failEachCall<BOOL WINAPI(void *, DWORD)>("InitializeSecurityDescriptor", FALSE);
    failEachCall<BOOL WINAPI(void *, BOOL, ACL *, BOOL)>("SetSecurityDescriptorDacl", FALSE);
    failEachCall<HANDLE WINAPI(Security *, SIZE_T, LPTHREAD_START_ROUTINE, void *, DWORD, DWORD *)>("CreateThread",
                                                                                                    none);
    failEachCall<HANDLE WINAPI(DWORD, BOOL, DWORD)>("OpenProcess", none);
    failEachCall<DWORD WINAPI(DWORD, const HANDLE *, BOOL, DWORD)>("WaitForMultipleObjects", WAIT_FAILED);
    failEachCall<DWORD WINAPI(HANDLE, DWORD)>("WaitForSingleObject", WAIT_FAILED);
    for (const char *import : {"SetEvent", "ResetEvent", "ReleaseMutex"})
        failEachCall<BOOL WINAPI(HANDLE)>(import, FALSE);
    for (bool libraryAccepts : {true, false})
        test_support::failEachAllocation([&](test_support::HeapWatch &watch) {
            liveThrough(libraryAccepts, false, [&] { return watch.failed(); });
        });
}

HANDLE earlyEvent;

/// A client that comes between a listener's first and last object makes one that it meant to open.
TEST(ShmQueue, ListensDespiteAClientThatComesTooEarly)
{
    earlyEvent = CreateEventA(nullptr, TRUE, FALSE, "QVSShmInitearlyEvent2");
    EXPECT_EQ(ShmQueueListen("early"), nullptr);
    test_support::ImportHook leaving(
        "Sleep", +[](DWORD) __attribute__((stdcall)) { CloseHandle(earlyEvent); });
    EXPECT_EQ(ShmQueueDestroy(ShmQueueListen("early")), SHMQUEUE_OK);
}

HANDLE replySignal;
int signalsSeen;

/// Two signals in a row are one to the system: an accept gives the client before time to see its own.
TEST(ShmQueue, LetsEveryWaitingClientGo)
{
    ShmQueue *listener = ShmQueueListen("twice");
    RawPeer clients(RawPeer::requester, "QVSShmInittwice", 256);
    clients.put("12345678", 8);
    signalsSeen = 0;
    replySignal = clients.ownEvent;
    test_support::ImportHook seeing(
        "Sleep", +[](DWORD) __attribute__((stdcall)) { signalsSeen += isSet(replySignal); });
    for (uint32_t number : {1u, 2u})
        EXPECT_EQ(ShmQueueDestroy(ShmQueueAccept(listener, number, 1)), SHMQUEUE_OK);
    EXPECT_EQ(signalsSeen, 1);
    EXPECT_TRUE(isSet(replySignal));
    EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
}

TEST(ShmQueue, IsEnabledByTheRegistry)
{
    using Values = std::vector<std::pair<std::string, std::string>>;
    const std::pair<Values, int> cases[] = {
        {{}, 0},
        {{{"", "ON"}}, 1},
        {{{"", "off"}}, 0},
        {{{"", "on"}, {"other", "off"}, {"Spool", "off"}}, 1}, // another case is another name
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
        for (const auto &[name, data] : values)
            RegSetValueExA(opened, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE *>(data.c_str()),
                           static_cast<DWORD>(data.size() + 1));
        EXPECT_EQ(ShmQueueEnabled("spool"), enabled) << (values.empty() ? "" : values.back().second);
        RegCloseKey(opened);
        RegDeleteKeyA(HKEY_LOCAL_MACHINE, key);
    }
}

} // namespace

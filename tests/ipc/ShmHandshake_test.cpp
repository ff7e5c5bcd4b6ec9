#include "tests/ipc/raw_peer.h"
#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <algorithm>
#include <atomic>

using namespace ipc_test;
using namespace test_support;

namespace {

/// Both ends of connection 1, in one process.
struct Pair {
    explicit Pair(uint32_t capacity)
    {
        std::thread server([&] { acceptor.reset(listener.accept(1, capacity)); });
        connector.reset(ShmQueueConnect("pair"));
        server.join();
    }
    Queue listener{ShmQueueListen("pair")}, acceptor, connector;
};

/// The next client is served, at its first or second try.
void expectServed(Queue &listener)
{
    Queue client;
    std::atomic<bool> isOver = false;
    std::thread connecting([&] {
        for (int tries = 0; tries < 2 && client == nullptr; ++tries)
            client.reset(ShmQueueConnect("deaths"));
        isOver = true;
    });
    std::vector<Queue> accepted;
    for (uint32_t number = 1; !isOver && number < 1000; ++number) {
        listener.select(SHMQUEUE_SELECT_READ, 10);
        accepted.emplace_back(ShmQueueAccept(listener.get(), number, 8));
    }
    listener.reset(); // and with it a client that still waits
    connecting.join();
    EXPECT_EQ(client.add("x"), SHMQUEUE_OK);
    EXPECT_TRUE(std::ranges::any_of(accepted, [](Queue &each) { return each.remove(1) == SHMQUEUE_OK; }));
}

TEST(ShmHandshake, ServesTheNextClientAfterDeathsBetweenTwoStores)
{
    // clang-format off
    const struct {
        const char *after;
        bool takesReply;
        Word stored;
        DWORD value;
    } deaths[] = {
        {.after = "nothing", .takesReply = false, .stored = count, .value = 0},
        {.after = "the write position, not the count", .takesReply = false, .stored = writePos, .value = 4},
        {.after = "the count, not the write position", .takesReply = false, .stored = count, .value = 4},
        {.after = "the read position alone", .takesReply = true, .stored = readPos, .value = 8},
        {.after = "the write position alone", .takesReply = true, .stored = writePos, .value = 0},
        {.after = "the count alone", .takesReply = true, .stored = count, .value = 0},
    };
    // clang-format on
    for (const auto &death : deaths) {
        SCOPED_TRACE(death.after);
        Queue listener(ShmQueueListen("deaths"));
        RawPeer dead(RawPeer::requester, "QVSShmInitdeaths");
        dead.put(death.takesReply ? "1234" : "");
        Queue silent(ShmQueueAccept(listener.get(), 0, 8));
        EXPECT_EQ(silent != nullptr, death.takesReply);
        dead.dieHolding([&] {
            dead.tell(1, 1 | 8);
            (death.takesReply ? dead.in(death.stored) : dead.out(death.stored)) = death.value;
        });
        expectServed(listener);
    }
}

TEST(ShmHandshake, ServesTheNextClientAfterDeathsInTheQueue)
{
    for (uint32_t deaths : {2, 34}) { // more than replies fit
        SCOPED_TRACE(deaths);
        Queue listener(ShmQueueListen("deaths"));
        RawPeer dead(RawPeer::requester, "QVSShmInitdeaths");
        dead.put(std::string(4 * deaths, 'q'));
        std::vector<Queue> silent;
        for (uint32_t number = 0; number < deaths; ++number)
            EXPECT_EQ(silent.emplace_back(ShmQueueAccept(listener.get(), number, 8)) != nullptr, number < 32);
        silent.clear();
        EXPECT_EQ(dead.out(count), 0u);
        EXPECT_EQ(dead.in(count), 0u); // each reply was taken back
        EXPECT_FALSE(isSet(dead.ownEvent));
        expectServed(listener);
    }
}

TEST(ShmHandshake, NobodyWaitsForAListenerThatIsGone)
{
    enum { waits, accepts, destroys };
    for (int role : {waits, accepts, destroys}) {
        SCOPED_TRACE(role);
        Child child("listen", role);
        for (HANDLE made = nullptr; made == nullptr; Sleep(10), CloseHandle(made))
            made = OpenFileMappingA(FILE_MAP_READ, FALSE, "QVSShmInitprocesses");
        std::thread killer([&] { Sleep(500), child.kill(); });
        std::thread another([&] { EXPECT_TRUE(role == accepts || ShmQueueConnect("processes") == nullptr); });
        Queue client(ShmQueueConnect("processes"));
        another.join();
        EXPECT_EQ(client != nullptr, role == accepts);
        if (client != nullptr) {
            EXPECT_EQ(client.choose(SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
            EXPECT_EQ(client.select(SHMQUEUE_SELECT_READ), SHMQUEUE_OK);
            EXPECT_EQ(client.value, 1u);
            EXPECT_EQ(client.remove(1), SHMQUEUE_CLOSED);
            EXPECT_EQ(client.add("a"), SHMQUEUE_CLOSED);
        }
        EXPECT_NE(Queue(ShmQueueListen("processes")), nullptr);
        killer.join();
    }
}

/// Who was killed in its destroy may have come to any point of it. What it did is not done again.
TEST(ShmHandshake, TellsAConnectorOnceOfItsAcceptorsEnd)
{
    for (bool destroys : {false, true}) {
        SCOPED_TRACE(destroys);
        Pair pair(40);
        pair.connector.choose(SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_CLOSE);
        pair.acceptor.add(std::string(40, 'x'));
        for (int more = 0; more < 31; ++more)
            EXPECT_EQ(pair.connector.remove(1), SHMQUEUE_OK);
        pair.connector.events();
        EXPECT_EQ(pair.connector.value, 32u); // READ so many times, and no CLOSE
        EXPECT_EQ(pair.connector.add(std::string(40, 'x')), SHMQUEUE_OK);
        if (destroys)
            pair.acceptor.reset();
        ImportHook look("OpenEventA", winapi([](DWORD, BOOL, LPCSTR) { // the acceptor's is not to be found
                            SetLastError(ERROR_FILE_NOT_FOUND);
                            return HANDLE{};
                        }));
        EXPECT_EQ(pair.connector.select(SHMQUEUE_SELECT_WRITE, 1000), SHMQUEUE_OK);
        EXPECT_EQ(pair.connector.value, destroys ? 0u : 2u); // a destroy does not wake who waits only to write
        EXPECT_TRUE(pair.connector.isTold());
        pair.connector.events();
        EXPECT_EQ(pair.connector.value, 32u);
        EXPECT_FALSE(pair.connector.isTold(400));
    }
}

thread_local int waits = 9; ///< of the thread that is to be overtaken

TEST(ShmHandshake, TwoThreadsMayAccept)
{
    Queue listener(ShmQueueListen("threads")), made[2];
    RawPeer clients(RawPeer::requester, "QVSShmInitthreads");
    clients.put("12345678");
    ImportHook slow("WaitForSingleObject", winapi([](HANDLE object, DWORD timeout) {
                        Sleep(++waits == 3 ? 200 : 0); // request and reply are moved, the rest is to come
                        return WaitForSingleObject(object, timeout);
                    }));
    std::thread overtaken([&] {
        waits = 0;
        made[0].reset(ShmQueueAccept(listener.get(), 1, 1));
    });
    Sleep(50);
    made[1].reset(ShmQueueAccept(listener.get(), 2, 1));
    for (int client : {0, 1}) { // each one that is let go finds its connection
        EXPECT_TRUE(isSet(clients.ownEvent, 1000)) << client;
        std::string name = "QVSShmthreads0" + std::to_string(clients.get(8)[0]);
        EXPECT_NE(RawPeer(RawPeer::connector, name, 1).view, nullptr) << name;
    }
    overtaken.join();
    EXPECT_NE(made[0], nullptr);
    EXPECT_NE(made[1], nullptr);
}

HANDLE hooked; ///< for the hooks on Sleep

/// Two signals in a row are one to the system: the second is given when the first has been seen.
TEST(ShmHandshake, AcceptOwesASignalAndWaitsForNobody)
{
    Queue listener(ShmQueueListen("twice"));
    RawPeer clients(RawPeer::requester, "QVSShmInittwice");
    clients.put(std::string(16, 'q'));
    DWORD start = GetTickCount();
    Queue made[] = {Queue(ShmQueueAccept(listener.get(), 1, 1)), Queue(ShmQueueAccept(listener.get(), 2, 1)),
                    Queue(ShmQueueAccept(listener.get(), 3, 1))};
    EXPECT_LT(GetTickCount() - start, 400u);
    for (int client = 0; client < 3; ++client)
        EXPECT_TRUE(isSet(clients.ownEvent, 1000)) << client;
    EXPECT_FALSE(isSet(clients.ownEvent, 200));
    made[1].reset(); // its reply is the middle one
    hooked = clients.ownEvent;
    SetEvent(hooked);
    ImportHook seeing("Sleep", winapi([](DWORD) { EXPECT_TRUE(isSet(std::exchange(hooked, nullptr))); }));
    EXPECT_EQ(ShmQueueAccept(listener.get(), 1, 2), nullptr); // the number is in use
    EXPECT_EQ(hooked, nullptr);                               // somebody has seen the signal of another reply
    EXPECT_TRUE(isSet(clients.ownEvent));                     // and gets the one of this
    EXPECT_EQ(clients.get(99), record({1, 1, 3, 1, 1, 2}));
}

/// A client that comes between a listener's first and last object makes one that it meant to open; others still hold
/// what a dead listener has left. Both pass, and a listener does not.
TEST(ShmHandshake, ListenOutlastsWhatPasses)
{
    for (const char *held : {"QVSShmInitearlyEvent2", "QVSShmInitearly", "QVSShmInitearlyHasPresence"}) {
        hooked = strlen(held) > 15 ? CreateEventA(nullptr, TRUE, FALSE, held)
                                   : CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 592, held);
        EXPECT_EQ(ShmQueueListen("early"), nullptr) << held;
        ImportHook leaving("Sleep", winapi([](DWORD) { CloseHandle(hooked); }));
        EXPECT_NE(Queue(ShmQueueListen("early")), nullptr) << held;
    }
    Queue listener(ShmQueueListen("early"));
    ImportHook failing("Sleep", winapi([](DWORD) { ADD_FAILURE() << "a listener is not waited for"; }));
    EXPECT_EQ(ShmQueueListen("early"), nullptr);
}

/// What a client finds that has asked for a connection, and what comes of it. 7 is a connection with rings of 8 bytes
/// for it, 5 that of another client, 4 one with rings of 4 bytes.
TEST(ShmHandshake, ConnectMakesTheBestOfWhatTheListenerDoes)
{
    // clang-format off
    const struct {
        const char *finding;
        std::vector<DWORD> replies = {7, 8};
        bool isKnown = true, isSignalled = true, isClosed = false, isSlow = false;
        int failingView = 0;
        bool connects = true;
        DWORD repliesLeft = 0;
    } cases[] = {
        {.finding = "a connection that is gone", .replies = {1, 8, 7, 8}},
        {.finding = "that of another client", .replies = {5, 8, 7, 8}},
        {.finding = "one of another capacity", .replies = {4, 2, 7, 8}},
        {.finding = "no memory of its own", .replies = {7, 8, 7, 8}, .failingView = 2, .connects = false, .repliesLeft = 8},
        {.finding = "a reply whose signal is lost", .isSignalled = false},
        {.finding = "its request gone", .replies = {}, .isSignalled = false, .connects = false},
        {.finding = "an accept that takes its time", .isSlow = true},
        {.finding = "one of a listener built separately, without the mutex", .isKnown = false, .isSlow = true},
        {.finding = "a reply, and its listener destroyed", .isClosed = true},
        {.finding = "a reply without its signal, and its listener destroyed", .isSignalled = false, .isClosed = true},
        {.finding = "no reply, and its listener destroyed", .replies = {}, .isSignalled = false, .isClosed = true, .connects = false},
    };
    // clang-format on
    for (const auto &each : cases) {
        SCOPED_TRACE(each.finding);
        RawPeer listener(RawPeer::listener, "QVSShmInitraw", 256, each.isKnown),
            acceptor(RawPeer::acceptor, "QVSShmraw07", 8), another(RawPeer::acceptor, "QVSShmraw05", 8),
            smaller(RawPeer::acceptor, "QVSShmraw04", 4);
        another.processId() = 99;
        std::thread answer([&] {
            while (listener.in(count) == 0)
                Sleep(1);
            WaitForSingleObject(each.isKnown ? listener.mutex : listener.ownEvent, each.isKnown ? patience : 0);
            listener.get(4);
            Sleep(each.isSlow ? 900 : 0);
            listener.put(record(each.replies));
            listener.out(closed) = each.isClosed;
            if (each.isSignalled)
                SetEvent(listener.peerEvent);
            ReleaseMutex(listener.mutex);
        });
        FailingImport<decltype(MapViewOfFile)> failing("MapViewOfFile", nullptr, each.failingView,
                                                       ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(Queue(ShmQueueConnect("raw")) != nullptr, each.connects);
        answer.join();
        EXPECT_EQ(listener.out(count), each.repliesLeft);
        EXPECT_EQ(smaller.processId(), 0u);
    }
}

TEST(ShmHandshake, NamesThatCollideGiveNullAndNothingHalfMade)
{
    leavesNothingBehind([] {
        std::vector<Queue> queues;
        for (auto [name, number] : {std::pair("server1", 7u), {"server", 107u}, {"Inita", 7u}}) {
            Queue listener(ShmQueueListen(name));
            RawPeer(RawPeer::requester, std::string("QVSShmInit") + name).put("1234");
            queues.emplace_back(ShmQueueAccept(listener.get(), number, 1000));
            EXPECT_EQ(queues.back() == nullptr, number == 107u) << name;
        }
        EXPECT_EQ(ShmQueueListen("a07"), nullptr); // its segment would be called like Inita's connection
        EXPECT_EQ(queues[2].add(std::string(1000, 'x')), SHMQUEUE_OK);
        EXPECT_EQ(ShmQueueConnect("a07"), nullptr);
        EXPECT_EQ(RawPeer(RawPeer::connector, "QVSShmInita07", 1000).get(9999), std::string(1000, 'x'));
    });
}

bool makes;
int asked, askedWrongly;

/// Looks at the arguments of an import's calls: everybody may use what is made, what is opened is opened for no more
/// than is needed, and it is neither inherited nor owned or set from the start.
template<int Import, size_t Attributes, size_t MustBeFalse, DWORD Access, typename... Words>
struct Asking {
    explicit Asking(const char *import) : hook(import, &check)
    {
        real = hook.template original<DWORD WINAPI(Words...)>();
    }
    static DWORD WINAPI check(Words... words)
    {
        const DWORD arguments[] = {words...};
        auto *attributes = reinterpret_cast<SECURITY_ATTRIBUTES *>(Access == 0 ? arguments[Attributes] : 0);
        BOOL isPresent = FALSE, isDefault = FALSE;
        ACL *list = nullptr;
        if (attributes != nullptr)
            GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &isPresent, &list, &isDefault);
        bool isForAll = isPresent && list == nullptr && !attributes->bInheritHandle;
        bool isRight = Access != 0 ? arguments[0] == Access : makes ? isForAll : attributes == nullptr;
        ++asked;
        askedWrongly += !isRight || arguments[MustBeFalse] != 0;
        return real(words...);
    }
    static inline DWORD(WINAPI *real)(Words...);
    ImportHook hook;
};

TEST(ShmHandshake, AsksTheSystemForTheRightAccess)
{
    using D = DWORD; // as wide as every argument and result
    Asking<0, 1, 3, 0, D, D, D, D, D, D> mapping("CreateFileMappingA");
    Asking<1, 0, 1, 0, D, D, D> mutex("CreateMutexA");
    Asking<2, 0, 2, 0, D, D, D, D> event("CreateEventA");
    Asking<3, 0, 1, FILE_MAP_WRITE, D, D, D> segment("OpenFileMappingA");
    Asking<4, 0, 1, SYNCHRONIZE, D, D, D> look("OpenEventA");
    Asking<5, 0, 1, SYNCHRONIZE, D, D, D> process("OpenProcess");
    asked = askedWrongly = 0;
    makes = true;
    Link server(true);
    EXPECT_EQ(asked, 7 + 7);
    makes = false;
    Queue client(ShmQueueConnect("link")); // takes the reply
    EXPECT_NE(client, nullptr);
    server.choose(SHMQUEUE_EVENT_CLOSE);
    client.reset();
    EXPECT_TRUE(server.isTold(patience));
    EXPECT_GT(asked, 7 + 7 + 4 + 6 + 1);
    EXPECT_EQ(askedWrongly, 0);
}

// ---- the watcher and destroy ----

enum Ending { inACall, unopenable, gone, later };

/// The connector ends, or seems to, while the acceptor sleeps, which is woken and told. Where the watcher cannot go on,
/// the call fails once.
template<Ending ending>
void loseConnector(Link &link)
{
    ImportHook refusing("OpenProcess", winapi([](DWORD access, BOOL inherit, DWORD id) {
                            HANDLE process = ending == unopenable ? nullptr : OpenProcess(access, inherit, id);
                            SetLastError(ending == unopenable ? ERROR_ACCESS_DENIED : GetLastError());
                            return process;
                        }));
    std::thread connector([&] {
        while (link.ours(waitMask) == 0)
            Sleep(1);
        if (ending == inACall)
            WaitForSingleObject(link.raw->mutex, patience);
        if (ending == later)
            link.endConnector();
        else
            link.raw->announce(ending == gone ? 0xFFFFFFF0 : GetCurrentProcessId()); // no such process
    });
    EXPECT_EQ(link.select(SHMQUEUE_SELECT_READ), ending == later ? SHMQUEUE_OK : SHMQUEUE_BAD_HANDLE);
    connector.join();
    EXPECT_TRUE(link.isTold());
    EXPECT_EQ(link.events(), SHMQUEUE_OK);
    EXPECT_EQ(link.value, ending == unopenable ? 0u : 32u); // it lives for all that is known
    EXPECT_EQ(link.remove(1), SHMQUEUE_EMPTY);              // not CLOSED
}

const DWORD testThread = GetCurrentThreadId();
std::atomic<int> watcherSignals;

TEST(ShmHandshake, DestroyWaitsForTheWatcherAndNeverForever)
{
    // clang-format off
    const struct {
        const char *connector;
        DWORD chosen = SHMQUEUE_EVENT_CLOSE;
        void (*live)(Link &) = [](Link &) {};
        DWORD theirWaits = 2; ///< afterwards: only a reader with nothing to read is woken
    } cases[] = {
        {.connector = "never came"},
        {.connector = "never came, and the event is set before the watcher does", .chosen = SHMQUEUE_EVENT_WRITE},
        {.connector = "lives", .chosen = SHMQUEUE_EVENT_WRITE, .live = [](Link &link) { link.raw->announce(GetCurrentProcessId()); }},
        {.connector = "was gone when it was looked for", .live = loseConnector<gone>},
        {.connector = "died inside its first call", .live = loseConnector<inACall>},
        {.connector = "may not be opened", .live = loseConnector<unopenable>},
        {.connector = "has ended", .live = loseConnector<later>},
        {.connector = "has something to read", .live = [](Link &link) { link.add("a"); }, .theirWaits = 3},
    };
    // clang-format on
    ImportHook slow("SetEvent", winapi([](HANDLE event) { // holds the watcher up where it acknowledges
                        if (GetCurrentThreadId() == testThread)
                            return SetEvent(event);
                        Sleep(100);
                        ++watcherSignals;
                        return SetEvent(event);
                    }));
    leavesNothingBehind([&] {
        for (const auto &each : cases) {
            SCOPED_TRACE(each.connector);
            Link link(true);
            ASSERT_NE(link, nullptr);
            link.choose(each.chosen);
            each.live(link);
            link.theirs(waitMask) = 3;
            link.theirs(eventMask) = 32;
            EXPECT_EQ(link.destroy(), SHMQUEUE_OK);
            EXPECT_GE(watcherSignals.exchange(0), 1);
            EXPECT_EQ(link.ours(closed), 1u);
            EXPECT_EQ(link.theirs(closed), 1u);
            EXPECT_EQ(link.theirs(pending), 32u);
            EXPECT_EQ(link.theirs(waitMask), each.theirWaits);
        }
    });
}

TEST(ShmHandshake, DestroyTriesAgain)
{
    Link link(true);
    link.theirs(eventMask) = 32;
    {
        FailingImport<BOOL WINAPI(HANDLE)> failing("SetEvent", FALSE, 2); // the one to the watcher
        EXPECT_EQ(ShmQueueDestroy(link.get()), SHMQUEUE_BAD_HANDLE);
    }
    FailingImport<BOOL WINAPI(HANDLE)> lost("SetEvent", TRUE, 1); // somebody takes the next signal to the watcher
    EXPECT_EQ(link.destroy(), SHMQUEUE_OK);
    EXPECT_TRUE(lost.failed());
    EXPECT_EQ(link.theirs(pending), 32u); // told once
}

TEST(ShmHandshake, TheLibraryMayBeUnloadedAfterTheLastDestroy)
{
    {
        FreshLibrary library;
        ImportHook slow("ReleaseMutex", winapi([](HANDLE mutex) { // holds the watcher up on its last steps
                            BOOL isReleased = ReleaseMutex(mutex);
                            Sleep(GetCurrentThreadId() == testThread ? 0 : 300);
                            return isReleased;
                        }),
                        library.module());
        auto call = [&]<typename Function>(const char *name, Function *, auto... arguments) {
            return library.function<Function>(name)(arguments...);
        };
        ShmQueue *listener = call("ShmQueueListen", ShmQueueListen, "fresh");
        RawPeer(RawPeer::requester, "QVSShmInitfresh").put("1234");
        ShmQueue *connection = call("ShmQueueAccept", ShmQueueAccept, listener, 1u, 8u);
        RawPeer peer(RawPeer::connector, "QVSShmfresh01", 8);
        call("ShmQueueEventSelect", ShmQueueEventSelect, connection, 32u);
        for (int i = 0; i < 100 && !isSet(peer.peerEvent, 20); ++i)
            peer.announce(GetCurrentProcessId());
        EXPECT_EQ(call("ShmQueueDestroy", ShmQueueDestroy, connection), SHMQUEUE_OK);
        EXPECT_EQ(call("ShmQueueDestroy", ShmQueueDestroy, listener), SHMQUEUE_OK);
    }
    Sleep(400);
}

} // namespace

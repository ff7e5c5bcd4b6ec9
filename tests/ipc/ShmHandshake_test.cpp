#include "tests/ipc/processes.h"
#include "tests/ipc/raw_peer.h"
#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <atomic>
#include <thread>

using namespace ipc_test;
using namespace test_support;

namespace {

bool isSet(HANDLE event, DWORD timeout = 0)
{
    return WaitForSingleObject(event, timeout) == WAIT_OBJECT_0;
}

std::string reply(uint32_t number, uint32_t capacity)
{
    const uint32_t words[] = {number, capacity};
    return {reinterpret_cast<const char *>(words), sizeof words};
}

/// A listener, and a connection accepted from the raw peer.
struct Accepted {
    Queue listener{ShmQueueListen("accepted")};
    RawPeer client{RawPeer::requester, "QVSShmInitaccepted", 256};
    Queue connection{client.put("1234") == 4 ? ShmQueueAccept(listener.get(), 7, 8) : nullptr};
    RawPeer peer{RawPeer::connector, "QVSShmaccepted07", 8};
};

/// A server in a thread: sends back what arrives, and gives up on who is silent for a while.
struct Server {
    explicit Server(ShmQueue *queue) : listener(queue), thread([this] { run(); }) {}
    ~Server()
    {
        isOver = true;
        thread.join();
    }
    void run()
    {
        std::vector<std::pair<Queue, DWORD>> clients;
        for (uint32_t number = 1; !isOver; ++number) {
            if (listener.select(SHMQUEUE_SELECT_READ, 10) == SHMQUEUE_OK && listener.value != 0)
                if (Queue client(ShmQueueAccept(listener.get(), number, 100)); client != nullptr)
                    clients.emplace_back(std::move(client), GetTickCount());
            std::erase_if(clients, [this](auto &client) {
                uint32_t status = client.first.remove(100);
                if (status == SHMQUEUE_OK)
                    client.first.add(client.first.bytes);
                return status == SHMQUEUE_CLOSED || GetTickCount() - client.second > silence;
            });
        }
    }
    Queue listener;
    std::atomic<DWORD> silence = 10000;
    std::atomic<bool> isOver = false;
    std::thread thread;
};

/// Whether the next client is served soon, at its first or second try. On a machine at rest that is in milliseconds.
bool servesAClient(const char *name)
{
    DWORD start = GetTickCount();
    Queue client(ShmQueueConnect(name));
    if (client == nullptr)
        client.reset(ShmQueueConnect(name));
    client.add("x");
    client.select(SHMQUEUE_SELECT_READ, 5000);
    return client.remove(1) == SHMQUEUE_OK && GetTickCount() - start < 5000;
}

TEST(ShmHandshake, ServesTheNextClientAfterDeathsInTheHandshake)
{
    for (int death = 0; death < 6; ++death) {
        Server server(ShmQueueListen("processes"));
        Child child("die", death);
        EXPECT_EQ(child.wait(), 0u);
        EXPECT_TRUE(servesAClient("processes")) << death;
    }
}

TEST(ShmHandshake, ServesTheNextClientAfterDeathsInTheQueue)
{
    for (uint32_t deaths : {2, 34}) {
        Queue listener(ShmQueueListen("processes"));
        RawPeer dead(RawPeer::requester, "QVSShmInitprocesses", 256);
        Child children[] = {Child("talk"), Child("talk")};
        while (dead.out(count) < 8)
            Sleep(10);
        for (Child &child : children)
            child.kill();
        dead.put(std::string(4 * (deaths - 2), 'q'));
        Server server(listener.release());
        server.silence = 100;
        for (int i = 0; i < 400 && dead.in(count) + dead.out(count) != 0; ++i)
            Sleep(50);
        EXPECT_EQ(dead.in(count) + dead.out(count), 0u); // each reply was taken back
        EXPECT_FALSE(isSet(dead.ownEvent));
        server.silence = 10000;
        EXPECT_TRUE(servesAClient("processes")) << deaths;
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
        ASSERT_EQ(client != nullptr, role == accepts);
        if (role == accepts) {
            EXPECT_EQ(client.choose(SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
            EXPECT_EQ(client.select(SHMQUEUE_SELECT_READ) + client.value, 1u);
            EXPECT_EQ(client.remove(1) + client.add("a"), 2u * SHMQUEUE_CLOSED);
            EXPECT_EQ(client.events() + client.value, 32u);
        }
        EXPECT_NE(Queue(ShmQueueListen("processes")), nullptr);
        killer.join();
    }
}

thread_local int waits = 9; ///< of the thread that is to be overtaken

TEST(ShmHandshake, TwoThreadsMayAccept)
{
    Queue listener(ShmQueueListen("threads")), made[2];
    RawPeer clients(RawPeer::requester, "QVSShmInitthreads", 256);
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
    EXPECT_TRUE(made[0] != nullptr && made[1] != nullptr);
}

/// Two signals in a row are one to the system: the second is given when the first has been seen.
TEST(ShmHandshake, AcceptWaitsForNobody)
{
    Queue listener(ShmQueueListen("twice"));
    RawPeer clients(RawPeer::requester, "QVSShmInittwice", 256);
    clients.put("123456781234");
    DWORD start = GetTickCount();
    Queue made[] = {Queue(ShmQueueAccept(listener.get(), 1, 1)), Queue(ShmQueueAccept(listener.get(), 2, 1)),
                    Queue(ShmQueueAccept(listener.get(), 3, 1))};
    EXPECT_LT(GetTickCount() - start, 400u);
    for (int client = 0; client < 3; ++client)
        EXPECT_TRUE(isSet(clients.ownEvent, 1000));
    EXPECT_FALSE(isSet(clients.ownEvent, 200));
    made[1].reset(); // its reply is the middle one
    EXPECT_EQ(clients.get(99), reply(1, 1) + reply(3, 1));
}

TEST(ShmHandshake, ConnectMakesTheBestOfWhatTheListenerDoes)
{
    RawPeer listener(RawPeer::listener, "QVSShmInitraw", 256);
    std::optional<RawPeer> acceptor(std::in_place, RawPeer::acceptor, "QVSShmraw07", 8);
    auto connects = [&] {
        acceptor->processId() = 0;
        return Queue(ShmQueueConnect("raw")) != nullptr;
    };
    listener.put(reply(1, 8) + reply(7, 8)); // the first one's segment is gone
    SetEvent(listener.peerEvent);
    EXPECT_TRUE(connects());
    HANDLE presence[] = {CreateEventA(nullptr, TRUE, FALSE, "QVSShmInitrawPresence"),
                         CreateEventA(nullptr, TRUE, FALSE, "QVSShmInitrawHasPresence")};
    listener.get(4);
    for (bool answers : {true, false}) { // a reply without its signal, or a request that is lost
        std::thread loser([&] {
            while (listener.get(4).empty())
                Sleep(1);
            if (answers)
                listener.put(reply(7, 8));
        });
        EXPECT_EQ(connects(), answers);
        loser.join();
    }
    listener.put(reply(7, 8));
    SetEvent(listener.peerEvent);
    listener.out(closed) = 1; // what was accepted before counts
    EXPECT_TRUE(connects());
    EXPECT_FALSE(connects());
    for (HANDLE event : presence)
        CloseHandle(event);
}

TEST(ShmHandshake, NamesThatCollideGiveNullAndNothingHalfMade)
{
    Footprint before;
    std::vector<Queue> queues;
    for (auto [name, number] : {std::pair("server1", 7u), {"server", 107u}, {"Inita", 7u}}) {
        Queue listener(ShmQueueListen(name));
        RawPeer(RawPeer::requester, std::string("QVSShmInit") + name, 256).put("1234");
        queues.emplace_back(ShmQueueAccept(listener.get(), number, 1000));
        EXPECT_EQ(queues.back() == nullptr, number == 107u) << name;
    }
    EXPECT_EQ(ShmQueueListen("a07"), nullptr); // its segment would be called like Inita's connection
    EXPECT_EQ(queues[2].add(std::string(1000, 'x')), SHMQUEUE_OK);
    EXPECT_EQ(ShmQueueConnect("a07"), nullptr);
    EXPECT_EQ(RawPeer(RawPeer::connector, "QVSShmInita07", 1000).get(9999), std::string(1000, 'x'));
}

/// A program file, mapped as one, is no memory to write to, however well its headers fit.
TEST(ShmHandshake, RefusesAnImageForASegment)
{
    char program[MAX_PATH], copy[] = "image.exe";
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    CopyFileA(program, copy, FALSE);
    const DWORD ring[10] = {0, 0, 0, 256}; // over entries of the data directory that nobody reads
    DWORD written = 0;
    HANDLE file =
        CreateFileA(copy, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    SetFilePointer(file, 296, nullptr, FILE_BEGIN);
    WriteFile(file, ring, sizeof ring, &written, nullptr);
    HANDLE image = CreateFileMappingA(file, nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, "QVSShmInitimage");
    EXPECT_NE(image, nullptr);
    EXPECT_EQ(ShmQueueConnect("image"), nullptr);
    CloseHandle(image);
    CloseHandle(file);
}

bool makes;
int objectsSeen, objectsWrong;

/// Everybody may use what is made, what is opened is opened for no more than is needed, and no child inherits it.
void check(const SECURITY_ATTRIBUTES *attributes, bool isRight = true)
{
    BOOL isPresent = FALSE, isDefault = FALSE;
    ACL *list = nullptr;
    if (makes && attributes != nullptr && !attributes->bInheritHandle)
        GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &isPresent, &list, &isDefault);
    ++objectsSeen;
    objectsWrong += !isRight || (makes ? !isPresent || list != nullptr : attributes != nullptr);
}

TEST(ShmHandshake, AsksTheSystemForTheRightAccess)
{
    ImportHook mapping("CreateFileMappingA", winapi([](HANDLE file, SECURITY_ATTRIBUTES *attributes, DWORD protection,
                                                       DWORD high, DWORD low, LPCSTR name) {
                           check(attributes);
                           return CreateFileMappingA(file, attributes, protection, high, low, name);
                       }));
    ImportHook mutex("CreateMutexA", winapi([](SECURITY_ATTRIBUTES *attributes, BOOL owned, LPCSTR name) {
                         check(attributes, !owned);
                         return CreateMutexA(attributes, owned, name);
                     }));
    ImportHook event("CreateEventA", winapi([](SECURITY_ATTRIBUTES *attributes, BOOL manual, BOOL set, LPCSTR name) {
                         check(attributes, !set);
                         return CreateEventA(attributes, manual, set, name);
                     }));
    ImportHook segment("OpenFileMappingA", winapi([](DWORD access, BOOL inherit, LPCSTR name) {
                           check(nullptr, access == FILE_MAP_WRITE && !inherit);
                           return OpenFileMappingA(access, inherit, name);
                       }));
    ImportHook look("OpenEventA", winapi([](DWORD access, BOOL inherit, LPCSTR name) {
                        check(nullptr, access == SYNCHRONIZE && !inherit);
                        return OpenEventA(access, inherit, name);
                    }));
    makes = true;
    objectsSeen = objectsWrong = 0;
    Accepted server;
    EXPECT_EQ(objectsSeen, 7 + 7);
    makes = false;
    {
        ImportHook process("OpenProcess", winapi([](DWORD access, BOOL inherit, DWORD id) {
                               check(nullptr, access == SYNCHRONIZE && !inherit);
                               return OpenProcess(access, inherit, id);
                           }));
        Queue client(ShmQueueConnect("accepted")); // takes the reply
        EXPECT_NE(client, nullptr);
        server.connection.choose(SHMQUEUE_EVENT_CLOSE);
        client.reset();
        EXPECT_TRUE(server.connection.isTold(patience));
    }
    EXPECT_GT(objectsSeen, 7 + 7 + 4 + 6 + 1);
    EXPECT_EQ(objectsWrong, 0);
}

TEST(ShmHandshake, WatchersAndDestroysMindEachOther)
{
    {
        Accepted silent;
        silent.connection.choose(SHMQUEUE_EVENT_CLOSE);
        std::thread([&] { // a client that dies inside its first call
            WaitForSingleObject(silent.peer.mutex, patience);
            silent.peer.announce(GetCurrentProcessId());
        })
            .join();
        EXPECT_TRUE(silent.connection.isTold(patience));
        EXPECT_EQ(silent.connection.events(), SHMQUEUE_BAD_HANDLE);
        EXPECT_EQ(silent.connection.events() + silent.connection.value, 32u);
        EXPECT_EQ(ShmQueueAccept(silent.connection.get(), 8, 8), nullptr); // no listener
    }
    using SetEventFunction = BOOL WINAPI(HANDLE);
    {
        Accepted once;
        FailingImport<SetEventFunction> lost("SetEvent", TRUE, 1); // somebody takes the first signal to the watcher
        EXPECT_EQ(once.connection.destroy(), SHMQUEUE_OK);
        EXPECT_TRUE(lost.failed());
    }
    Accepted twice;
    twice.peer.out(eventMask) = 32;
    {
        FailingImport<SetEventFunction> failing("SetEvent", FALSE, 2); // the one to the watcher
        EXPECT_EQ(ShmQueueDestroy(twice.connection.get()), SHMQUEUE_BAD_HANDLE);
    }
    EXPECT_EQ(twice.peer.out(pending), 32u);
    EXPECT_EQ(twice.connection.destroy(), SHMQUEUE_OK);
    EXPECT_EQ(twice.peer.out(pending), 32u); // not told a second time
}

const DWORD testThread = GetCurrentThreadId();

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
        RawPeer client(RawPeer::requester, "QVSShmInitfresh", 256);
        client.put("1234");
        ShmQueue *connection = call("ShmQueueAccept", ShmQueueAccept, listener, 1u, 8u);
        RawPeer peer(RawPeer::connector, "QVSShmfresh01", 8);
        call("ShmQueueEventSelect", ShmQueueEventSelect, connection, 32u);
        for (int i = 0; i < 100 && !isSet(peer.peerEvent, 20); ++i)
            peer.announce(GetCurrentProcessId()); // woken a second time, the watcher takes the process for ended
        EXPECT_EQ(call("ShmQueueDestroy", ShmQueueDestroy, connection), SHMQUEUE_OK);
        EXPECT_EQ(call("ShmQueueDestroy", ShmQueueDestroy, listener), SHMQUEUE_OK);
    }
    Sleep(400);
}

} // namespace

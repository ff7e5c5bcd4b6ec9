#include "tests/ipc/processes.h"
#include "tests/ipc/raw_peer.h"

#include <gmock/gmock.h>

#include <memory>

using namespace ipc_test;

namespace {

constexpr uint32_t block = 64 * 1024;

std::vector<uint8_t> bytesOf(uint32_t seed, uint32_t length)
{
    std::vector<uint8_t> bytes(length);
    Bytes(seed).fill(bytes.data(), length);
    return bytes;
}

/// What a child does; its exit code is 0 if all went well.
int play(const std::string &role, const std::string &name, int number)
{
    uint32_t id = static_cast<uint32_t>(number);
    std::vector<uint8_t> bytes = bytesOf(id, block);
    if (role == "raw") { // sends its block with no help from the library, and reads the answer
        RawPeer init(RawPeer::requester, "QVSShmInit" + name, 256);
        DWORD reply[2] = {};
        init.put(reply, 4);
        WaitForSingleObject(init.ownEvent(), patience);
        init.get(reply, 8);
        RawPeer peer(RawPeer::connector, "QVSShm" + name + "0" + std::to_string(reply[0]), reply[1]);
        peer.announce(GetCurrentProcessId());
        for (DWORD sent = 0; sent < block; sent += peer.put(&bytes[sent], block - sent)) {
        }
        DWORD answer = 0;
        for (DWORD got = 0; got < 4; got += peer.get(&answer, 4)) {
        }
        peer.close();
        return answer == id ? 0 : 1;
    }
    int connected = 0; // role "rounds": an acceptor that is destroyed at once may be gone too early
    for (int round = 0; role == "rounds" && round < number; ++round)
        if (ShmQueue *queue = ShmQueueConnect(name.c_str()); queue != nullptr && ShmQueueDestroy(queue) == SHMQUEUE_OK)
            ++connected;
    if (role == "rounds")
        return connected >= number / 2 ? 0 : 1;
    ShmQueue *queue = ShmQueueConnect(name.c_str());
    if (queue == nullptr)
        return 2;
    if (role == "leave") { // sends a word, and ends without a destroy when the other side sleeps
        uint32_t status = sendAll(queue, &id, sizeof id);
        RawPeer look(RawPeer::connector, "QVSShm" + name + "01", 1000);
        for (int i = 0; name == "processes" && i < 1000 && (look.word(look.in() + 28) & 1) == 0; ++i)
            Sleep(10);
        return static_cast<int>(status);
    }
    while (role == "flood") // until it is terminated
        sendAll(queue, bytes.data(), block);
    if (role == "close") { // destroys while the other side sleeps
        Sleep(300);
        return int(ShmQueueDestroy(queue));
    }
    uint32_t answer = 0; // role "block": sends its number and its block, and reads the number back
    if (sendAll(queue, &id, sizeof id) != SHMQUEUE_OK || sendAll(queue, bytes.data(), block) != SHMQUEUE_OK ||
        receiveAll(queue, &answer, sizeof answer) != SHMQUEUE_OK || answer != id)
        return 4;
    return int(ShmQueueDestroy(queue));
}

std::string line(const char *role, int number = 0)
{
    return std::string(role) + " processes " + std::to_string(number);
}

/// A listener called "processes"; checks at the end that nothing was left behind.
class ShmProcess : public testing::Test {
protected:
    /// The first child and the first watcher leave the system some handles of its own.
    static void SetUpTestSuite()
    {
        ShmQueue *listener = ShmQueueListen("processes");
        Child child(line("rounds", 1));
        EXPECT_EQ(ShmQueueDestroy(acceptNext(listener, 1, 1)), SHMQUEUE_OK);
        EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
        child.wait();
        Footprint::now();
    }

    ShmProcess() : before(Footprint::now()), listener(ShmQueueListen("processes")) {}
    ~ShmProcess() override
    {
        EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
        EXPECT_EQ(Footprint::now(), before);
    }
    Footprint before;
    ShmQueue *listener;
};

TEST_F(ShmProcess, TellsOfAClientThatEndedWithoutDestroying)
{
    ShmQueue *connection = nullptr;
    {
        Child child(line("leave", 77));
        connection = acceptNext(listener, 1, 1000);
        ASSERT_NE(connection, nullptr);
        EXPECT_EQ(ShmQueueEventSelect(connection, SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
        uint32_t word = 0, ready = 0;
        EXPECT_EQ(receiveAll(connection, &word, sizeof word), SHMQUEUE_OK);
        EXPECT_EQ(word, 77u);
        uint32_t flags = SHMQUEUE_SELECT_READ;
        EXPECT_EQ(ShmQueueSelect(connection, &flags, patience, &ready), SHMQUEUE_OK);
        EXPECT_EQ(ready, 1u); // "readable", to be noticed
        EXPECT_EQ(ShmQueueRemove(connection, &word, &ready), SHMQUEUE_EMPTY);
        EXPECT_EQ(WaitForSingleObject(ShmQueueGetEvent(connection), patience), WAIT_OBJECT_0);
        EXPECT_EQ(ShmQueueEnumEvents(connection, &word), SHMQUEUE_OK);
        EXPECT_EQ(word, 32u);
        EXPECT_EQ(child.wait(), 0u);
    }
    EXPECT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK);
}

TEST_F(ShmProcess, SurvivesAClientThatIsTerminatedInATransfer)
{
    for (int round = 0; round < 12; ++round) {
        std::vector<uint8_t> buffer(block);
        Child child(line("flood", 5));
        ShmQueue *connection = acceptNext(listener, 1, round % 2 == 0 ? 1000 : 1 << 20);
        ASSERT_NE(connection, nullptr);
        EXPECT_EQ(ShmQueueEventSelect(connection, SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
        std::vector<uint8_t> expected = bytesOf(5, block);
        EXPECT_EQ(receiveAll(connection, buffer.data(), block), SHMQUEUE_OK);
        EXPECT_EQ(buffer, expected);
        child.kill();
        // Whatever it was doing: the event is raised, or the next calls tell.
        uint32_t status = SHMQUEUE_OK;
        for (uint32_t length = block; status == SHMQUEUE_OK; length = block)
            status = ShmQueueRemove(connection, buffer.data(), &length);
        EXPECT_TRUE(status == SHMQUEUE_BAD_HANDLE || status == SHMQUEUE_CLOSED ||
                    WaitForSingleObject(ShmQueueGetEvent(connection), patience) == WAIT_OBJECT_0);
        EXPECT_EQ(destroyAfterDeath(connection), SHMQUEUE_OK);
    }
}

/// A client that dies with the mutex in its hands, at its worst: this side sleeps without limit.
TEST_F(ShmProcess, WakesWhenTheClientDiesInsideACall)
{
    struct Client {
        RawPeer peer{RawPeer::connector, "QVSShmprocesses01", 64};
        PROCESS_INFORMATION process{};
        static DWORD WINAPI holdAndDie(void *context)
        {
            auto *client = static_cast<Client *>(context);
            Sleep(300);
            DWORD outcome = WaitForSingleObject(client->peer.mutex(), patience);
            TerminateProcess(client->process.hProcess, 0);
            return outcome;
        }
    };
    RawPeer init(RawPeer::requester, "QVSShmInitprocesses", 256);
    DWORD request = 0;
    init.put(&request, 4);
    ShmQueue *connection = ShmQueueAccept(listener, 1, 64);
    auto client = std::make_unique<Client>();
    STARTUPINFOA startup{};
    char command[] = "cmd /c pause";
    ASSERT_TRUE(CreateProcessA(nullptr, command, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                               &client->process));
    client->peer.announce(client->process.dwProcessId);
    HANDLE thread = CreateThread(nullptr, 0, Client::holdAndDie, client.get(), 0, nullptr);
    uint32_t status = SHMQUEUE_OK, ready = 0;
    for (uint32_t flags = SHMQUEUE_SELECT_READ; status == SHMQUEUE_OK; flags = SHMQUEUE_SELECT_READ)
        status = ShmQueueSelect(connection, &flags, INFINITE, &ready);
    EXPECT_EQ(status, SHMQUEUE_BAD_HANDLE);
    WaitForSingleObject(thread, patience);
    for (HANDLE handle : {thread, client->process.hThread, client->process.hProcess})
        CloseHandle(handle);
    EXPECT_EQ(destroyAfterDeath(connection), SHMQUEUE_OK);
}

TEST_F(ShmProcess, WakesASleeperWhenThePeerDestroys)
{
    Child child(line("close"));
    ShmQueue *connection = acceptNext(listener, 1, 64);
    uint32_t flags = SHMQUEUE_SELECT_READ, ready = 0, word = 0, length = sizeof word;
    EXPECT_EQ(ShmQueueSelect(connection, &flags, patience, &ready), SHMQUEUE_OK);
    EXPECT_EQ(ready, 1u);
    EXPECT_EQ(ShmQueueRemove(connection, &word, &length), SHMQUEUE_CLOSED);
    EXPECT_EQ(child.wait(), 0u);
    EXPECT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK);
}

TEST_F(ShmProcess, ServesTwentyClientsAtOnceAndASeparatelyWrittenOne)
{
    constexpr int clients = 21;
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 1; i < clients; ++i)
        children.push_back(std::make_unique<Child>(line("block", i)));
    std::vector<ShmQueue *> connections;
    for (uint32_t number = 1; number < clients; ++number)
        connections.push_back(acceptNext(listener, number, 5000));
    uint32_t seen = 0;
    for (ShmQueue *connection : connections) {
        uint32_t id = 0;
        std::vector<uint8_t> bytes(block);
        ASSERT_EQ(receiveAll(connection, &id, sizeof id), SHMQUEUE_OK);
        ASSERT_EQ(receiveAll(connection, bytes.data(), block), SHMQUEUE_OK);
        EXPECT_EQ(bytes, bytesOf(id, block));
        EXPECT_EQ(sendAll(connection, &id, sizeof id), SHMQUEUE_OK);
        seen |= 1u << id;
    }
    EXPECT_EQ(seen, (1u << clients) - 2); // each its own
    for (auto &child : children)
        EXPECT_EQ(child->wait(), 0u);
    for (ShmQueue *connection : connections)
        EXPECT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK);

    Child raw(line("raw", 99));
    ShmQueue *connection = acceptNext(listener, 9, 777);
    std::vector<uint8_t> bytes(block);
    uint32_t id = 99;
    EXPECT_EQ(receiveAll(connection, bytes.data(), block), SHMQUEUE_OK);
    EXPECT_EQ(bytes, bytesOf(id, block));
    EXPECT_EQ(sendAll(connection, &id, sizeof id), SHMQUEUE_OK);
    EXPECT_EQ(raw.wait(), 0u);
    EXPECT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK);
}

TEST_F(ShmProcess, LeaksNothingInTwoHundredRounds)
{
    Child child(line("rounds", 200));
    for (uint32_t round = 0; round < 200; ++round) {
        ShmQueue *connection = acceptNext(listener, round % 3, 4096);
        ASSERT_NE(connection, nullptr) << round;
        if (round % 2 == 0)
            sleepUntil(connection, SHMQUEUE_SELECT_READ);
        ASSERT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK);
    }
    EXPECT_EQ(child.wait(), 0u);
}

/// A listener that is destroyed does not leave its waiting clients asleep.
TEST(ShmConnect, ReturnsWhenTheListenerIsDestroyed)
{
    ShmQueue *listener = ShmQueueListen("processes");
    Child child(line("block"));
    EXPECT_TRUE(sleepUntil(listener, SHMQUEUE_SELECT_READ));
    EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
    EXPECT_EQ(child.wait(), 2u);
}

/// A file for the time of a test, open for a child to inherit.
struct TemporaryFile {
    TemporaryFile()
    {
        char folder[MAX_PATH], path[MAX_PATH];
        GetTempPathA(MAX_PATH, folder);
        GetTempFileNameA(folder, "shm", 0, path);
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        handle = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, &inherited, CREATE_ALWAYS,
                             FILE_FLAG_DELETE_ON_CLOSE | FILE_ATTRIBUTE_TEMPORARY, nullptr);
    }
    ~TemporaryFile() { CloseHandle(handle); }
    void rewind() { SetFilePointer(handle, 0, nullptr, FILE_BEGIN); }
    HANDLE handle;
};

class Shmcat : public testing::Test {
protected:
    void SetUp() override
    {
        if (GetFileAttributesA(program().c_str()) == INVALID_FILE_ATTRIBUTES)
            GTEST_SKIP() << "the samples were not built";
    }
    static std::string program()
    {
        char path[MAX_PATH];
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        return std::string(path).substr(0, std::string(path).rfind('\\')) + "\\shmcat.exe";
    }
    DWORD run(const std::string &arguments)
    {
        return Child(program() + arguments, sent.handle, got.handle, errors.handle).wait();
    }
    std::string errorText()
    {
        char text[500] = "";
        DWORD length = 0;
        errors.rewind();
        ReadFile(errors.handle, text, sizeof text - 1, &length, nullptr);
        return text;
    }
    TemporaryFile sent, got, errors;
};

TEST_F(Shmcat, SaysWhatWentWrong)
{
    EXPECT_EQ(run(" nobody"), 3u);
    EXPECT_THAT(errorText(), testing::HasSubstr("nobody listens on nobody"));
    EXPECT_EQ(run(" -s 1X -l taken"), 2u);
    ShmQueue *taken = ShmQueueListen("taken");
    EXPECT_EQ(run(" -l taken"), 3u);
    EXPECT_EQ(ShmQueueDestroy(taken), SHMQUEUE_OK);
    Child listener(program() + " -l broken", nullptr, got.handle, errors.handle);
    DWORD left = 2; // while the listener is not there yet
    for (int i = 0; left == 2 && i < 100; ++i)
        left = Child("leave broken 1").wait();
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(listener.wait(), 1u);
    EXPECT_THAT(errorText(), testing::HasSubstr("client 1 ended before everything was moved"));
}

TEST_F(Shmcat, Moves256MiB)
{
    constexpr int blocks = 256;
    std::vector<uint8_t> bytes(1 << 20);
    DWORD length = 0;
    Bytes written(256), read(256);
    for (int i = 0; i < blocks; ++i) {
        written.fill(bytes.data(), uint32_t(bytes.size()));
        WriteFile(sent.handle, bytes.data(), DWORD(bytes.size()), &length, nullptr);
    }
    sent.rewind();
    Child listener(program() + " -l transfer", nullptr, got.handle, errors.handle);
    for (int i = 0; run(" transfer") == 3 && i < 100; ++i) // the listener is not there yet
        Sleep(20);
    EXPECT_EQ(listener.wait(), 0u) << errorText();
    got.rewind();
    for (int i = 0; i < blocks; ++i) {
        ASSERT_TRUE(ReadFile(got.handle, bytes.data(), DWORD(bytes.size()), &length, nullptr));
        ASSERT_TRUE(length == bytes.size() && read.match(bytes.data(), length)) << i;
    }
    EXPECT_TRUE(ReadFile(got.handle, bytes.data(), 1, &length, nullptr) && length == 0);
}

} // namespace

int main(int argc, char **argv)
{
    startWatchdog(argc == 5 ? 60 : 300);
    if (argc == 5 && std::string(argv[1]) == "--role")
        return play(argv[2], argv[3], std::atoi(argv[4]));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

#include "tests/ipc/processes.h"

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
int play(const std::string &role, const std::string &name, uint32_t number)
{
    std::vector<uint8_t> bytes = bytesOf(number, block);
    uint32_t connected = 0, answer = 0;
    for (uint32_t round = 0; role == "rounds" && round < number; ++round)
        if (ShmQueue *queue = ShmQueueConnect(name.c_str()); queue != nullptr && ShmQueueDestroy(queue) == SHMQUEUE_OK)
            ++connected;
    if (role == "rounds") // an acceptor that is destroyed at once may be gone too early
        return connected >= number / 2 ? 0 : 1;
    ShmQueue *queue = ShmQueueConnect(name.c_str());
    if (queue == nullptr)
        return 2;
    while (role == "flood") // until it is terminated
        sendAll(queue, bytes.data(), block);
    if (sendAll(queue, &number, sizeof number) != SHMQUEUE_OK)
        return 3;
    if (role == "hold" || role == "leave") { // ends without a destroy while the acceptor sleeps
        HANDLE segment = OpenFileMappingA(FILE_MAP_WRITE, FALSE, "QVSShmprocesses01");
        auto *acceptorsRing = static_cast<volatile DWORD *>(MapViewOfFile(segment, FILE_MAP_WRITE, 0, 0, 0)) + 1;
        while ((acceptorsRing[7] & 1) == 0)
            Sleep(10);
    }
    if (role == "hold")
        WaitForSingleObject(OpenMutexA(SYNCHRONIZE, FALSE, "QVSShmprocesses01Mutex"), patience);
    if (role != "block")
        ExitProcess(0);
    if (sendAll(queue, bytes.data(), block) != SHMQUEUE_OK ||
        receiveAll(queue, &answer, sizeof answer) != SHMQUEUE_OK || answer != number)
        return 4;
    return int(ShmQueueDestroy(queue));
}

std::string line(const char *role, int number = 0)
{
    return std::string(role) + " processes " + std::to_string(number);
}

/// A listener called "processes"; checks at the end that nothing was left behind.
struct ShmProcess : testing::Test {
    /// The first child and the first watcher leave the system some handles of its own.
    static void SetUpTestSuite()
    {
        ShmQueue *listener = ShmQueueListen("processes");
        Child child(line("rounds", 1));
        EXPECT_EQ(ShmQueueDestroy(acceptNext(listener, 1, 1)), SHMQUEUE_OK);
        EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
        child.wait();
        Footprint();
    }
    ~ShmProcess() override
    {
        EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
        EXPECT_TRUE(before.isBack());
    }
    Footprint before;
    ShmQueue *listener = ShmQueueListen("processes");
};

TEST_F(ShmProcess, TellsOfAClientThatEndedWithoutDestroying)
{
    for (bool holdsTheMutex : {false, true}) {
        Child child(line(holdsTheMutex ? "hold" : "leave", 77));
        ShmQueue *connection = acceptNext(listener, 1, 1000);
        uint32_t word = 0, flags = SHMQUEUE_SELECT_READ, ready = 0;
        EXPECT_EQ(ShmQueueEventSelect(connection, SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
        EXPECT_EQ(receiveAll(connection, &word, sizeof word), SHMQUEUE_OK);
        EXPECT_EQ(word, 77u);
        uint32_t status = SHMQUEUE_OK;
        while (status == SHMQUEUE_OK && ready == 0)
            status = ShmQueueSelect(connection, &(flags = SHMQUEUE_SELECT_READ), INFINITE, &ready);
        EXPECT_EQ(status, holdsTheMutex ? SHMQUEUE_BAD_HANDLE : SHMQUEUE_OK);
        EXPECT_EQ(ShmQueueRemove(connection, &word, &(ready = 1)), SHMQUEUE_EMPTY);
        EXPECT_EQ(WaitForSingleObject(ShmQueueGetEvent(connection), patience), WAIT_OBJECT_0);
        EXPECT_EQ(ShmQueueEnumEvents(connection, &word), SHMQUEUE_OK);
        EXPECT_EQ(word, 32u);
        EXPECT_EQ(destroyAfterDeath(connection), SHMQUEUE_OK);
    }
}

TEST_F(ShmProcess, SurvivesAClientThatIsTerminatedInATransfer)
{
    for (uint32_t round = 0; round < 6; ++round) {
        std::vector<uint8_t> buffer(block);
        Child child(line("flood", 5));
        ShmQueue *connection = acceptNext(listener, 1, round % 2 == 0 ? 1000 : 1 << 20);
        EXPECT_EQ(ShmQueueEventSelect(connection, SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
        EXPECT_EQ(receiveAll(connection, buffer.data(), block), SHMQUEUE_OK);
        EXPECT_EQ(buffer, bytesOf(5, block));
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

TEST_F(ShmProcess, ServesTwentyClientsAtOnce)
{
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < 20; ++i)
        children.push_back(std::make_unique<Child>(line("block", i)));
    std::vector<ShmQueue *> connections;
    for (uint32_t number = 0; number < 20; ++number)
        connections.push_back(acceptNext(listener, number, 5000));
    uint32_t seen = 0, id = 0;
    for (ShmQueue *connection : connections) {
        std::vector<uint8_t> bytes(block);
        ASSERT_EQ(receiveAll(connection, &id, sizeof id), SHMQUEUE_OK);
        ASSERT_EQ(receiveAll(connection, bytes.data(), block), SHMQUEUE_OK);
        EXPECT_EQ(bytes, bytesOf(id, block));
        EXPECT_EQ(sendAll(connection, &id, sizeof id), SHMQUEUE_OK);
        seen |= 1u << id;
    }
    EXPECT_EQ(seen, (1u << 20) - 1); // each its own
    for (auto &child : children)
        EXPECT_EQ(child->wait(), 0u);
    for (ShmQueue *connection : connections)
        EXPECT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK);
}

TEST_F(ShmProcess, LeaksNothingInTwoHundredRounds)
{
    Child child(line("rounds", 200));
    for (uint32_t round = 0, word = 0, length = 4; round < 200; ++round) {
        ShmQueue *connection = acceptNext(listener, round % 3, 4096);
        if (round % 2 == 0) { // the client destroys first
            EXPECT_TRUE(sleepUntil(connection, SHMQUEUE_SELECT_READ));
            EXPECT_EQ(ShmQueueRemove(connection, &word, &(length = 4)), SHMQUEUE_CLOSED);
        }
        ASSERT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK) << round;
    }
    EXPECT_EQ(child.wait(), 0u);
}

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

struct Shmcat : testing::Test {
    void SetUp() override
    {
        if (GetFileAttributesA(program.c_str()) == INVALID_FILE_ATTRIBUTES)
            GTEST_SKIP() << "the samples were not built";
    }
    DWORD run(const std::string &arguments)
    {
        return Child(program + arguments, sent.handle, got.handle, errors.handle).wait(5 * patience);
    }
    std::string errorText()
    {
        char text[500] = "";
        DWORD length = 0;
        errors.rewind();
        ReadFile(errors.handle, text, sizeof text - 1, &length, nullptr);
        return text;
    }
    std::string program = ownProgram().substr(0, ownProgram().rfind('\\')) + "\\shmcat.exe";
    TemporaryFile sent, got, errors;
};

TEST_F(Shmcat, SaysWhatWentWrong)
{
    EXPECT_EQ(run(" nobody"), 3u);
    EXPECT_THAT(errorText(), testing::HasSubstr("nobody listens on nobody"));
    Child listener(program + " -l broken", nullptr, got.handle, errors.handle);
    DWORD left = 2; // while the listener is not there yet
    for (int i = 0; left == 2 && i < 100; ++i)
        left = Child("quit broken 1").wait();
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(listener.wait(), 1u);
    EXPECT_THAT(errorText(), testing::HasSubstr("client 1 ended before everything was moved"));
}

TEST_F(Shmcat, Moves256MiB)
{
    std::vector<uint8_t> bytes(1 << 20);
    DWORD length = 0;
    Bytes written(256), read(256);
    for (int i = 0; i < 256; ++i) {
        written.fill(bytes.data(), uint32_t(bytes.size()));
        WriteFile(sent.handle, bytes.data(), DWORD(bytes.size()), &length, nullptr);
    }
    sent.rewind();
    Child listener(program + " -l transfer", nullptr, got.handle, errors.handle);
    for (int i = 0; run(" transfer") == 3 && i < 100; ++i) // the listener is not there yet
        Sleep(20);
    EXPECT_EQ(listener.wait(), 0u) << errorText();
    got.rewind();
    for (int i = 0; i < 256; ++i) {
        ASSERT_TRUE(ReadFile(got.handle, bytes.data(), DWORD(bytes.size()), &length, nullptr));
        ASSERT_TRUE(length == bytes.size() && read.match(bytes.data(), length)) << i;
    }
    EXPECT_TRUE(ReadFile(got.handle, bytes.data(), 1, &length, nullptr) && length == 0);
}

} // namespace

int main(int argc, char **argv)
{
    startWatchdog(argc == 5 ? 200 : 580);
    if (argc == 5 && std::string(argv[1]) == "--role")
        return play(argv[2], argv[3], static_cast<uint32_t>(std::atoi(argv[4])));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

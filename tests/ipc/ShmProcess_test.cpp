#include "tests/ipc/processes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using namespace ipc_test;

namespace {

constexpr uint32_t block = 64 * 1024;
constexpr uint32_t soakRing = 100003;
constexpr uint32_t wrongBytes = 99; ///< a status beyond those of the library

/// One end of a connection: sends the stream of one seed and expects the stream of another.
struct End {
    ShmQueue *queue;
    Bytes out, in;
    std::mt19937 random{out.state};
    uint64_t sent = 0, received = 0;
    bool isWrong = queue == nullptr;
    std::vector<char> buffer = std::vector<char>(2 * soakRing);

    /// Removes, adds, and sleeps if neither was possible; FULL and EMPTY are as good as OK.
    uint32_t step(uint32_t bytesToSend = 2 * soakRing)
    {
        uint32_t part = 1 + random() % (2 * soakRing), flags = SHMQUEUE_SELECT_READ, ready = 0;
        uint32_t removed = ShmQueueRemove(queue, buffer.data(), &part), added = SHMQUEUE_FULL;
        isWrong = isWrong || (removed == SHMQUEUE_OK && !in.match(buffer.data(), part));
        received += removed == SHMQUEUE_OK ? part : 0;
        if (bytesToSend > 0) {
            part = bytesToSend;
            flags = SHMQUEUE_SELECT_READ | SHMQUEUE_SELECT_WRITE;
            Bytes(out).fill(buffer.data(), part);
            added = ShmQueueAdd(queue, buffer.data(), &part);
        }
        if (added == SHMQUEUE_OK) {
            out.fill(buffer.data(), part);
            sent += part;
        }
        if (removed == SHMQUEUE_EMPTY && added == SHMQUEUE_FULL)
            return std::max(removed, ShmQueueSelect(queue, &flags, patience, &ready));
        return removed > SHMQUEUE_EMPTY ? removed : added;
    }
    /// Until so many bytes have been sent and received in all.
    uint32_t exchange(uint64_t toSend, uint64_t toReceive)
    {
        uint32_t status = SHMQUEUE_OK;
        while (status < SHMQUEUE_CLOSED && !isWrong && (sent < toSend || received < toReceive))
            status = step(static_cast<uint32_t>(std::min<uint64_t>(toSend - sent, block)));
        return isWrong ? wrongBytes : status;
    }
};

/// Connects and destroys, again and again. An acceptor that is destroyed at once may be gone too early.
int connectRepeatedly(const char *name, uint32_t rounds)
{
    uint32_t connected = 0;
    for (uint32_t round = 0; round < rounds; ++round)
        connected += ShmQueueDestroy(ShmQueueConnect(name)) == SHMQUEUE_OK ? 1 : 0;
    return connected >= rounds / 2 ? 0 : 1;
}

/// What a child does; its exit code is 0 if all went well.
int play(const std::string &role, const char *name, uint32_t number)
{
    if (role == "rounds")
        return connectRepeatedly(name, number);
    End end{.queue = ShmQueueConnect(name), .out{2 * number + 1}, .in{2 * number}};
    if (end.queue == nullptr)
        return 2;
    uint32_t status = SHMQUEUE_OK;
    while (role == "soak" && status < SHMQUEUE_CLOSED) // until it is terminated or sees the end
        status = end.step(1 + end.random() % (2 * soakRing));
    if (role == "soak")
        return end.isWrong || status != SHMQUEUE_CLOSED ? 4 : static_cast<int>(ShmQueueDestroy(end.queue));
    if (role == "block")
        return end.exchange(block, block) >= SHMQUEUE_CLOSED ? 4 : static_cast<int>(ShmQueueDestroy(end.queue));

    // The others end without a destroy while the acceptor sleeps.
    auto *acceptorsRing = static_cast<volatile DWORD *>(
        MapViewOfFile(OpenFileMappingA(FILE_MAP_WRITE, FALSE, "QVSShmprocesses01"), FILE_MAP_WRITE, 0, 0, 0));
    while ((acceptorsRing[1 + 7] & 1) == 0)
        Sleep(10);
    if (role == "hold")
        WaitForSingleObject(OpenMutexA(SYNCHRONIZE, FALSE, "QVSShmprocesses01Mutex"), patience);
    ExitProcess(0);
}

std::string line(const char *role, uint32_t number = 0)
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
    End accept(uint32_t number, uint32_t size, uint32_t seed)
    {
        return {.queue = acceptNext(listener, number, size), .out{2 * seed}, .in{2 * seed + 1}};
    }
    Footprint before;
    ShmQueue *listener = ShmQueueListen("processes");
};

TEST_F(ShmProcess, TellsOfAClientThatEndedWithoutDestroying)
{
    for (bool holdsTheMutex : {false, true}) {
        Child child(line(holdsTheMutex ? "hold" : "leave"));
        ShmQueue *connection = acceptNext(listener, 1, 1000);
        uint32_t word = 0, flags = 0, ready = 0, status = SHMQUEUE_OK;
        EXPECT_EQ(ShmQueueEventSelect(connection, SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
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

TEST_F(ShmProcess, ServesTwentyClientsAtOnce)
{
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 0; i < 20; ++i)
        children.push_back(std::make_unique<Child>(line("block", 7)));
    std::vector<End> ends;
    for (uint32_t number = 0; number < 20; ++number)
        ends.push_back(accept(number, 5000, 7));
    for (End &end : ends) {
        EXPECT_LT(end.exchange(block, block), SHMQUEUE_CLOSED);
        EXPECT_EQ(ShmQueueDestroy(end.queue), SHMQUEUE_OK);
    }
    for (auto &child : children)
        EXPECT_EQ(child->wait(), 0u);
}

TEST_F(ShmProcess, LeaksNothingInTwoHundredRounds)
{
    Child child(line("rounds", 200));
    for (uint32_t round = 0, word = 0, length = 4; round < 200; ++round) {
        ShmQueue *connection = acceptNext(listener, round % 3, 4096);
        if (round % 2 == 0) { // the client destroys first
            EXPECT_TRUE(sleepUntilReadable(connection));
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
    EXPECT_TRUE(sleepUntilReadable(listener));
    EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
    EXPECT_EQ(child.wait(), 2u);
}

/// Both directions of several connections at once, random sizes, every byte checked, a peer terminated in
/// the middle of a transfer or dismissed, and replaced, again and again. script/soak lets it run for longer.
TEST_F(ShmProcess, SoaksAmidKills)
{
    struct Peer {
        Child child;
        End end;
    };
    std::unique_ptr<Peer> peers[4];
    uint32_t number = 0, kills = 0, dismissals = 0;
    double bytes = 0;
    auto dismiss = [&](Peer &peer, bool isKilled) {
        uint32_t status = SHMQUEUE_OK, moved = peer.end.exchange(peer.end.sent + block, peer.end.received + block);
        EXPECT_LT(moved, SHMQUEUE_CLOSED);
        if (isKilled)
            peer.child.kill();
        // Whatever it was doing: the event is raised, or the next calls tell.
        for (uint32_t length = soakRing; isKilled && status < SHMQUEUE_EMPTY; length = soakRing)
            status = ShmQueueRemove(peer.end.queue, peer.end.buffer.data(), &length);
        EXPECT_TRUE(!isKilled || status >= SHMQUEUE_CLOSED ||
                    WaitForSingleObject(ShmQueueGetEvent(peer.end.queue), patience) == WAIT_OBJECT_0);
        EXPECT_EQ(destroyAfterDeath(peer.end.queue), SHMQUEUE_OK);
        EXPECT_TRUE(isKilled || peer.child.wait() == 0) << "a peer received wrong bytes, or did not see the end";
        bytes += static_cast<double>(peer.end.sent + peer.end.received);
        ++(isKilled ? kills : dismissals);
    };
    const char *seconds = std::getenv("GENERAL_SOAK_SECONDS");
    DWORD duration = seconds != nullptr ? 1000 * std::strtoul(seconds, nullptr, 10) : 3000;
    DWORD pause = std::min<DWORD>(1000, duration / 10), start = GetTickCount(), replaced = start - pause;
    for (; GetTickCount() - start < duration; replaced = GetTickCount()) {
        auto &peer = peers[++number % 4];
        if (peer != nullptr)
            dismiss(*peer, number % 3 != 0);
        peer.reset(new Peer{.child = Child(line("soak", number)), .end = accept(number, soakRing, number)});
        ShmQueueEventSelect(peer->end.queue, SHMQUEUE_EVENT_CLOSE);
        while (GetTickCount() - replaced < pause)
            for (auto &each : peers)
                EXPECT_TRUE(each == nullptr || each->end.step(1 + each->end.random() % (2 * soakRing)) < SHMQUEUE_CLOSED);
    }
    for (auto &peer : peers)
        if (peer != nullptr)
            dismiss(*peer, false);
    std::printf("moved %.1f MiB, survived %u kills and %u dismissals\n", bytes / (1 << 20), kills, dismissals);
}

} // namespace

int main(int argc, char **argv)
{
    bool isChild = argc == 5 && std::string(argv[1]) == "--role", isSoak = std::getenv("GENERAL_SOAK_SECONDS");
    std::thread([=] {
        Sleep(isSoak ? 36000000 : isChild ? 200000 : 580000);
        std::fprintf(stderr, "the watchdog ends this process\n");
        ExitProcess(99);
    }).detach();
    if (isChild)
        return play(argv[2], argv[3], static_cast<uint32_t>(std::atoi(argv[4])));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

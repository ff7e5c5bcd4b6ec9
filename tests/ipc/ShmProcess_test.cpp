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

constexpr uint32_t mostAtOnce = 200006; ///< bytes that an end tries to move in one call

/// One end of a connection: sends the stream of one seed and expects the stream of another.
struct End {
    ShmQueue *queue;
    Bytes out, in;
    std::mt19937 random{out.state};
    uint64_t received = 0;
    bool isWrong = queue == nullptr;
    std::vector<char> buffer = std::vector<char>(mostAtOnce);

    /// Removes, adds, and sleeps if neither was possible; the connection goes on unless it is CLOSED or worse.
    uint32_t step()
    {
        uint32_t part = 1 + random() % mostAtOnce, flags = SHMQUEUE_SELECT_READ | SHMQUEUE_SELECT_WRITE, ready = 0;
        uint32_t removed = ShmQueueRemove(queue, buffer.data(), &part);
        isWrong = isWrong || (removed == SHMQUEUE_OK && !in.match(buffer.data(), part));
        received += removed == SHMQUEUE_OK ? part : 0;
        Bytes(out).fill(buffer.data(), part = 1 + random() % mostAtOnce);
        uint32_t added = ShmQueueAdd(queue, buffer.data(), &part);
        if (added == SHMQUEUE_OK)
            out.fill(buffer.data(), part);
        if (removed == SHMQUEUE_EMPTY && added == SHMQUEUE_FULL)
            return ShmQueueSelect(queue, &flags, patience, &ready);
        return std::max(removed, added);
    }
    /// Steps until so many more bytes have arrived; whether they have, and rightly.
    bool receive(uint32_t length)
    {
        uint64_t goal = received + length;
        for (uint32_t status = SHMQUEUE_OK; received < goal && status < SHMQUEUE_CLOSED;)
            status = step();
        return received >= goal && !isWrong;
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
    while (role == "talk" && status < SHMQUEUE_CLOSED)
        status = end.step();
    if (role == "talk")
        return end.isWrong || status != SHMQUEUE_CLOSED ? 4 : static_cast<int>(ShmQueueDestroy(end.queue));

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

/// The first child and the first watcher leave the system some handles of its own.
void settle()
{
    ShmQueue *listener = ShmQueueListen("processes");
    Child child(line("rounds", 1));
    EXPECT_EQ(ShmQueueDestroy(acceptNext(listener, 1, 1)), SHMQUEUE_OK);
    EXPECT_EQ(ShmQueueDestroy(listener), SHMQUEUE_OK);
    child.wait();
    Footprint();
}

/// A listener called "processes"; checks at the end that nothing was left behind.
struct ShmProcess : testing::Test {
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
        uint32_t word = 0, length = 1;
        EXPECT_EQ(ShmQueueEventSelect(connection, SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
        EXPECT_EQ(sleepUntilReadable(connection), holdsTheMutex ? SHMQUEUE_BAD_HANDLE : SHMQUEUE_OK);
        EXPECT_EQ(ShmQueueRemove(connection, &word, &length), SHMQUEUE_EMPTY);
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
        children.push_back(std::make_unique<Child>(line("talk", 7)));
    std::vector<End> ends;
    for (uint32_t number = 0; number < 20; ++number)
        ends.push_back(accept(number, 5000, 7));
    for (End &end : ends) {
        EXPECT_TRUE(end.receive(mostAtOnce));
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
            EXPECT_EQ(sleepUntilReadable(connection), SHMQUEUE_OK);
            EXPECT_EQ(ShmQueueRemove(connection, &word, &(length = 4)), SHMQUEUE_CLOSED);
        }
        ASSERT_EQ(ShmQueueDestroy(connection), SHMQUEUE_OK) << round;
    }
    EXPECT_EQ(child.wait(), 0u);
}

TEST(ShmConnect, ReturnsWhenTheListenerIsDestroyed)
{
    ShmQueue *listener = ShmQueueListen("processes");
    Child child(line("talk"));
    EXPECT_EQ(sleepUntilReadable(listener), SHMQUEUE_OK);
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
        uint32_t status = SHMQUEUE_OK;
        EXPECT_TRUE(peer.end.receive(mostAtOnce));
        if (isKilled)
            peer.child.kill();
        // Whatever it was doing: the event is raised, or the next calls tell.
        for (uint32_t length = mostAtOnce; isKilled && status < SHMQUEUE_EMPTY; length = mostAtOnce)
            status = ShmQueueRemove(peer.end.queue, peer.end.buffer.data(), &length);
        EXPECT_TRUE(!isKilled || status >= SHMQUEUE_CLOSED ||
                    WaitForSingleObject(ShmQueueGetEvent(peer.end.queue), patience) == WAIT_OBJECT_0);
        EXPECT_EQ(destroyAfterDeath(peer.end.queue), SHMQUEUE_OK);
        EXPECT_TRUE(isKilled || peer.child.wait() == 0) << "a peer received wrong bytes, or did not see the end";
        bytes += static_cast<double>(peer.end.received);
        ++(isKilled ? kills : dismissals);
    };
    const char *seconds = std::getenv("GENERAL_SOAK_SECONDS");
    DWORD duration = seconds != nullptr ? 1000 * std::strtoul(seconds, nullptr, 10) : 3000;
    DWORD pause = std::min<DWORD>(1000, duration / 10), start = GetTickCount(), replaced = start - pause;
    for (; GetTickCount() - start < duration; replaced = GetTickCount()) {
        auto &peer = peers[++number % 4];
        if (peer != nullptr)
            dismiss(*peer, number % 3 != 0);
        peer.reset(new Peer{.child = Child(line("talk", number)), .end = accept(number, mostAtOnce / 2, number)});
        ShmQueueEventSelect(peer->end.queue, SHMQUEUE_EVENT_CLOSE);
        while (GetTickCount() - replaced < pause)
            for (auto &each : peers)
                EXPECT_TRUE(each == nullptr || each->end.step() < SHMQUEUE_CLOSED);
    }
    for (auto &peer : peers)
        if (peer != nullptr)
            dismiss(*peer, false);
    std::printf("received %.1f MiB, survived %u kills and %u dismissals\n", bytes / (1 << 20), kills, dismissals);
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
    settle();
    return RUN_ALL_TESTS();
}

#include "tests/ipc/processes.h"
#include "tests/ipc/raw_peer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

using namespace ipc_test;

namespace {

constexpr uint32_t mostAtOnce = 200006; ///< bytes that an end tries to move in one call

/// One end of a connection: sends the stream of one seed and expects the stream of another.
struct End : Queue {
    End(ShmQueue *queue, uint32_t outSeed, uint32_t inSeed)
        : Queue(queue), out{outSeed}, in{inSeed}, random(outSeed), isWrong(queue == nullptr)
    {
    }
    /// Removes, adds, and sleeps if neither was possible; the connection goes on unless it is CLOSED or worse.
    uint32_t step()
    {
        uint32_t removed = remove(1 + random() % mostAtOnce);
        if (removed == SHMQUEUE_OK) {
            isWrong = bytes != in.next(value) || isWrong;
            received += value;
        }
        uint32_t added = add(Bytes(out).next(1 + random() % mostAtOnce));
        out.next(added == SHMQUEUE_OK ? value : 0);
        return removed == SHMQUEUE_EMPTY && added == SHMQUEUE_FULL ? select(3) : std::max(removed, added);
    }
    /// Steps until so many more bytes have arrived; whether they have, and rightly.
    bool receive(uint32_t length)
    {
        uint64_t goal = received + length;
        while (received < goal && step() < SHMQUEUE_CLOSED) {
        }
        return received >= goal && !isWrong;
    }

    Bytes out, in;
    std::mt19937 random;
    bool isWrong;
    uint64_t received = 0;
};

/// Ends with the mutex held between two stores: of a request, or of taking a reply.
[[noreturn]] void dieInTheHandshake(uint32_t death)
{
    RawPeer peer(RawPeer::requester, "QVSShmInitprocesses", 256);
    if (death >= 3) {
        peer.put("1234");
        WaitForSingleObject(peer.ownEvent, patience);
    }
    WaitForSingleObject(peer.mutex, patience);
    const std::pair<Word, DWORD> stores[] = {{readPos, 0},  {writePos, (peer.out(writePos) + 4) % 256},
                                             {count, 4},    {readPos, peer.in(readPos) + 8},
                                             {writePos, 0}, {count, 0}};
    auto [word, value] = stores[death];
    if (death < 3)
        peer.tell(1, 1 | 8);
    (death < 3 ? peer.out(word) : peer.in(word)) = value;
    ExitProcess(0);
}

/// What a child does; its exit code is 0 if all went well.
int play(const std::string &role, uint32_t number)
{
    uint32_t connected = 0, status = SHMQUEUE_OK;
    if (role == "rounds") {
        for (uint32_t round = 0; round < number; ++round)
            connected += ShmQueueDestroy(ShmQueueConnect("processes")) == SHMQUEUE_OK ? 1 : 0;
        return connected >= number / 2 ? 0 : 1; // an acceptor that is destroyed at once may be gone too early
    }
    if (role == "die")
        dieInTheHandshake(number);
    if (role == "listen") {
        Queue listener(ShmQueueListen("processes")), connection(number == 1 ? listener.accept(1, 1000) : nullptr);
        if (number == 2 && listener.select(SHMQUEUE_SELECT_READ) == SHMQUEUE_OK)
            listener.reset();
        Sleep(patience);
    }
    End end(ShmQueueConnect("processes"), 2 * number + 1, 2 * number);
    if (end == nullptr)
        return 2;
    if (role == "talk") {
        while (status < SHMQUEUE_CLOSED)
            status = end.step();
        return end.isWrong || status != SHMQUEUE_CLOSED ? 4 : static_cast<int>(end.destroy());
    }
    // The others end without a destroy while the acceptor sleeps.
    auto *acceptorsRing = static_cast<volatile DWORD *>(
        MapViewOfFile(OpenFileMappingA(FILE_MAP_WRITE, FALSE, "QVSShmprocesses01"), FILE_MAP_WRITE, 0, 0, 0));
    while ((acceptorsRing[1 + 7] & 1) == 0)
        Sleep(10);
    if (role == "hold")
        WaitForSingleObject(OpenMutexA(SYNCHRONIZE, FALSE, "QVSShmprocesses01Mutex"), patience);
    ExitProcess(0);
}

/// A listener called "processes", and a check at the end that nothing was left behind.
struct ShmProcess : testing::Test {
    Footprint before;
    Queue listener{ShmQueueListen("processes")};
};

TEST_F(ShmProcess, TellsOfAClientThatEndedWithoutDestroying)
{
    for (bool holdsTheMutex : {false, true}) {
        Child child(holdsTheMutex ? "hold" : "leave");
        Queue connection(listener.accept(1, 1000));
        EXPECT_EQ(connection.choose(SHMQUEUE_EVENT_CLOSE), SHMQUEUE_OK);
        EXPECT_EQ(connection.select(SHMQUEUE_SELECT_READ), holdsTheMutex ? SHMQUEUE_BAD_HANDLE : SHMQUEUE_OK);
        EXPECT_EQ(connection.remove(1), SHMQUEUE_EMPTY); // not CLOSED
        EXPECT_TRUE(connection.isTold(patience));
        EXPECT_EQ(connection.events(), SHMQUEUE_OK);
        EXPECT_EQ(connection.value, 32u);
    }
}

TEST_F(ShmProcess, ServesTwentyClientsAtOnce)
{
    std::vector<std::unique_ptr<Child>> children;
    std::vector<End> ends;
    for (uint32_t i = 0; i < 20; ++i)
        children.push_back(std::make_unique<Child>("talk", 7));
    for (uint32_t number = 0; number < 20; ++number)
        ends.emplace_back(listener.accept(number, 5000), 14, 15);
    for (End &end : ends) {
        EXPECT_TRUE(end.receive(mostAtOnce));
        EXPECT_EQ(end.destroy(), SHMQUEUE_OK);
    }
    for (auto &child : children)
        EXPECT_EQ(child->wait(), 0u);
}

TEST_F(ShmProcess, LeaksNothingInTwoHundredRounds)
{
    Child child("rounds", 200);
    for (uint32_t round = 0; round < 200; ++round) {
        Queue connection(listener.accept(round % 3, 4096));
        if (round % 2 == 0) { // the client destroys first
            EXPECT_EQ(connection.select(SHMQUEUE_SELECT_READ), SHMQUEUE_OK);
            EXPECT_EQ(connection.remove(4), SHMQUEUE_CLOSED);
        }
        ASSERT_EQ(connection.destroy(), SHMQUEUE_OK) << round;
    }
    EXPECT_EQ(child.wait(), 0u);
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
    uint32_t number = 0, endings[2] = {};
    double bytes = 0;
    auto dismiss = [&](Peer &peer, bool isKilled) {
        uint32_t status = SHMQUEUE_OK;
        EXPECT_TRUE(peer.end.receive(mostAtOnce));
        if (isKilled)
            peer.child.kill();
        while (isKilled && status < SHMQUEUE_EMPTY)
            status = peer.end.remove(mostAtOnce);
        // Whatever it was doing: the event is raised, or the next calls tell.
        EXPECT_TRUE(!isKilled || status >= SHMQUEUE_CLOSED || peer.end.isTold(patience));
        peer.end.reset();
        EXPECT_TRUE(isKilled || peer.child.wait() == 0) << "a peer received wrong bytes, or did not see the end";
        bytes += static_cast<double>(peer.end.received);
        ++endings[isKilled];
    };
    const char *seconds = std::getenv("GENERAL_SOAK_SECONDS");
    DWORD duration = seconds != nullptr ? 1000 * std::strtoul(seconds, nullptr, 10) : 3000;
    DWORD pause = std::min<DWORD>(1000, duration / 10), start = GetTickCount(), replaced = start - pause;
    for (; GetTickCount() - start < duration; replaced = GetTickCount()) {
        auto &peer = peers[++number % 4];
        if (peer != nullptr)
            dismiss(*peer, number % 3 != 0);
        peer.reset(new Peer{.child = Child("talk", number),
                            .end = {listener.accept(number, mostAtOnce / 2), 2 * number, 2 * number + 1}});
        peer->end.choose(SHMQUEUE_EVENT_CLOSE);
        while (GetTickCount() - replaced < pause)
            for (auto &each : peers)
                EXPECT_TRUE(each == nullptr || each->end.step() < SHMQUEUE_CLOSED);
    }
    for (auto &peer : peers)
        if (peer != nullptr)
            dismiss(*peer, false);
    std::printf("moved %.1f MiB, survived %u kills and %u dismissals\n", bytes / (1 << 20), endings[1], endings[0]);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && std::string(argv[1]) == "--role") {
        std::thread([] { ExitProcess((Sleep(200000), 99)); }).detach(); // no child outlives its test for long
        return play(argv[2], static_cast<uint32_t>(std::atoi(argv[3])));
    }
    testing::InitGoogleTest(&argc, argv);
    Queue listener(
        ShmQueueListen("processes")); // the first child, watcher and thread leave the system handles of its own
    std::thread([] { Sleep(50); }).join();
    Child child("rounds", 1);
    Queue(listener.accept(1, 1)).reset();
    listener.reset();
    child.wait();
    return RUN_ALL_TESTS();
}

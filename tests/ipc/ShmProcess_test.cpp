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

/// What a child does; its exit code is 0 if all went well.
int play(const std::string &role, uint32_t number)
{
    if (role == "listen") {
        Queue listener(ShmQueueListen("processes")), connection(number == 1 ? listener.accept(1, 1000) : nullptr);
        if (number == 2 && listener.select(SHMQUEUE_SELECT_READ) == SHMQUEUE_OK)
            listener.reset();
        Sleep(patience);
    }
    End end(ShmQueueConnect("processes"), 2 * number + 1, 2 * number);
    if (end == nullptr)
        return 2;
    uint32_t status = SHMQUEUE_OK;
    while (status < SHMQUEUE_CLOSED)
        status = end.step();
    return end.isWrong || status != SHMQUEUE_CLOSED ? 4 : static_cast<int>(end.destroy());
}

/// Both directions of several connections at once, random sizes, every byte checked, a peer terminated in
/// the middle of a transfer or dismissed, and replaced, again and again. script/soak lets it run for longer.
TEST(ShmProcess, SoaksAmidKills)
{
    Queue listener(ShmQueueListen("processes"));
    {
        Child first("talk"); // with which the system makes what it makes once
        EXPECT_TRUE(End(listener.accept(0, 1000), 0, 1).receive(1));
    }
    Footprint before;
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
    return RUN_ALL_TESTS();
}

// Both directions of several connections at once, random sizes, every byte checked, a peer killed or
// dismissed and replaced every second.
//
//   ipc_soak [seconds]

#include "tests/ipc/processes.h"

#include <cstdlib>
#include <memory>
#include <random>

using namespace ipc_test;

namespace {

constexpr uint32_t ringSize = 100003;
constexpr const char *name = "soak";

/// One end: sends the stream of one seed and expects the stream of another.
struct End {
    ShmQueue *queue;
    Bytes out, in;
    std::mt19937 random{out.state};
    uint64_t moved = 0;
    bool isWrong = false;
    std::vector<uint8_t> buffer = std::vector<uint8_t>(2 * ringSize);

    /// Removes, adds, and sleeps a little if neither was possible; the status of the remove.
    uint32_t step()
    {
        uint32_t part = 1 + random() % (2 * ringSize), flags = 3;
        uint32_t removed = ShmQueueRemove(queue, buffer.data(), &part);
        isWrong = isWrong || (removed == SHMQUEUE_OK && !in.match(buffer.data(), part));
        moved += removed == SHMQUEUE_OK ? part : 0;
        part = 1 + random() % (2 * ringSize);
        Bytes(out).fill(buffer.data(), part);
        uint32_t added = ShmQueueAdd(queue, buffer.data(), &part);
        if (added == SHMQUEUE_OK)
            out.fill(buffer.data(), part);
        if (removed == SHMQUEUE_EMPTY && added == SHMQUEUE_FULL)
            ShmQueueSelect(queue, &flags, 20, &part);
        return removed;
    }
};

/// The other process: moves bytes until the connection is closed. Exit code 0 if all were right.
int playPeer(uint32_t seed)
{
    End end{.queue = ShmQueueConnect(name), .out{2 * seed + 1}, .in{2 * seed}};
    uint32_t status = SHMQUEUE_OK;
    while (status < SHMQUEUE_CLOSED)
        status = end.step();
    return end.isWrong || status != SHMQUEUE_CLOSED ? 4 : static_cast<int>(ShmQueueDestroy(end.queue));
}

struct Peer {
    Child child;
    End end;
    Peer(ShmQueue *listener, uint32_t number)
        : child("soak " + std::to_string(number) + " 0"), end{.queue = acceptNext(listener, number, ringSize),
                                                              .out{2 * number},
                                                              .in{2 * number + 1}}
    {
        ShmQueueEventSelect(end.queue, SHMQUEUE_EVENT_CLOSE);
    }
};

int soak(DWORD seconds)
{
    int errors = 0, kills = 0, dismissals = 0;
    uint64_t moved = 0;
    uint32_t number = 0;
    ShmQueue *listener = ShmQueueListen(name);
    auto check = [&errors](bool isRight, const char *complaint) {
        errors += isRight ? 0 : 1;
        if (!isRight)
            std::printf("error: %s\n", complaint);
    };
    // Ends a peer in one of two ways; it or this end must see that, with everything right.
    auto end = [&](const std::unique_ptr<Peer> &peer, bool isKilled) {
        uint64_t before = peer->end.moved;
        uint32_t status = SHMQUEUE_OK;
        for (DWORD start = GetTickCount(); peer->end.moved == before && GetTickCount() - start < patience;)
            status = peer->end.step();
        check(peer->end.moved > before && status == SHMQUEUE_OK, "a connection moves nothing any more");
        if (isKilled)
            peer->child.kill();
        while (isKilled && (status = peer->end.step()) == SHMQUEUE_OK) {
        }
        check(!isKilled || status >= SHMQUEUE_CLOSED ||
                  WaitForSingleObject(ShmQueueGetEvent(peer->end.queue), patience) == WAIT_OBJECT_0,
              "the death of a peer was not seen");
        check(destroyAfterDeath(peer->end.queue) == SHMQUEUE_OK, "a destroy failed");
        check(isKilled || peer->child.wait() == 0, "a peer received wrong bytes, or did not see the end");
        check(!peer->end.isWrong, "wrong bytes arrived");
        moved += peer->end.moved;
        ++(isKilled ? kills : dismissals);
    };

    end(std::make_unique<Peer>(listener, 0), true); // the first child leaves the system handles of its own
    Footprint before;
    std::unique_ptr<Peer> all[4];
    for (auto &peer : all)
        peer = std::make_unique<Peer>(listener, ++number);
    DWORD start = GetTickCount();
    for (DWORD replaced = start; GetTickCount() - start < seconds * 1000;) {
        for (auto &peer : all)
            peer->end.step();
        if (GetTickCount() - replaced < 1000)
            continue;
        auto &peer = all[++number % 4];
        end(peer, number % 3 != 0);
        peer = std::make_unique<Peer>(listener, number);
        replaced = GetTickCount();
    }
    for (auto &peer : all) {
        end(peer, false);
        peer.reset();
    }
    check(before.isBack(), "handles, views or threads were left behind");
    ShmQueueDestroy(listener);
    std::printf("moved %.1f MiB, survived %d kills and %d dismissals, %d errors\n",
                static_cast<double>(moved) / (1 << 20), kills, dismissals, errors);
    return errors == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 5) // --role soak SEED 0
        return playPeer(static_cast<uint32_t>(std::atoi(argv[3])));
    int seconds = argc == 2 ? std::atoi(argv[1]) : 60;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: ipc_soak [seconds]\n");
        return 2;
    }
    startWatchdog(static_cast<uintptr_t>(seconds) + 120);
    return soak(static_cast<DWORD>(seconds));
}

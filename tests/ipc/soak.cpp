// Both directions of several connections at once, random sizes, every byte checked, a peer killed or
// dismissed and replaced every second.
//
//   ipc_soak [seconds]

#include "tests/ipc/processes.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <utility>

using namespace ipc_test;

namespace {

constexpr uint32_t ringSize = 100003;
constexpr uint32_t peers = 4;
constexpr const char *name = "soak";

/// One end: sends the stream of one seed and expects the stream of another.
struct End {
    ShmQueue *queue;
    Bytes out, in;
    std::mt19937 random;
    uint64_t moved = 0;
    bool isWrong = false;
    std::vector<uint8_t> buffer = std::vector<uint8_t>(2 * ringSize);

    End(ShmQueue *connection, uint32_t sent, uint32_t expected)
        : queue(connection), out(sent), in(expected), random(sent)
    {
    }
    uint32_t length() { return 1 + random() % (2 * ringSize); }
    uint32_t add()
    {
        uint32_t part = length();
        Bytes(out).fill(buffer.data(), part);
        uint32_t status = ShmQueueAdd(queue, buffer.data(), &part);
        if (status == SHMQUEUE_OK)
            out.fill(buffer.data(), part);
        return status;
    }
    uint32_t remove()
    {
        uint32_t part = length();
        uint32_t status = ShmQueueRemove(queue, buffer.data(), &part);
        if (status == SHMQUEUE_OK) {
            isWrong = !in.match(buffer.data(), part) || isWrong;
            moved += part;
        }
        return status;
    }
};

/// The other process: moves bytes until the connection is closed. Exit code 0 if all were right.
int playPeer(uint32_t seed)
{
    ShmQueue *queue = ShmQueueConnect(name);
    if (queue == nullptr)
        return 2;
    End end(queue, 2 * seed + 1, 2 * seed);
    uint32_t removed = SHMQUEUE_OK, added = SHMQUEUE_OK;
    while (removed != SHMQUEUE_CLOSED && removed != SHMQUEUE_BAD_HANDLE && !end.isWrong) {
        removed = end.remove();
        added = end.add();
        if (removed == SHMQUEUE_EMPTY && added == SHMQUEUE_FULL && !sleepUntil(queue, 3))
            return 3;
    }
    if (end.isWrong || removed != SHMQUEUE_CLOSED)
        return 4;
    return static_cast<int>(ShmQueueDestroy(queue));
}

struct Peer {
    uint32_t seed;
    Child child;
    End end;
    uint64_t movedBefore = 0; ///< at the last look at its progress
    bool isGone = false;

    Peer(ShmQueue *listener, uint32_t number)
        : seed(number), child("soak " + std::to_string(number) + " 0"),
          end(acceptNext(listener, number, ringSize), 2 * number, 2 * number + 1)
    {
        ShmQueueEventSelect(end.queue, SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_WRITE | SHMQUEUE_EVENT_CLOSE);
    }
    ~Peer() { destroyAfterDeath(end.queue); }

    /// Called when the event is set. One remove per enumeration; adds until the ring is full, so that
    /// the next remove of the peer is heard of.
    void serve()
    {
        uint32_t events = 0;
        uint32_t status = ShmQueueEnumEvents(end.queue, &events);
        isGone = isGone || events >= SHMQUEUE_EVENT_CLOSE;
        if (status == SHMQUEUE_OK)
            status = end.remove();
        for (int i = 0; i < 100 && (status == SHMQUEUE_OK || status == SHMQUEUE_EMPTY); ++i)
            status = end.add();
        isGone = isGone || status == SHMQUEUE_CLOSED || status == SHMQUEUE_BAD_HANDLE;
    }
};

class Soak {
public:
    int run(DWORD seconds)
    {
        Peer *warmUp = new Peer(listener_, 0); // the first child leaves the system handles of its own
        delete warmUp;
        Footprint before = Footprint::now();
        DWORD start = GetTickCount(), replaced = start;
        for (auto &peer : peers_)
            peer = std::make_unique<Peer>(listener_, ++lastSeed_);
        while (GetTickCount() - start < seconds * 1000) {
            serveNext();
            if (GetTickCount() - replaced >= 1000) {
                replaceOne();
                replaced = GetTickCount();
            }
        }
        for (auto &peer : peers_)
            retire(peer);
        if (Footprint::now() != before)
            complain("handles, views or threads were left behind");
        std::printf("moved %.1f MiB, survived %d kills and %d dismissals, %d errors\n",
                    static_cast<double>(moved_) / (1 << 20), kills_, dismissals_, errors_);
        ShmQueueDestroy(listener_);
        return errors_ == 0 ? 0 : 1;
    }

private:
    void complain(const char *what)
    {
        ++errors_;
        std::printf("error: %s\n", what);
    }

    void serveNext()
    {
        HANDLE events[peers];
        for (uint32_t i = 0; i < peers; ++i)
            events[i] = ShmQueueGetEvent(peers_[i]->end.queue);
        DWORD ready = WaitForMultipleObjects(peers, events, FALSE, 100);
        if (ready >= peers)
            return;
        for (uint32_t i = ready; i < peers; ++i) // those behind the first get their turn too
            if (WaitForSingleObject(events[i], 0) == WAIT_OBJECT_0)
                peers_[i]->serve();
        for (auto &peer : peers_)
            if (peer->isGone) {
                complain("a peer is gone that nobody killed");
                peer = std::make_unique<Peer>(listener_, ++lastSeed_);
            }
    }

    /// Ends one peer in one of two ways and starts another in its place.
    void replaceOne()
    {
        auto &peer = peers_[random_() % peers];
        for (auto &other : peers_)
            if (GetTickCount() - lastLook_ >= patience &&
                other->end.moved == std::exchange(other->movedBefore, other->end.moved))
                complain("a connection has moved nothing for a long time");
        if (GetTickCount() - lastLook_ >= patience)
            lastLook_ = GetTickCount();
        if (random_() % 3 == 0)
            retire(peer);
        else
            kill(*peer);
        peer = std::make_unique<Peer>(listener_, ++lastSeed_);
        if (peer->end.queue == nullptr)
            complain("a new peer could not be accepted");
    }

    /// Destroys this end; the peer must see it and leave with everything right.
    void retire(std::unique_ptr<Peer> &peer)
    {
        count(*peer);
        if (ShmQueueDestroy(std::exchange(peer->end.queue, nullptr)) != SHMQUEUE_OK)
            complain("a destroy failed");
        if (peer->child.wait() != 0)
            complain("a peer received wrong bytes, or did not see the end");
        peer.reset();
        ++dismissals_;
    }

    /// Kills the peer; this end must see it and clean up.
    void kill(Peer &peer)
    {
        peer.child.kill();
        DWORD start = GetTickCount();
        while (!peer.isGone && GetTickCount() - start < patience)
            if (WaitForSingleObject(ShmQueueGetEvent(peer.end.queue), 100) == WAIT_OBJECT_0)
                peer.serve();
        if (!peer.isGone)
            complain("the death of a peer was not seen");
        count(peer);
        if (destroyAfterDeath(std::exchange(peer.end.queue, nullptr)) != SHMQUEUE_OK)
            complain("a destroy after a kill failed");
        ++kills_;
    }

    void count(const Peer &peer)
    {
        moved_ += peer.end.moved;
        if (peer.end.isWrong)
            complain("wrong bytes arrived");
    }

    ShmQueue *listener_ = ShmQueueListen(name);
    std::array<std::unique_ptr<Peer>, peers> peers_;
    std::mt19937 random_{GetTickCount()};
    uint32_t lastSeed_ = 0;
    uint64_t moved_ = 0;
    int kills_ = 0, dismissals_ = 0, errors_ = 0;
    DWORD lastLook_ = GetTickCount();
};

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
    startWatchdog(seconds + 120);
    return Soak().run(static_cast<DWORD>(seconds));
}

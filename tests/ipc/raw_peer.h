/// @file
/// A second peer for the shared-memory queue, written against the system's own calls from the byte
/// layout alone. It shares no code with the library, and copies byte by byte.

#pragma once

#include "tests/ipc/processes.h"

#include <optional>
#include <thread>
#include <vector>

namespace ipc_test {

/// The words of a ring header.
enum Word { base, readPos, writePos, end, count, blocked, closed, waitMask, eventMask, pending };

/// Words as the segments hold them: a reply is a connection's number and capacity.
inline std::string record(const std::vector<DWORD> &words)
{
    return {reinterpret_cast<const char *>(words.data()), words.size() * sizeof(DWORD)};
}

/// One side of one segment. A maker writes the first ring, its peer the second.
struct RawPeer {
    enum Kind { listener, requester, acceptor, connector };

    /// @param isKnown  a listener has the two events by which those of this library are known
    RawPeer(Kind kind, const std::string &prefix, DWORD capacity = 256, bool isKnown = true) : size(capacity)
    {
        bool makes = kind == listener || kind == acceptor, isInit = kind == listener || kind == requester;
        DWORD first = isInit ? 0 : 4, second = first + 40 + size, all = second + 40 + size;
        auto keep = [&](HANDLE handle) { return opened.emplace_back(handle); };
        auto event = [&](const char *suffix, bool isManual) {
            return keep(CreateEventA(nullptr, isManual, FALSE, (prefix + suffix).c_str()));
        };
        for (const char *suffix : {"HasPresence", "Presence"})
            if (kind == listener && isKnown)
                event(suffix, true);
        HANDLE mapping =
            keep(makes ? CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, all, &prefix[0])
                       : OpenFileMappingA(FILE_MAP_WRITE, FALSE, &prefix[0]));
        view = static_cast<char *>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
        if (view == nullptr)
            return;
        mutex = keep(CreateMutexA(nullptr, FALSE, (prefix + "Mutex").c_str()));
        (makes ? peerEvent : ownEvent) = event("Event1", !isInit);
        (makes ? ownEvent : peerEvent) = event("Event2", true);
        (makes ? ownWake : peerWake) = event("IEvent2", true);
        if (!isInit) {
            (makes ? peerWake : ownWake) = event("IEvent1", true);
            processWait = event("ProcessWaitEvent", false);
        }
        outRing = view + (makes ? first : second);
        inRing = view + (makes ? second : first);
        if (makes)
            out(end) = in(end) = size;
    }
    ~RawPeer()
    {
        UnmapViewOfFile(view);
        for (HANDLE handle : opened)
            CloseHandle(handle);
    }
    RawPeer(const RawPeer &) = delete;

    DWORD &out(Word word) { return reinterpret_cast<DWORD *>(outRing)[word]; }
    DWORD &in(Word word) { return reinterpret_cast<DWORD *>(inRing)[word]; }
    DWORD &processId() { return *reinterpret_cast<DWORD *>(view); }

    /// Adds bytes; returns how many.
    DWORD put(const std::string &bytes)
    {
        DWORD done = 0;
        WaitForSingleObject(mutex, INFINITE);
        if (out(count) == size)
            out(blocked) = 1;
        if (out(count) == 0)
            tell(1, 1 | 8);
        for (; out(closed) == 0 && done < bytes.size() && out(count) < size; ++out(count)) {
            outRing[40 + out(writePos)] = bytes[done++];
            out(writePos) = (out(writePos) + 1) % size;
        }
        ReleaseMutex(mutex);
        return done;
    }
    /// Removes at most so many bytes.
    std::string get(DWORD length)
    {
        std::string bytes;
        WaitForSingleObject(mutex, INFINITE);
        for (; bytes.size() < length && in(count) > 0; --in(count)) {
            bytes += inRing[40 + in(readPos)];
            in(readPos) = (in(readPos) + 1) % size;
        }
        if (in(count) == 0)
            in(readPos) = in(writePos) = 0;
        if (!bytes.empty()) {
            tell(2, in(blocked) != 0 ? 2 : 0);
            in(blocked) = 0;
        }
        ReleaseMutex(mutex);
        return bytes;
    }
    /// The connector's last step.
    void announce(DWORD id)
    {
        processId() = id;
        SetEvent(processWait);
    }
    /// Wakes and tells the peer; its words are in the ring that it writes.
    void tell(DWORD readiness, DWORD events)
    {
        if ((in(waitMask)&readiness) != 0)
            SetEvent(peerWake);
        in(waitMask) &= ~readiness;
        events &= in(eventMask);
        if (events != 0 && in(pending) == 0)
            SetEvent(peerEvent);
        in(pending) += events;
    }
    /// Does something with the mutex held and dies with it.
    template<typename Act>
    void dieHolding(Act act)
    {
        std::thread([&] {
            WaitForSingleObject(mutex, patience);
            act();
        }).join();
    }

    DWORD size;
    std::vector<HANDLE> opened;
    HANDLE mutex, ownEvent, peerEvent, ownWake, peerWake, processWait = nullptr;
    char *view, *outRing, *inRing;
};

/// Connection 7 in one process, the library at one end and the raw peer at the other; null if that failed.
struct Link : Queue {
    explicit Link(bool accepts, DWORD capacity = 8, const std::string &name = "link")
    {
        std::string init = "QVSShmInit" + name, connection = "QVSShm" + name + "07";
        if (accepts)
            listener.reset(ShmQueueListen(name.c_str()));
        if (accepts && listener == nullptr)
            return;
        shake.emplace(accepts ? RawPeer::requester : RawPeer::listener, init);
        shake->put(accepts ? "1234" : record({7, capacity}));
        if (!accepts && SetEvent(shake->peerEvent))
            raw.emplace(RawPeer::acceptor, connection, capacity);
        reset(accepts ? ShmQueueAccept(listener.get(), 7, capacity) : ShmQueueConnect(name.c_str()));
        if (accepts && *this != nullptr)
            raw.emplace(RawPeer::connector, connection, capacity);
    }
    DWORD &theirs(Word word) { return raw->out(word); } ///< in the ring that the raw peer writes
    DWORD &ours(Word word) { return raw->in(word); }
    /// Woken once more, the watcher takes the connector's process for ended.
    void endConnector()
    {
        choose(SHMQUEUE_EVENT_CLOSE);
        for (int i = 0; i < 100 && !isTold(20); ++i)
            raw->announce(GetCurrentProcessId());
    }

    Queue listener;
    std::optional<RawPeer> shake, raw;
};

} // namespace ipc_test

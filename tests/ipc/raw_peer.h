/// @file
/// A second peer for the shared-memory queue, written against the system's own calls from the byte
/// layout alone. It shares no code with the library, and copies byte by byte.

#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace ipc_test {

/// The words of a ring header.
enum Word { base, readPos, writePos, end, count, blocked, closed, waitMask, eventMask, pending };

/// One side of one segment. A maker writes the first ring, its peer the second.
struct RawPeer {
    enum Kind { listener, requester, acceptor, connector };

    RawPeer(Kind kind, const std::string &prefix, DWORD capacity) : size(capacity)
    {
        bool makes = kind == listener || kind == acceptor, isInit = kind == listener || kind == requester;
        DWORD first = isInit ? 0 : 4, second = first + 40 + size, all = second + 40 + size;
        auto keep = [&](HANDLE handle) { return opened.emplace_back(handle); };
        auto event = [&](const char *suffix, bool isManual) {
            return keep(CreateEventA(nullptr, isManual, FALSE, (prefix + suffix).c_str()));
        };
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

    DWORD size;
    std::vector<HANDLE> opened;
    HANDLE mutex, ownEvent, peerEvent, ownWake, peerWake, processWait = nullptr;
    char *view, *outRing, *inRing;
};

} // namespace ipc_test

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
        bool isMaker = kind == listener || kind == acceptor, isInit = kind == listener || kind == requester;
        DWORD first = isInit ? 0 : 4, second = first + 40 + size;
        opened = {isMaker ? CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, second + 40 + size,
                                               prefix.c_str())
                          : OpenFileMappingA(FILE_MAP_WRITE, FALSE, prefix.c_str())};
        view = static_cast<char *>(MapViewOfFile(opened[0], FILE_MAP_WRITE, 0, 0, 0));
        if (view == nullptr)
            return;
        auto event = [&](const char *suffix, bool isManualReset) {
            return opened.emplace_back(CreateEventA(nullptr, isManualReset, FALSE, (prefix + suffix).c_str()));
        };
        opened.push_back(mutex = CreateMutexA(nullptr, FALSE, (prefix + "Mutex").c_str()));
        (isMaker ? peerEvent : ownEvent) = event("Event1", !isInit);
        (isMaker ? ownEvent : peerEvent) = event("Event2", true);
        (isMaker ? ownWake : peerWake) = event("IEvent2", true);
        if (!isInit) {
            (isMaker ? peerWake : ownWake) = event("IEvent1", true);
            processWait = event("ProcessWaitEvent", false);
        }
        outRing = view + (isMaker ? first : second);
        inRing = view + (isMaker ? second : first);
        if (isMaker)
            out(end) = in(end) = size;
    }
    ~RawPeer()
    {
        UnmapViewOfFile(view);
        for (HANDLE handle : opened)
            CloseHandle(handle);
    }
    RawPeer(const RawPeer &) = delete;
    RawPeer &operator=(const RawPeer &) = delete;

    DWORD &out(Word word) { return reinterpret_cast<DWORD *>(outRing)[word]; }
    DWORD &in(Word word) { return reinterpret_cast<DWORD *>(inRing)[word]; }

    /// Adds bytes; returns how many.
    DWORD put(const char *data, DWORD length)
    {
        DWORD done = 0;
        WaitForSingleObject(mutex, INFINITE);
        if (out(count) == size)
            out(blocked) = 1;
        if (out(count) == 0)
            tell(1, 1 | 8);
        for (; out(closed) == 0 && done < length && out(count) < size; ++out(count)) {
            outRing[40 + out(writePos)] = data[done++];
            out(writePos) = (out(writePos) + 1) % size;
        }
        ReleaseMutex(mutex);
        return done;
    }

    /// Removes bytes; returns how many.
    DWORD get(char *data, DWORD length)
    {
        DWORD done = 0;
        WaitForSingleObject(mutex, INFINITE);
        for (; done < length && in(count) > 0; --in(count)) {
            data[done++] = inRing[40 + in(readPos)];
            in(readPos) = (in(readPos) + 1) % size;
        }
        if (in(count) == 0)
            in(readPos) = in(writePos) = 0;
        if (done > 0) {
            tell(2, in(blocked) != 0 ? 2 : 0);
            in(blocked) = 0;
        }
        ReleaseMutex(mutex);
        return done;
    }

    /// The connector's last step.
    void announce(DWORD processId)
    {
        *reinterpret_cast<DWORD *>(view) = processId;
        SetEvent(processWait);
    }

    /// Wakes and tells the peer; its words are in the ring that it writes.
    void tell(DWORD readiness, DWORD events)
    {
        if ((in(waitMask)&readiness) != 0) {
            in(waitMask) &= ~readiness;
            SetEvent(peerWake);
        }
        events &= in(eventMask);
        if (events != 0 && in(pending) == 0)
            SetEvent(peerEvent);
        in(pending) += events;
    }

    DWORD size;
    std::vector<HANDLE> opened;
    HANDLE mutex = nullptr, ownEvent = nullptr, peerEvent = nullptr, ownWake = nullptr, peerWake = nullptr;
    HANDLE processWait = nullptr;
    char *view = nullptr, *outRing = nullptr, *inRing = nullptr;
};

} // namespace ipc_test

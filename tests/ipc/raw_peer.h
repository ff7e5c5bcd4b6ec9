/// @file
/// A second peer for the shared-memory queue, written against the system's own calls from the byte
/// layout alone. It shares no code with the library, and copies byte by byte.

#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <cstring>
#include <string>

namespace ipc_test {

/// One side of one segment. A maker writes the first ring, its peer the second.
class RawPeer {
public:
    enum Kind { listener, requester, acceptor, connector };

    RawPeer(Kind kind, const std::string &prefix, DWORD capacity)
        : size_(capacity), maker_(kind == listener || kind == acceptor),
          first_(kind == listener || kind == requester ? 0 : 4)
    {
        bool init = first_ == 0;
        DWORD bytes = first_ + 2 * (40 + size_);
        mapping_ = maker_ ? CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, bytes, prefix.c_str())
                          : OpenFileMappingA(FILE_MAP_WRITE, FALSE, prefix.c_str());
        if (mapping_ == nullptr)
            return;
        mutex_ = CreateMutexA(nullptr, FALSE, (prefix + "Mutex").c_str());
        event_[0] = CreateEventA(nullptr, !init, FALSE, (prefix + "Event1").c_str());
        event_[1] = CreateEventA(nullptr, TRUE, FALSE, (prefix + "Event2").c_str());
        wake_[0] = init ? nullptr : CreateEventA(nullptr, TRUE, FALSE, (prefix + "IEvent1").c_str());
        wake_[1] = CreateEventA(nullptr, TRUE, FALSE, (prefix + "IEvent2").c_str());
        processWait_ = init ? nullptr : CreateEventA(nullptr, FALSE, FALSE, (prefix + "ProcessWaitEvent").c_str());
        view_ = static_cast<char *>(MapViewOfFile(mapping_, FILE_MAP_WRITE, 0, 0, 0));
        if (maker_)
            word(out() + 12) = word(in() + 12) = size_;
    }
    ~RawPeer()
    {
        if (view_ != nullptr)
            UnmapViewOfFile(view_);
        for (HANDLE handle : {event_[0], event_[1], wake_[0], wake_[1], processWait_, mutex_, mapping_})
            if (handle != nullptr)
                CloseHandle(handle);
    }
    RawPeer(const RawPeer &) = delete;
    RawPeer &operator=(const RawPeer &) = delete;

    bool exists() const { return view_ != nullptr; }
    DWORD &word(DWORD offset) { return *reinterpret_cast<DWORD *>(view_ + offset); }
    DWORD out() const { return maker_ ? first_ : first_ + 40 + size_; }
    DWORD in() const { return maker_ ? first_ + 40 + size_ : first_; }
    HANDLE mutex() const { return mutex_; }
    HANDLE ownEvent() const { return event_[maker_]; }
    HANDLE peerEvent() const { return event_[!maker_]; }
    HANDLE ownWake() const { return wake_[maker_]; }
    HANDLE peerWake() const { return wake_[!maker_]; }
    HANDLE processWait() const { return processWait_; }

    void lock() { ASSERT_EQ(WaitForSingleObject(mutex_, 60000), WAIT_OBJECT_0); }
    void unlock() { ReleaseMutex(mutex_); }

    /// Adds bytes; returns how many.
    DWORD put(const void *data, DWORD length)
    {
        lock();
        DWORD done = 0;
        if (word(out() + 16) == size_)
            word(out() + 20) = 1;
        if (word(out() + 16) == 0)
            tell(1, 1 | 8);
        for (; word(out() + 24) == 0 && done < length && word(out() + 16) < size_; ++done) {
            view_[out() + 40 + word(out() + 8)] = static_cast<const char *>(data)[done];
            word(out() + 8) = (word(out() + 8) + 1) % size_;
            ++word(out() + 16);
        }
        unlock();
        return done;
    }

    /// Removes bytes; returns how many.
    DWORD get(void *data, DWORD length)
    {
        lock();
        DWORD done = 0;
        for (; done < length && word(in() + 16) > 0; ++done) {
            static_cast<char *>(data)[done] = view_[in() + 40 + word(in() + 4)];
            word(in() + 4) = (word(in() + 4) + 1) % size_;
            --word(in() + 16);
        }
        if (word(in() + 16) == 0)
            word(in() + 4) = word(in() + 8) = 0;
        if (done > 0)
            tell(2, word(in() + 20) != 0 ? 2 : 0);
        if (done > 0)
            word(in() + 20) = 0;
        unlock();
        return done;
    }

    void close()
    {
        lock();
        word(in() + 24) = word(out() + 24) = 1;
        tell(word(out() + 16) == 0 ? 1 : 0, 32);
        unlock();
    }

    /// The connector's last step.
    void announce(DWORD processId)
    {
        word(0) = processId;
        SetEvent(processWait_);
    }

    /// Wakes and tells the peer; its words are in the ring that it writes.
    void tell(DWORD readiness, DWORD events)
    {
        if ((word(in() + 28) & readiness) != 0) {
            word(in() + 28) &= ~readiness;
            SetEvent(peerWake());
        }
        if ((events &= word(in() + 32)) != 0) {
            if (word(in() + 36) == 0)
                SetEvent(peerEvent());
            word(in() + 36) += events;
        }
    }

private:
    DWORD size_;
    bool maker_;
    DWORD first_;
    HANDLE mapping_ = nullptr, mutex_ = nullptr, event_[2] = {}, wake_[2] = {}, processWait_ = nullptr;
    char *view_ = nullptr;
};

} // namespace ipc_test

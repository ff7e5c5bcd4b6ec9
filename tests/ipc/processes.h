/// @file
/// What the tests of the shared-memory queue and its soak share: child processes that play a role, the
/// bytes that are sent, and what the own process holds of the system.

#pragma once

#include "general/shmqueue.h"

#include <windows.h>

#include <tlhelp32.h>

#include <cstdio>
#include <string>
#include <vector>

namespace ipc_test {

constexpr DWORD patience = 60000; ///< ms; no wait of a test is longer

inline DWORD WINAPI endAfter(void *seconds)
{
    Sleep(1000 * static_cast<DWORD>(reinterpret_cast<uintptr_t>(seconds)));
    std::fprintf(stderr, "the watchdog ends this process\n");
    ExitProcess(99);
}

/// Ends the process after this many seconds, so that no test can hang.
inline void startWatchdog(uintptr_t seconds)
{
    CloseHandle(CreateThread(nullptr, 0, endAfter, reinterpret_cast<void *>(seconds), 0, nullptr));
}

inline std::string ownProgram()
{
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    return program;
}

/// A process; terminated at the end of its scope if it still runs.
class Child {
public:
    /// Starts this program anew to play a role.
    explicit Child(const std::string &role)
        : Child("\"" + ownProgram() + "\" --role " + role, nullptr, nullptr, GetStdHandle(STD_ERROR_HANDLE))
    {
    }
    Child(std::string commandLine, HANDLE input, HANDLE output, HANDLE error)
    {
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = input;
        startup.hStdOutput = output;
        startup.hStdError = error;
        PROCESS_INFORMATION made{};
        CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &made);
        CloseHandle(made.hThread);
        process_ = made.hProcess;
    }
    ~Child()
    {
        kill();
        CloseHandle(process_);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    /// The exit code; STILL_ACTIVE if the process did not end in time.
    DWORD wait(DWORD timeout = patience)
    {
        DWORD code = STILL_ACTIVE;
        if (WaitForSingleObject(process_, timeout) == WAIT_OBJECT_0)
            GetExitCodeProcess(process_, &code);
        return code;
    }
    void kill()
    {
        TerminateProcess(process_, 1);
        WaitForSingleObject(process_, patience);
    }

private:
    HANDLE process_;
};

/// A repeatable stream of bytes; sender and receiver of a stream each hold one.
struct Bytes {
    uint32_t state;
    uint8_t next() { return static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24); }
    void fill(uint8_t *buffer, uint32_t length)
    {
        for (uint32_t i = 0; i < length; ++i)
            buffer[i] = next();
    }
    bool match(const uint8_t *buffer, uint32_t length)
    {
        bool same = true;
        for (uint32_t i = 0; i < length; ++i)
            same = (buffer[i] == next()) && same;
        return same;
    }
};

/// Sleeps until the connection is ready for SHMQUEUE_SELECT_*.
inline bool sleepUntil(ShmQueue *queue, uint32_t readiness)
{
    uint32_t flags = 0, ready = 0, status = SHMQUEUE_OK;
    for (DWORD start = GetTickCount(); status == SHMQUEUE_OK && ready == 0 && GetTickCount() - start < patience;)
        status = ShmQueueSelect(queue, &(flags = readiness), patience, &ready);
    return status == SHMQUEUE_OK && ready != 0;
}

/// Adds or removes all the bytes, sleeping in select where they do not fit; the last status.
template<typename Byte, typename Move>
uint32_t moveAll(Move move, uint32_t readiness, ShmQueue *queue, Byte *bytes, uint32_t length)
{
    for (uint32_t part = length; length > 0; part = length) {
        uint32_t status = move(queue, bytes, &part);
        if (status == SHMQUEUE_OK) {
            bytes += part;
            length -= part;
        } else if ((status != SHMQUEUE_FULL && status != SHMQUEUE_EMPTY) || !sleepUntil(queue, readiness)) {
            return status;
        }
    }
    return SHMQUEUE_OK;
}

inline uint32_t sendAll(ShmQueue *queue, const void *data, uint32_t length)
{
    return moveAll(ShmQueueAdd, SHMQUEUE_SELECT_WRITE, queue, static_cast<const char *>(data), length);
}

inline uint32_t receiveAll(ShmQueue *queue, void *buffer, uint32_t length)
{
    return moveAll(ShmQueueRemove, SHMQUEUE_SELECT_READ, queue, static_cast<char *>(buffer), length);
}

/// Waits for a request and accepts it.
inline ShmQueue *acceptNext(ShmQueue *listener, uint32_t number, uint32_t size)
{
    return sleepUntil(listener, SHMQUEUE_SELECT_READ) ? ShmQueueAccept(listener, number, size) : nullptr;
}

/// Destroys a connection whose mutex may have been abandoned; the last status.
inline uint32_t destroyAfterDeath(ShmQueue *queue)
{
    uint32_t status = ShmQueueDestroy(queue);
    return status == SHMQUEUE_OK ? status : ShmQueueDestroy(queue);
}

/// What this process holds of the system.
struct Footprint {
    int handles = 0, views = 0, threads = 0;
    bool operator==(const Footprint &) const = default;
    Footprint()
    {
        DWORD flags = 0;
        for (uintptr_t value = 4; value < 0x4000; value += 4)
            handles += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
        MEMORY_BASIC_INFORMATION memory{};
        for (char *p = nullptr; VirtualQuery(p, &memory, sizeof memory) != 0 && p < p + memory.RegionSize;
             p += memory.RegionSize)
            views += memory.Type == MEM_MAPPED && memory.AllocationBase == memory.BaseAddress ? 1 : 0;
        HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
        THREADENTRY32 thread{};
        thread.dwSize = sizeof thread;
        for (BOOL more = Thread32First(snapshot, &thread); more; more = Thread32Next(snapshot, &thread))
            threads += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
        CloseHandle(snapshot);
    }
    /// A watcher that has ended by itself may take a moment to be gone.
    bool isBack() const
    {
        for (int i = 0; i < 500 && Footprint() != *this; ++i)
            Sleep(10);
        return Footprint() == *this;
    }
};

} // namespace ipc_test

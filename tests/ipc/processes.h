/// @file
/// What the tests of the shared-memory queue share: child processes that play a role, the bytes that are
/// sent, and what the own process holds of the system.

#pragma once

#include "general/shmqueue.h"

#include <windows.h>

#include <tlhelp32.h>

#include <string>

namespace ipc_test {

constexpr DWORD patience = 60000; ///< ms; no wait of a test is longer

/// This program, started anew to play a role; terminated at the end of the scope if it still runs.
class Child {
public:
    explicit Child(const std::string &role)
    {
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        std::string line = '"' + std::string(program) + "\" --role " + role;
        STARTUPINFOA startup{};
        PROCESS_INFORMATION made{};
        CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &made);
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
    DWORD wait()
    {
        DWORD code = STILL_ACTIVE;
        if (WaitForSingleObject(process_, patience) == WAIT_OBJECT_0)
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
    char next() { return static_cast<char>((state = state * 1664525 + 1013904223) >> 24); }
    void fill(char *buffer, uint32_t length)
    {
        for (uint32_t i = 0; i < length; ++i)
            buffer[i] = next();
    }
    bool match(const char *buffer, uint32_t length)
    {
        bool same = true;
        for (uint32_t i = 0; i < length; ++i)
            same = (buffer[i] == next()) && same;
        return same;
    }
};

/// Sleeps until the queue can be read; SHMQUEUE_EMPTY if that never happens.
inline uint32_t sleepUntilReadable(ShmQueue *queue)
{
    uint32_t flags = 0, ready = 0, status = SHMQUEUE_OK;
    for (DWORD start = GetTickCount(); status == SHMQUEUE_OK && ready == 0 && GetTickCount() - start < patience;)
        status = ShmQueueSelect(queue, &(flags = SHMQUEUE_SELECT_READ), patience, &ready);
    return status == SHMQUEUE_OK && ready == 0 ? uint32_t(SHMQUEUE_EMPTY) : status;
}

inline ShmQueue *acceptNext(ShmQueue *listener, uint32_t number, uint32_t size)
{
    return sleepUntilReadable(listener) == SHMQUEUE_OK ? ShmQueueAccept(listener, number, size) : nullptr;
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
        bool same = Footprint() == *this;
        for (DWORD start = GetTickCount(); !same && GetTickCount() - start < 5000; same = Footprint() == *this)
            Sleep(10);
        return same;
    }
};

} // namespace ipc_test

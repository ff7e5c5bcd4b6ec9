/// @file
/// What the tests of the shared-memory queue share: queues with short calls, child processes that play a
/// role, the bytes that are sent, and what the own process holds of the system.

#pragma once

#include "general/shmqueue.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>

namespace ipc_test {

constexpr DWORD patience = 60000; ///< ms; no wait of a test is longer

inline bool isSet(HANDLE event, DWORD timeout = 0)
{
    return WaitForSingleObject(event, timeout) == WAIT_OBJECT_0;
}

/// Destroys a queue. The first attempt may find its mutex abandoned.
struct Destroyer {
    void operator()(ShmQueue *queue) const
    {
        EXPECT_TRUE(ShmQueueDestroy(queue) == SHMQUEUE_OK || ShmQueueDestroy(queue) == SHMQUEUE_OK);
    }
};

/// A listener or a connection. The calls return the status and leave in `value` what was handed over.
struct Queue : std::unique_ptr<ShmQueue, Destroyer> {
    using unique_ptr::unique_ptr;
    uint32_t add(const std::string &data)
    {
        return ShmQueueAdd(get(), data.data(), &(value = static_cast<uint32_t>(data.size())));
    }
    uint32_t remove(uint32_t length)
    {
        bytes.resize(length);
        uint32_t status = ShmQueueRemove(get(), bytes.data(), &(value = length));
        bytes.resize(value);
        return status;
    }
    uint32_t select(uint32_t wanted, uint32_t timeout = patience)
    {
        uint32_t ready = 0, status = ShmQueueSelect(get(), &(value = wanted), timeout, &ready);
        EXPECT_EQ(ready, status != SHMQUEUE_OK ? 0 : value == 3 ? 2 : value != 0);
        return status;
    }
    uint32_t choose(uint32_t mask) { return ShmQueueEventSelect(get(), mask); }
    uint32_t events() { return ShmQueueEnumEvents(get(), &value); }
    bool isTold(DWORD timeout = 0) { return isSet(ShmQueueGetEvent(get()), timeout); }
    ShmQueue *accept(uint32_t number, uint32_t size)
    {
        return select(SHMQUEUE_SELECT_READ) == SHMQUEUE_OK ? ShmQueueAccept(get(), number, size) : nullptr;
    }
    uint32_t destroy() { return ShmQueueDestroy(release()); }

    uint32_t value = 0;
    std::string bytes;
};

/// This program, started anew to play a role; terminated at the end of the scope if it still runs.
struct Child {
    explicit Child(const std::string &role, uint32_t number = 0)
    {
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        std::string line = '"' + std::string(program) + "\" --role " + role + ' ' + std::to_string(number);
        STARTUPINFOA startup{};
        PROCESS_INFORMATION made{};
        CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &made);
        CloseHandle(made.hThread);
        process = made.hProcess;
    }
    ~Child()
    {
        kill();
        wait();
        CloseHandle(process);
    }
    Child(const Child &) = delete;

    void kill() { TerminateProcess(process, 1); }
    /// The exit code; STILL_ACTIVE if the process did not end in time.
    DWORD wait()
    {
        DWORD code = STILL_ACTIVE;
        WaitForSingleObject(process, patience);
        GetExitCodeProcess(process, &code);
        return code;
    }
    HANDLE process;
};

/// A repeatable stream of bytes; sender and receiver of a stream each hold one.
struct Bytes {
    uint32_t state;
    std::string next(size_t length)
    {
        std::string bytes(length, 0);
        for (char &byte : bytes)
            byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        return bytes;
    }
};

/// Checks at the end of a scope that the process holds as many handles and views as at its beginning.
struct Footprint {
    static std::pair<int, int> now()
    {
        std::pair<int, int> held;
        DWORD flags = 0;
        for (uintptr_t value = 4; value < 0x4000; value += 4)
            held.first += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
        MEMORY_BASIC_INFORMATION memory{};
        for (char *p = nullptr; VirtualQuery(p, &memory, sizeof memory) != 0; p += memory.RegionSize)
            held.second += memory.Type == MEM_MAPPED && memory.AllocationBase == memory.BaseAddress ? 1 : 0;
        return held;
    }
    ~Footprint() // a thread that has ended by itself may take a moment to be gone
    {
        for (int i = 0; i < 100 && now() != before; ++i)
            Sleep(20);
        EXPECT_EQ(now(), before);
    }
    const std::pair<int, int> before = now();
};

/// Does something twice; the second time leaves nothing behind. The first may leave what the system makes once.
template<typename Act>
void leavesNothingBehind(Act act)
{
    act();
    Footprint before;
    act();
}

} // namespace ipc_test

#include "tests/ipc/processes.h"

#include <tlhelp32.h>

#include <cstdio>

namespace ipc_test {

namespace {

DWORD WINAPI endAfter(void *milliseconds)
{
    Sleep(static_cast<DWORD>(reinterpret_cast<uintptr_t>(milliseconds)));
    std::fprintf(stderr, "the watchdog ends this process\n");
    ExitProcess(99);
}

} // namespace

void startWatchdog(int seconds)
{
    CloseHandle(CreateThread(nullptr, 0, endAfter, reinterpret_cast<void *>(uintptr_t(seconds) * 1000), 0, nullptr));
}

Child::Child(const std::string &role)
{
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    start("\"" + std::string(program) + "\" --role " + role, nullptr, GetStdHandle(STD_OUTPUT_HANDLE),
          GetStdHandle(STD_ERROR_HANDLE));
}

Child::Child(const std::string &commandLine, HANDLE input, HANDLE output, HANDLE error)
{
    start(commandLine, input, output, error);
}

void Child::start(std::string commandLine, HANDLE input, HANDLE output, HANDLE error)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output;
    startup.hStdError = error;
    PROCESS_INFORMATION started{};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started))
        return;
    CloseHandle(started.hThread);
    process_ = started.hProcess;
}

Child::~Child()
{
    kill();
    CloseHandle(process_);
}

DWORD Child::wait(DWORD timeout)
{
    DWORD code = STILL_ACTIVE;
    if (WaitForSingleObject(process_, timeout) == WAIT_OBJECT_0)
        GetExitCodeProcess(process_, &code);
    return code;
}

void Child::kill()
{
    TerminateProcess(process_, 1);
    WaitForSingleObject(process_, patience);
}

uint8_t Bytes::next()
{
    state_ = state_ * 1664525 + 1013904223;
    return static_cast<uint8_t>(state_ >> 24);
}

void Bytes::fill(uint8_t *buffer, uint32_t length)
{
    for (uint32_t i = 0; i < length; ++i)
        buffer[i] = next();
}

bool Bytes::match(const uint8_t *buffer, uint32_t length)
{
    bool same = true;
    for (uint32_t i = 0; i < length; ++i)
        same = (buffer[i] == next()) && same;
    return same;
}

bool sleepUntil(ShmQueue *queue, uint32_t readiness, uint32_t timeout)
{
    uint32_t flags = 0, ready = 0;
    DWORD start = GetTickCount();
    do {
        flags = readiness;
        if (ShmQueueSelect(queue, &flags, timeout, &ready) != SHMQUEUE_OK)
            return false;
    } while (ready == 0 && GetTickCount() - start < timeout);
    return ready != 0;
}

uint32_t sendAll(ShmQueue *queue, const void *data, uint32_t length)
{
    auto *bytes = static_cast<const uint8_t *>(data);
    while (length > 0) {
        uint32_t part = length;
        uint32_t status = ShmQueueAdd(queue, bytes, &part);
        if (status == SHMQUEUE_OK) {
            bytes += part;
            length -= part;
        } else if (status != SHMQUEUE_FULL || !sleepUntil(queue, SHMQUEUE_SELECT_WRITE)) {
            return status;
        }
    }
    return SHMQUEUE_OK;
}

uint32_t receiveAll(ShmQueue *queue, void *buffer, uint32_t length)
{
    auto *bytes = static_cast<uint8_t *>(buffer);
    while (length > 0) {
        uint32_t part = length;
        uint32_t status = ShmQueueRemove(queue, bytes, &part);
        if (status == SHMQUEUE_OK) {
            bytes += part;
            length -= part;
        } else if (status != SHMQUEUE_EMPTY || !sleepUntil(queue, SHMQUEUE_SELECT_READ)) {
            return status;
        }
    }
    return SHMQUEUE_OK;
}

ShmQueue *acceptNext(ShmQueue *listener, uint32_t number, uint32_t size)
{
    return sleepUntil(listener, SHMQUEUE_SELECT_READ) ? ShmQueueAccept(listener, number, size) : nullptr;
}

uint32_t destroyAfterDeath(ShmQueue *queue)
{
    uint32_t status = ShmQueueDestroy(queue);
    return status == SHMQUEUE_OK ? status : ShmQueueDestroy(queue);
}

Footprint Footprint::now()
{
    Footprint found{};
    for (uintptr_t value = 4; value < 0x4000; value += 4) {
        DWORD flags = 0;
        found.handles += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
    }
    MEMORY_BASIC_INFORMATION memory{};
    for (char *place = nullptr; VirtualQuery(place, &memory, sizeof memory) != 0 && place < place + memory.RegionSize;
         place += memory.RegionSize)
        found.views += memory.Type == MEM_MAPPED && memory.AllocationBase == memory.BaseAddress ? 1 : 0;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    for (BOOL more = Thread32First(snapshot, &thread); more; more = Thread32Next(snapshot, &thread))
        found.threads += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    CloseHandle(snapshot);
    return found;
}

} // namespace ipc_test

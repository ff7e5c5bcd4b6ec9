/// @file
/// What the tests of the shared-memory queue and its soak share: child processes that play a role, the
/// bytes that are sent, and what the own process holds of the system.

#pragma once

#include "general/shmqueue.h"

#include <windows.h>

#include <string>
#include <vector>

namespace ipc_test {

constexpr DWORD patience = 20000; ///< ms; no wait of a test is longer

/// Ends the process with a message after this many seconds, so that no test can hang.
void startWatchdog(int seconds);

/// A process; terminated at the end of its scope if it still runs.
class Child {
public:
    /// Starts this program anew to play a role.
    explicit Child(const std::string &role);
    /// Starts any program.
    Child(const std::string &commandLine, HANDLE input, HANDLE output, HANDLE error);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    /// The exit code; STILL_ACTIVE if the process did not end in time.
    DWORD wait(DWORD timeout = patience);
    void kill();

private:
    void start(std::string commandLine, HANDLE input, HANDLE output, HANDLE error);

    HANDLE process_ = nullptr;
};

/// A repeatable stream of bytes; sender and receiver of a stream each hold one.
class Bytes {
public:
    explicit Bytes(uint32_t seed) : state_(seed) {}
    void fill(uint8_t *buffer, uint32_t length);
    /// Compares with the stream's next bytes.
    bool match(const uint8_t *buffer, uint32_t length);

private:
    uint8_t next();
    uint32_t state_;
};

/// Sleeps until the connection is ready for SHMQUEUE_SELECT_*.
bool sleepUntil(ShmQueue *queue, uint32_t readiness, uint32_t timeout = patience);

/// Moves all the bytes in or out, sleeping in select where they do not fit; the last status.
uint32_t sendAll(ShmQueue *queue, const void *data, uint32_t length);
uint32_t receiveAll(ShmQueue *queue, void *buffer, uint32_t length);

/// Waits for a request and accepts it.
ShmQueue *acceptNext(ShmQueue *listener, uint32_t number, uint32_t size);

/// Destroys a connection whose mutex may have been abandoned; the last status.
uint32_t destroyAfterDeath(ShmQueue *queue);

/// What this process holds of the system.
struct Footprint {
    int handles;
    int views;
    int threads;
    bool operator==(const Footprint &) const = default;
    static Footprint now();
};

} // namespace ipc_test

#include "bench/ipc/channels.h"
#include "bench/support/row.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

namespace {

constexpr uint32_t readSize = 1024 * 1024;
constexpr const char *contenders[] = {"general", "named pipe", "TCP", "general"}; ///< by Transport
constexpr bench::Transport peers[] = {bench::namedPipe, bench::tcp};

/// The other process: takes in `batch` bytes, answers with `answer` bytes, and so on until the
/// channel is closed.
struct PeerTask {
    bench::Transport transport;
    uint32_t capacity;
    uint32_t batch;
    uint32_t answer;
    uint32_t readSize;
};

/// Takes in bytes with reads as large as the buffer; there are never more than these on their way.
bool receiveAll(bench::Channel &channel, std::vector<char> &buffer, uint32_t length)
{
    uint32_t part = 1;
    for (; length > 0 && part > 0; length -= part)
        part = channel.receive(buffer.data(), static_cast<uint32_t>(buffer.size()));
    return length == 0;
}

int playPeer(const char *commandLine)
{
    PeerTask task{};
    std::string address;
    int transport = 0;
    std::istringstream(commandLine) >> transport >> task.capacity >> task.batch >> task.answer >> task.readSize >>
        address;
    task.transport = static_cast<bench::Transport>(transport);
    auto channel = bench::connect(task.transport, address, task.capacity);
    std::vector<char> buffer(task.readSize);
    while (receiveAll(*channel, buffer, task.batch))
        channel->send(buffer.data(), task.answer);
    return 0;
}

/// A peer process, and the channel to it.
class Peer {
public:
    explicit Peer(const PeerTask &task)
    {
        auto listener = bench::listen(task.transport, task.capacity);
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        std::ostringstream command;
        command << '"' << program << "\" --peer " << task.transport << ' ' << task.capacity << ' ' << task.batch << ' '
                << task.answer << ' ' << task.readSize << ' ' << listener->address();
        STARTUPINFOA startup{};
        PROCESS_INFORMATION started{};
        std::string line = command.str();
        if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started))
            std::abort();
        CloseHandle(started.hThread);
        process_ = started.hProcess;
        channel_ = listener->accept();
    }
    ~Peer()
    {
        channel_.reset();
        WaitForSingleObject(process_, 5000);
        CloseHandle(process_);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    bench::Channel &channel() { return *channel_; }

private:
    HANDLE process_;
    std::unique_ptr<bench::Channel> channel_;
};

/// One iteration sends a batch in writes of one size, and waits for one byte that says all of it arrived.
void stream(benchmark::State &state, bench::Transport transport, uint32_t capacity, uint32_t writeSize, uint32_t writes)
{
    Peer peer(
        {.transport = transport, .capacity = capacity, .batch = writeSize * writes, .answer = 1, .readSize = readSize});
    std::vector<char> data(writeSize, 'x'), arrived(readSize);
    for (auto _ : state) {
        for (uint32_t i = 0; i < writes; ++i)
            peer.channel().send(data.data(), writeSize);
        receiveAll(peer.channel(), arrived, 1);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * writeSize * writes);
}

void roundTrip(benchmark::State &state, bench::Transport transport, uint32_t size)
{
    char data[64] = {};
    std::vector<char> answer(size);
    Peer peer(
        {.transport = transport, .capacity = 64 * 1024, .batch = sizeof data, .answer = sizeof data, .readSize = size});
    for (auto _ : state) {
        peer.channel().send(data, sizeof data);
        receiveAll(peer.channel(), answer, sizeof data);
    }
}

/// The bound that the protocol sets: every add and every remove takes the named mutex and releases it,
/// two kernel calls, here by one thread that nobody disturbs.
void mutexAlone(benchmark::State &state, uint32_t moves)
{
    HANDLE mutex = CreateMutexA(nullptr, FALSE, "ipc_bench");
    for (auto _ : state)
        for (uint32_t i = 0; i < moves; ++i) {
            WaitForSingleObject(mutex, INFINITE);
            ReleaseMutex(mutex);
        }
    CloseHandle(mutex);
}

void registerLimit(const char *row, const char *moved, uint32_t moves)
{
    bench::contend(row, std::string("limit: the mutex for ") + moved, [=](benchmark::State &state) {
        mutexAlone(state, moves);
    })->UseRealTime();
}

struct Stream {
    const char *row;
    uint32_t capacity, writeSize, writes;
    double aim;
};

constexpr uint32_t KiB = 1024, MiB = 1024 * 1024;
constexpr Stream streams[] = {
    {"64 KiB through a 64 KiB ring, writes of 64 B", 64 * KiB, 64, 1024, 1.0},
    {"1 MiB through a 64 KiB ring, writes of 1 KiB", 64 * KiB, KiB, 1024, 1.0},
    {"4 MiB through a 64 KiB ring, writes of 64 KiB", 64 * KiB, 64 * KiB, 64, 1.0},
    {"16 MiB through a 64 KiB ring, writes of 1 MiB", 64 * KiB, MiB, 16, 0.5},
    {"64 KiB through a 4 MiB ring, writes of 64 B", 4 * MiB, 64, 1024, 1.0},
    {"1 MiB through a 4 MiB ring, writes of 1 KiB", 4 * MiB, KiB, 1024, 1.0},
    {"4 MiB through a 4 MiB ring, writes of 64 KiB", 4 * MiB, 64 * KiB, 64, 1.0},
    {"64 MiB through a 4 MiB ring, writes of 1 MiB", 4 * MiB, MiB, 64, 2.0},
};

void registerRoundTrip(const std::string &row, bench::Transport ours, uint32_t size, double aim)
{
    for (bench::Transport transport : {ours, peers[0], peers[1]})
        bench::contend(
            row, contenders[transport], [=](benchmark::State &state) { roundTrip(state, transport, size); },
            transport == ours ? aim : 0)
            ->UseRealTime();
}

bool registerRows()
{
    for (const Stream &row : streams) {
        for (bench::Transport transport : {bench::general, peers[0], peers[1]})
            bench::contend(
                row.row, contenders[transport],
                [=](benchmark::State &state) { stream(state, transport, row.capacity, row.writeSize, row.writes); },
                transport == bench::general ? row.aim : 0)
                ->UseRealTime();
        if (row.writeSize <= KiB)
            registerLimit(row.row, "the adds", row.writes);
    }
    registerRoundTrip("round trip of 64 B", bench::general, readSize, 1.0);
    registerLimit("round trip of 64 B", "2 adds and 2 removes", 4);
    registerRoundTrip("round trip of 64 B, reads of 64 B", bench::general, 64, 0.9);
    registerRoundTrip("round trip of 64 B, waiting on the event", bench::generalByEvent, readSize, 0);
    registerLimit("round trip of 64 B, waiting on the event", "2 adds, 2 enumerations and 2 removes", 6);
    return true;
}

/// The peer's process is this program too; it never comes to the benchmark's own main.
const bool registered = [] {
    if (const char *peer = std::strstr(GetCommandLineA(), " --peer "))
        std::exit(playPeer(peer + std::strlen(" --peer ")));
    return registerRows();
}();

} // namespace

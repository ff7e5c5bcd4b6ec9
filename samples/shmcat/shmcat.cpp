// shmcat: sends bytes from one process to another through a shared-memory queue.
//
// The client sleeps in a select. The server gives a turn to each of its clients whose event is set.

#include <windows.h>

#include "general/shmqueue.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char *usage =
    "usage: shmcat NAME [-v]                         send standard input to the listener of NAME\n"
    "       shmcat -r NAME [-v]                      write what the listener sends to standard output\n"
    "       shmcat -l NAME [-k] [-s SIZE] [-v]       listen; write what clients send to standard output\n"
    "       shmcat -l NAME -f FILE [-k] [-s SIZE]    listen; send FILE to every client\n"
    "\n"
    "  -l        listen (one listener per NAME; at most 15 letters, no backslash)\n"
    "  -k        keep listening: serve client after client, several at a time, until interrupted\n"
    "  -f FILE   send this file instead of receiving\n"
    "  -s SIZE   bytes that a ring holds, with K or M for units of 1024 (default 1M)\n"
    "  -r        receive instead of sending; standard input is not read\n"
    "  -v        show progress on standard error even if it is no terminal\n"
    "\n"
    "exit code: 0 all bytes moved, 1 the transfer failed, 2 wrong usage, 3 could not listen or connect\n";

enum ExitCode { allMoved = 0, transferFailed = 1, wrongUsage = 2, noConnection = 3 };

struct Options {
    bool listen = false, keepListening = false, receive = false, verbose = false;
    std::string name, file;
    uint32_t ringSize = 1024 * 1024;
} options;

int complain(ExitCode code, const std::string &text)
{
    std::fprintf(stderr, "shmcat: %s\n", text.c_str());
    return code;
}

uint32_t sizeFrom(const char *text)
{
    char *unit = nullptr;
    unsigned long long size = std::strtoull(text, &unit, 10);
    if (*unit == 'K' || *unit == 'k')
        size <<= 10, ++unit;
    else if (*unit == 'M' || *unit == 'm')
        size <<= 20, ++unit;
    return *unit == '\0' && size <= 0x40000000 ? static_cast<uint32_t>(size) : 0;
}

/// @return what is wrong with the command line; empty if nothing is
std::string parse(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        bool hasValue = i + 1 < argc;
        if (argument == "-l")
            options.listen = true;
        else if (argument == "-k")
            options.keepListening = true;
        else if (argument == "-r")
            options.receive = true;
        else if (argument == "-v")
            options.verbose = true;
        else if (argument == "-s" && hasValue)
            options.ringSize = sizeFrom(argv[++i]);
        else if (argument == "-f" && hasValue)
            options.file = argv[++i];
        else if (argument[0] != '-' && options.name.empty())
            options.name = argument;
        else
            return "cannot make sense of '" + std::string(argument) + "'; shmcat --help explains";
    }
    if (options.name.empty() || options.name.size() > 15)
        return "give a NAME of 1 to 15 letters; shmcat --help explains";
    if (options.ringSize == 0)
        return "-s takes a number of bytes from 1 to 1024M, for example -s 64K";
    if (options.listen ? options.receive : options.keepListening || !options.file.empty())
        return "-k and -f go with -l, -r goes without; shmcat --help explains";
    return "";
}

/// How much has gone through, said on standard error twice a second.
class Progress {
public:
    void moved(uint32_t bytes)
    {
        bytes_ += bytes;
        if (isShown_ && GetTickCount() - said_ >= 500)
            say('\r');
    }
    void finish()
    {
        if (isShown_)
            say('\n');
    }

private:
    void say(char end)
    {
        said_ = GetTickCount();
        double seconds = (said_ - start_) / 1000.0, mebibytes = static_cast<double>(bytes_) / (1 << 20);
        std::fprintf(stderr, "shmcat: %.1f MiB, %.1f MiB/s   %c", mebibytes, seconds > 0 ? mebibytes / seconds : 0,
                     end);
    }

    bool isShown_ = options.verbose || GetFileType(GetStdHandle(STD_ERROR_HANDLE)) == FILE_TYPE_CHAR;
    uint64_t bytes_ = 0;
    DWORD start_ = GetTickCount(), said_ = start_;
};

/// Where a process has died inside a call, one call returns SHMQUEUE_BAD_HANDLE; the second tells whether that was all.
template<typename Call>
uint32_t twice(Call call)
{
    uint32_t status = call();
    return status == SHMQUEUE_BAD_HANDLE ? call() : status;
}

using Status = general::Connection::Result;

/// A block of bytes between a file and a ring.
struct Block {
    std::vector<uint8_t> bytes;
    uint32_t begin = 0, end = 0; ///< what is still to be moved on

    explicit Block(uint32_t size) : bytes(size) {}
    /// Reads on where nothing is left; false at the end of the file.
    bool refill(HANDLE file)
    {
        if (begin < end)
            return true;
        DWORD length = 0;
        begin = 0;
        end = ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &length, nullptr) ? length : 0;
        return end > 0;
    }
    /// Adds as much as fits.
    Status addTo(general::Connection &queue, Progress &progress)
    {
        auto added = queue.write(bytes.data() + begin, end - begin);
        if (added) {
            begin += *added;
            progress.moved(*added);
        }
        return added.result();
    }
    /// Removes what there is and writes it to standard output.
    Status passOn(general::Connection &queue, Progress &progress)
    {
        auto removed = queue.read(bytes.data(), static_cast<uint32_t>(bytes.size()));
        for (DWORD done = 0, part = 0; removed && done < *removed; done += part)
            if (!WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), &bytes[done], *removed - done, &part, nullptr))
                std::exit(complain(transferFailed, "standard output cannot be written any more"));
        if (removed)
            progress.moved(*removed);
        return removed.result();
    }
};

// ---- client ----

/// Waits for something to read, and for room too if something is left to send. A client always waits to
/// read as well: a listener that goes away wakes only readers.
Status sleep(general::Connection &queue, uint32_t wish)
{
    return queue.select(SHMQUEUE_SELECT_READ | wish, INFINITE).result();
}

Status receive(general::Connection &queue, Block &incoming, Progress &progress)
{
    Status status = SHMQUEUE_OK;
    while (status) {
        status = incoming.passOn(queue, progress);
        if (status == SHMQUEUE_EMPTY)
            status = sleep(queue, 0);
    }
    return status; // SHMQUEUE_CLOSED once everything has arrived
}

Status send(general::Connection &queue, Block &outgoing, Block &incoming, Progress &progress)
{
    while (outgoing.refill(GetStdHandle(STD_INPUT_HANDLE))) {
        Status status = outgoing.addTo(queue, progress);
        if (status == SHMQUEUE_FULL)
            status = sleep(queue, SHMQUEUE_SELECT_WRITE);
        if (!status)
            return status;
        status = incoming.passOn(queue, progress);
        if (!status && status != SHMQUEUE_EMPTY)
            return status;
    }
    return SHMQUEUE_OK;
}

int runClient()
{
    general::Connection queue(options.name.c_str());
    if (!queue)
        return complain(noConnection, "nobody listens on " + options.name + "; start one: shmcat -l " + options.name);
    Progress progress;
    Block outgoing(256 * 1024), incoming(256 * 1024);
    Status status = options.receive ? receive(queue, incoming, progress) : send(queue, outgoing, incoming, progress);
    progress.finish();
    if (status == SHMQUEUE_CLOSED && !options.receive)
        return complain(transferFailed, "the listener closed the connection before everything was sent");
    if (status == SHMQUEUE_BAD_HANDLE)
        return complain(transferFailed, "the connection broke: the listener ended in the middle of a call");
    return allMoved;
}

// ---- server ----

/// One accepted connection.
class Client : public general::ServedClient {
public:
    static inline bool anyFailed = false;

    explicit Client(general::Connection &&accepted) : ServedClient(std::move(accepted)), block_(options.ringSize)
    {
        if (options.file.empty())
            return;
        file_ = CreateFileA(options.file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        connection.selectEvents(SHMQUEUE_EVENT_CLOSE | SHMQUEUE_EVENT_WRITE).ignore();
        if (file_ == INVALID_HANDLE_VALUE)
            fail("cannot read " + options.file);
    }
    ~Client()
    {
        if (file_ != nullptr)
            CloseHandle(file_);
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    /// Moves what can be moved. SHMQUEUE_CLOSED when that was all.
    Status move(Progress &progress)
    {
        Status status = file_ == nullptr ? block_.passOn(connection, progress) : giveOut(progress);
        bool isComplete = status == SHMQUEUE_CLOSED && (file_ == nullptr || block_.end == 0);
        bool goesOn = status || (!isGone() && (status == SHMQUEUE_EMPTY || status == SHMQUEUE_FULL));
        if (!goesOn && !isComplete)
            fail("client " + std::to_string(number_) + " ended before everything was moved");
        if (!goesOn)
            progress.finish();
        return status;
    }

private:
    static void fail(const std::string &text)
    {
        anyFailed = true;
        complain(transferFailed, text);
    }

    Status giveOut(Progress &progress)
    {
        while (block_.refill(file_)) {
            Status status = block_.addTo(connection, progress);
            if (!status)
                return status; // if the ring is full, the client's next remove raises WRITE
        }
        return SHMQUEUE_CLOSED; // what the ring still holds can be removed after the destroy
    }

    static inline uint32_t lastNumber = 0;
    const uint32_t number_ = ++lastNumber;
    HANDLE file_ = nullptr; ///< what is sent; null to receive
    Block block_;
};

int runServer()
{
    if (!options.file.empty() && GetFileAttributesA(options.file.c_str()) == INVALID_FILE_ATTRIBUTES)
        return complain(transferFailed, "there is no file " + options.file);
    std::list<Client> clients;
    general::Server server(options.name.c_str(), clients,
                           {options.ringSize, options.keepListening ? 200U : 1U, INFINITE});
    if (!server)
        return complain(noConnection,
                        "cannot listen on " + options.name + "; somebody else does, or the name has a backslash");
    Progress progress;
    while (server.serve([&](Client &client) { return client.move(progress); }))
        if (!options.keepListening && !clients.empty())
            server.stopListening();
    return Client::anyFailed ? transferFailed : allMoved;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(usage, stdout);
        return allMoved;
    }
    std::string wrong = parse(argc, argv);
    if (!wrong.empty())
        return complain(wrongUsage, wrong);
    return options.listen ? runServer() : runClient();
}

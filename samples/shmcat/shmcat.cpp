// shmcat: sends bytes from one process to another through a shared-memory queue.
//
// The client sleeps in ShmQueueSelect. The server looks after its listener and up to 62 clients with
// one WaitForMultipleObjects on their event objects, as it would look after sockets.

#include "general/shmqueue.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
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
};

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
std::string parse(int argc, char **argv, Options &options)
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
    explicit Progress(bool verbose) : isShown_(verbose || GetFileType(GetStdHandle(STD_ERROR_HANDLE)) == FILE_TYPE_CHAR)
    {
    }
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

    bool isShown_;
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
    uint32_t addTo(ShmQueue *queue, Progress &progress)
    {
        uint32_t length = end - begin;
        uint32_t status = twice([&] { return ShmQueueAdd(queue, bytes.data() + begin, &length); });
        if (status == SHMQUEUE_OK) {
            begin += length;
            progress.moved(length);
        }
        return status;
    }
    /// Removes what there is and writes it to standard output.
    uint32_t passOn(ShmQueue *queue, Progress &progress)
    {
        auto length = static_cast<uint32_t>(bytes.size());
        uint32_t status = twice([&] { return ShmQueueRemove(queue, bytes.data(), &length); });
        for (DWORD done = 0, part = 0; status == SHMQUEUE_OK && done < length; done += part)
            if (!WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), &bytes[done], length - done, &part, nullptr))
                std::exit(complain(transferFailed, "standard output cannot be written any more"));
        if (status == SHMQUEUE_OK)
            progress.moved(length);
        return status;
    }
};

void destroy(ShmQueue *queue)
{
    twice([&] { return ShmQueueDestroy(queue); });
}

// ---- client ----

/// Waits for something to read, and for room too if something is left to send. A client always waits to
/// read as well: a listener that goes away wakes only readers.
uint32_t sleep(ShmQueue *queue, bool wantsRoom)
{
    uint32_t flags = wantsRoom ? SHMQUEUE_SELECT_READ | SHMQUEUE_SELECT_WRITE : SHMQUEUE_SELECT_READ;
    uint32_t ready = 0;
    return twice([&] { return ShmQueueSelect(queue, &flags, INFINITE, &ready); });
}

uint32_t receive(ShmQueue *queue, Block &incoming, Progress &progress)
{
    uint32_t status = SHMQUEUE_OK;
    while (status == SHMQUEUE_OK) {
        status = incoming.passOn(queue, progress);
        if (status == SHMQUEUE_EMPTY)
            status = sleep(queue, false);
    }
    return status; // SHMQUEUE_CLOSED once everything has arrived
}

uint32_t send(ShmQueue *queue, Block &outgoing, Block &incoming, Progress &progress)
{
    while (outgoing.refill(GetStdHandle(STD_INPUT_HANDLE))) {
        uint32_t status = outgoing.addTo(queue, progress);
        if (status == SHMQUEUE_FULL)
            status = sleep(queue, true);
        if (status != SHMQUEUE_OK)
            return status;
        status = incoming.passOn(queue, progress);
        if (status != SHMQUEUE_OK && status != SHMQUEUE_EMPTY)
            return status;
    }
    return SHMQUEUE_OK;
}

int runClient(const Options &options)
{
    ShmQueue *queue = ShmQueueConnect(options.name.c_str());
    if (queue == nullptr)
        return complain(noConnection, "nobody listens on " + options.name + "; start one: shmcat -l " + options.name);
    Progress progress(options.verbose);
    Block outgoing(256 * 1024), incoming(256 * 1024);
    uint32_t status = options.receive ? receive(queue, incoming, progress) : send(queue, outgoing, incoming, progress);
    progress.finish();
    destroy(queue);
    if (status == SHMQUEUE_CLOSED && !options.receive)
        return complain(transferFailed, "the listener closed the connection before everything was sent");
    if (status == SHMQUEUE_BAD_HANDLE)
        return complain(transferFailed, "the connection broke: the system refuses to serve it");
    return allMoved;
}

// ---- server ----

enum class Outcome { goesOn, finished, failed };

/// One accepted connection, driven by its events.
struct Client {
    ShmQueue *queue;
    uint32_t number;
    HANDLE file; ///< what is sent; null to receive
    Block block;
    bool peerIsGone = false;

    Client(ShmQueue *connection, uint32_t connectionNumber, HANDLE opened, uint32_t ringSize)
        : queue(connection), number(connectionNumber), file(opened), block(ringSize)
    {
        uint32_t workEvent = SHMQUEUE_EVENT_READ;
        if (file != nullptr)
            workEvent = SHMQUEUE_EVENT_WRITE;
        twice([&] { return ShmQueueEventSelect(queue, SHMQUEUE_EVENT_CLOSE | workEvent); });
    }
    ~Client()
    {
        destroy(queue);
        if (file != nullptr)
            CloseHandle(file);
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    /// Called when the event object is set. Events that are raised twice are added up, so there is one
    /// enumeration per remove, and every number from CLOSE on contains a CLOSE.
    Outcome serve(Progress &progress)
    {
        uint32_t events = 0;
        if (twice([&] { return ShmQueueEnumEvents(queue, &events); }) != SHMQUEUE_OK)
            return Outcome::failed;
        peerIsGone = peerIsGone || events >= SHMQUEUE_EVENT_CLOSE;
        return file == nullptr ? takeIn(progress) : giveOut(progress);
    }

private:
    Outcome takeIn(Progress &progress)
    {
        uint32_t status = block.passOn(queue, progress);
        while (peerIsGone && status == SHMQUEUE_OK)
            status = block.passOn(queue, progress);
        if (status == SHMQUEUE_CLOSED)
            return Outcome::finished;
        bool isOver = status == SHMQUEUE_BAD_HANDLE || (status == SHMQUEUE_EMPTY && peerIsGone);
        return isOver ? Outcome::failed : Outcome::goesOn;
    }

    Outcome giveOut(Progress &progress)
    {
        while (block.refill(file)) {
            uint32_t status = block.addTo(queue, progress);
            if (status == SHMQUEUE_FULL && !peerIsGone)
                return Outcome::goesOn; // the client's next remove raises WRITE
            if (status != SHMQUEUE_OK)
                return Outcome::failed;
        }
        return Outcome::finished; // what the ring still holds can be removed after the destroy
    }
};

class Server {
public:
    Server(const Options &options, ShmQueue *listener)
        : options_(options), listener_(listener), progress_(options.verbose)
    {
        twice([&] { return ShmQueueEventSelect(listener_, SHMQUEUE_EVENT_ACCEPT); });
    }
    ~Server() { stopListening(); }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    int run()
    {
        while (listener_ != nullptr || !clients_.empty()) {
            std::vector<HANDLE> events;
            events.reserve(clients_.size() + 1);
            for (const auto &client : clients_)
                events.push_back(ShmQueueGetEvent(client->queue));
            bool accepts = listener_ != nullptr && clients_.size() < mostClients;
            if (accepts)
                events.push_back(ShmQueueGetEvent(listener_));
            DWORD outcome = WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, INFINITE);
            if (outcome >= events.size())
                return complain(transferFailed, "the system refused to wait");
            // The wait names the lowest handle only. Everybody whose event is set gets a turn.
            for (size_t i = clients_.size(); i-- > 0;)
                if (isSet(events[i]))
                    serve(i);
            if (accepts && listener_ != nullptr && isSet(events.back()))
                accept();
        }
        return failed_ ? transferFailed : allMoved;
    }

private:
    static constexpr size_t mostClients = MAXIMUM_WAIT_OBJECTS - 2;

    void stopListening()
    {
        if (listener_ != nullptr)
            destroy(listener_);
        listener_ = nullptr;
    }

    static bool isSet(HANDLE event) { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

    bool hasRequest()
    {
        uint32_t flags = SHMQUEUE_SELECT_READ, ready = 0;
        return twice([&] { return ShmQueueSelect(listener_, &flags, 0, &ready); }) == SHMQUEUE_OK && ready != 0;
    }

    void accept()
    {
        uint32_t events = 0;
        twice([&] { return ShmQueueEnumEvents(listener_, &events); });
        while (listener_ != nullptr && clients_.size() < mostClients && hasRequest()) {
            ShmQueue *queue = ShmQueueAccept(listener_, ++lastNumber_, options_.ringSize);
            if (queue == nullptr) {
                complain(transferFailed, "a client could not be accepted");
                return; // another request that waits has set the event again
            }
            HANDLE file = nullptr;
            if (!options_.file.empty())
                file = CreateFileA(options_.file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                                   nullptr);
            if (!options_.keepListening)
                stopListening();
            if (file == INVALID_HANDLE_VALUE) {
                failed_ = true;
                complain(transferFailed, "cannot read " + options_.file);
                destroy(queue);
                continue;
            }
            clients_.push_back(std::make_unique<Client>(queue, lastNumber_, file, options_.ringSize));
        }
    }

    void serve(size_t index)
    {
        Outcome outcome = clients_[index]->serve(progress_);
        if (outcome == Outcome::goesOn)
            return;
        if (outcome == Outcome::failed) {
            failed_ = true;
            complain(transferFailed,
                     "client " + std::to_string(clients_[index]->number) + " ended before everything was moved");
        }
        clients_.erase(clients_.begin() + static_cast<ptrdiff_t>(index));
        progress_.finish();
        if (listener_ != nullptr)
            accept(); // requests may have waited for room
    }

    const Options &options_;
    ShmQueue *listener_;
    Progress progress_;
    std::vector<std::unique_ptr<Client>> clients_;
    uint32_t lastNumber_ = 0;
    bool failed_ = false;
};

int runServer(const Options &options)
{
    if (!options.file.empty() && GetFileAttributesA(options.file.c_str()) == INVALID_FILE_ATTRIBUTES)
        return complain(transferFailed, "there is no file " + options.file);
    ShmQueue *listener = ShmQueueListen(options.name.c_str());
    if (listener == nullptr)
        return complain(noConnection,
                        "cannot listen on " + options.name + "; somebody else does, or the name has a backslash");
    return Server(options, listener).run();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(usage, stdout);
        return allMoved;
    }
    Options options;
    std::string wrong = parse(argc, argv, options);
    if (!wrong.empty())
        return complain(wrongUsage, wrong);
    return options.listen ? runServer(options) : runClient(options);
}

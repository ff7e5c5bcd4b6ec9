/// @file
/// A byte stream between two processes, over shmqueue.h: its ends, records in it, and a server that is fair.
///
///     general::Connection connection("spool");                            // the client
///     general::check(connection.sendRecord("a record", 5000));
///
///     struct Client : general::ServedClient {                             // the server
///         using ServedClient::ServedClient;
///         general::RecordReader<65536> input;
///     };
///     std::list<Client> clients;
///     general::Server server("spool", clients);
///     while (server.serve([](Client &client) { return client.input.receive(client.connection, print); })) {
///     }

#ifndef GENERAL_SHMQUEUE_HPP
#define GENERAL_SHMQUEUE_HPP

#include "general/core.hpp"
#include "general/shmqueue.h"

#include <cstring>
#include <string_view>

namespace general {

namespace c {
using ShmQueue = ::GENERAL_TYPE(ShmQueue);
using ShmQueueStat = ::GENERAL_TYPE(ShmQueueStat);
} // namespace c

/// @cond
namespace detail {

// The system's own, of <windows.h>, which would bring its macros to whoever includes this.
// NOLINTBEGIN(readability-redundant-declaration, bugprone-macro-parentheses): it may have been included before
#ifdef _WIN32
#define GENERAL_SYSTEM(type) __declspec(dllimport) type __stdcall
#else
#define GENERAL_SYSTEM(type) type
#endif
extern "C" {
GENERAL_SYSTEM(unsigned long) GetTickCount(void);
GENERAL_SYSTEM(void) Sleep(unsigned long);
GENERAL_SYSTEM(unsigned long) WaitForSingleObject(void *, unsigned long);
GENERAL_SYSTEM(unsigned long) WaitForMultipleObjects(unsigned long, void *const *, int, unsigned long);
}
#undef GENERAL_SYSTEM
// NOLINTEND(readability-redundant-declaration, bugprone-macro-parentheses)
inline constexpr unsigned long mostWaits = 64, waitTimeout = 258, waitFailed = 0xFFFFFFFF;

/// A peer that died inside a call makes the first destroy fail; the second one succeeds.
struct ShmQueueTraits {
    using Type = c::ShmQueue;
    static Result<c::ShmQueueStat> destroy(Type *queue)
    {
        uint32_t result = ShmQueueDestroy(queue);
        return Result<c::ShmQueueStat>(result == SHMQUEUE_OK ? result : ShmQueueDestroy(queue));
    }
};

} // namespace detail
/// @endcond

/// What a listener and a connection have.
class ShmQueueEnd : public Owner<detail::ShmQueueTraits> {
public:
    using Result = general::Result<c::ShmQueueStat>;
    using Number = Outcome<uint32_t, c::ShmQueueStat>;
    using Owner::Owner;

    /// ShmQueueSelect: sleeps until the end is ready for any of SHMQUEUE_SELECT_..., and gives those that it is ready
    /// for: 0 at a time-out, and sometimes early.
    Number select(uint32_t flags, uint32_t timeout) noexcept
    {
        return Number([&](uint32_t *ready) {
            uint32_t count = 0;
            *ready = flags;
            return ShmQueueSelect(get(), ready, timeout, &count);
        });
    }
    /// ShmQueueEventSelect: chooses the events, SHMQUEUE_EVENT_..., that the event object is set for.
    Result selectEvents(uint32_t mask) noexcept { return Result(ShmQueueEventSelect(get(), mask)); }
    /// ShmQueueEnumEvents: the events since the last call.
    Number events() noexcept
    {
        return Number([this](uint32_t *events) { return ShmQueueEnumEvents(get(), events); });
    }
    /// ShmQueueGetEvent: the Win32 event object.
    void *event() const noexcept { return ShmQueueGetEvent(get()); }
};

/// One end of a connection.
class Connection : public ShmQueueEnd {
public:
    using ShmQueueEnd::ShmQueueEnd;
    Connection() noexcept = default;
    /// ShmQueueConnect: waits until the listener of this name accepts. Empty if that fails.
    explicit Connection(const char *name) noexcept : ShmQueueEnd(adopt, ShmQueueConnect(name)) {}

    /// ShmQueueAdd: adds as many of the bytes as fit, and gives their number.
    Number write(const void *data, uint32_t size) noexcept
    {
        return Number([&](uint32_t *length) { return ShmQueueAdd(get(), data, &(*length = size)); });
    }
    /// ShmQueueRemove: removes as many bytes as there are, `size` at most, and gives their number.
    Number read(void *buffer, uint32_t size) noexcept
    {
        return Number([&](uint32_t *length) { return ShmQueueRemove(get(), buffer, &(*length = size)); });
    }
    /// Adds all of a block, waiting for room. A peer that makes none for `patience` ms: SHMQUEUE_FULL.
    Result send(const void *block, uint32_t size, uint32_t patience) noexcept
    {
        const char *next = static_cast<const char *>(block);
        unsigned long moved = detail::GetTickCount();
        while (size > 0) {
            Number added = write(next, size);
            if (added) {
                next += *added;
                size -= *added;
                moved = detail::GetTickCount();
            } else if (added.result() != SHMQUEUE_FULL || detail::GetTickCount() - moved >= patience) {
                return added.result();
            } else { // in slices: a peer that closes wakes only readers, and is seen by the next add
                select(SHMQUEUE_SELECT_WRITE, 100).result().ignore();
            }
        }
        return SHMQUEUE_OK;
    }
    /// Sends a record as RecordReader takes it: its size, four bytes, and so many bytes.
    Result sendRecord(std::string_view record, uint32_t patience) noexcept
    {
        auto size = static_cast<uint32_t>(record.size());
        Result result = send(&size, sizeof size, patience);
        return result ? send(record.data(), size, patience) : result;
    }
};

/// Who accepts connections under a name.
class Listener : public ShmQueueEnd {
public:
    using ShmQueueEnd::ShmQueueEnd;
    Listener() noexcept = default;
    /// ShmQueueListen. Empty if that fails.
    explicit Listener(const char *name) noexcept : ShmQueueEnd(adopt, ShmQueueListen(name)) {}

    /// Whether a request waits to be accepted.
    bool hasRequest() noexcept { return select(SHMQUEUE_SELECT_READ, 0).value_or(0) != 0; }
    /// ShmQueueAccept: empty if there is no request, or if it could not be served.
    Connection accept(uint32_t number, uint32_t size) noexcept
    {
        return Connection(adopt, ShmQueueAccept(get(), number, size));
    }
};

/// Puts records together again from what comes out of one connection.
template<uint32_t Longest>
class RecordReader {
public:
    /// Removes once what is there, and calls `take` with each record that is whole, a std::string_view. Who announces
    /// one that is longer than Longest is none of ours: SHMQUEUE_CLOSED. What `take` throws comes out, and its record
    /// counts as taken.
    template<typename Take>
    ShmQueueEnd::Result receive(Connection &connection, Take &&take)
    {
        auto removed = connection.read(input_ + held_, sizeof input_ - held_);
        if (!removed)
            return removed.result();
        held_ += *removed;
        Rest rest{*this};
        uint32_t size;
        while (held_ - rest.begin >= sizeof size) {
            const char *record = input_ + rest.begin + sizeof size;
            std::memcpy(&size, input_ + rest.begin, sizeof size);
            if (size > Longest)
                return SHMQUEUE_CLOSED;
            if (held_ - rest.begin - sizeof size < size)
                break;
            rest.begin += static_cast<uint32_t>(sizeof size) + size;
            take(std::string_view(record, size));
        }
        return SHMQUEUE_OK;
    }

private:
    /// @cond
    /// Moves to the front what is no whole record yet.
    struct Rest {
        RecordReader &reader;
        uint32_t begin = 0;
        ~Rest()
        {
            reader.held_ -= begin;
            std::memmove(reader.input_, reader.input_ + begin, reader.held_);
        }
    };
    /// @endcond

    uint32_t held_ = 0;
    char input_[sizeof(uint32_t) + Longest];
};

/// What a Server keeps of a client. Derive your own from it, with `using ServedClient::ServedClient`.
class ServedClient {
public:
    explicit ServedClient(Connection &&accepted) noexcept : connection(std::move(accepted)) {}
    /// Whether the client has destroyed its end or its process has ended: what is in the ring is all that still comes.
    bool isGone() const noexcept { return isGone_; }

    Connection connection;

private:
    template<typename Clients>
    friend class Server;
    unsigned long accepted_ = detail::GetTickCount();
    bool hasSpoken_ = false;
    bool isGone_ = false;
};

/// What a Server does not exceed.
struct ServerLimits {
    uint32_t ringSize = 1 << 16;   ///< bytes of each ring
    std::size_t mostClients = 200; ///< who comes then waits to be accepted
    uint32_t silence = 10000;      ///< ms; who moves nothing for so long after it was accepted never was there
};

/// Serves every client of a name alike, however busy some are. docs/shmqueue.md tells why it is written like this.
///
/// Clients is the caller's, std::list<Client> for example: any container with emplace_back, erase and size, of a type
/// that derives from ServedClient. It has to stay as long as the server.
template<typename Clients>
class Server {
    using Client = typename Clients::value_type;

public:
    /// ShmQueueListen.
    Server(const char *name, Clients &clients, const ServerLimits &limits = ServerLimits()) noexcept
        : clients_(clients), limits_(limits)
    {
        std::strncpy(name_, name, sizeof name_ - 1);
        listen();
    }

    /// Whether it listens.
    explicit operator bool() const noexcept { return static_cast<bool>(listener_); }
    /// Destroys the listener. The clients stay.
    void stopListening() noexcept { listener_ = Listener(); }

    /// Waits, a second at most, for something to do, gives a turn to each client whose event is set, and accepts new
    /// ones.
    /// @param turn  called with a client: reads once, or writes what fits, and returns the result, which is
    ///              SHMQUEUE_OK if anything was moved. A client for which it returns anything but OK, EMPTY or FULL, or
    ///              throws, is erased. For one that is gone it is called until there is nothing more to move. What it
    ///              threw comes out when everybody had his turn
    /// @param own   a Win32 object of the program's that ends the wait as well; or null
    /// @return whether there is a listener or a client
    template<typename Turn>
    bool serve(Turn &&turn, void *own = nullptr)
    {
        detail::Carrier carrier;
        wait(own);
        for (auto client = clients_.begin(); client != clients_.end();)
            client = isToStay(*client, turn, carrier) ? std::next(client) : clients_.erase(client);
        accept(carrier);
        carrier.rethrow();
        return listener_ || clients_.size() != 0;
    }

private:
    void listen() noexcept
    {
        listener_ = Listener(name_);
        listener_.selectEvents(SHMQUEUE_EVENT_ACCEPT).ignore();
    }

    void wait(void *own) const noexcept
    {
        void *waits[detail::mostWaits] = {own};
        unsigned long count = own != nullptr ? 1 : 0;
        if (listener_)
            waits[count++] = listener_.event();
        unsigned long timeout = 1000;
        for (const Client &client : clients_) {
            if (count == detail::mostWaits) {
                timeout = 10; // who does not fit into the wait is looked after in short turns
                break;
            }
            waits[count++] = client.connection.event();
        }
        if (detail::WaitForMultipleObjects(count, waits, 0, timeout) == detail::waitFailed)
            detail::Sleep(10); // somebody has closed an event that is not his: the turns still serve all
    }

    /// The wait names the lowest handle only: everybody is looked at.
    template<typename Turn>
    bool isToStay(Client &client, Turn &turn, detail::Carrier &carrier)
    {
        if (detail::WaitForSingleObject(client.connection.event(), 0) == detail::waitTimeout)
            return client.hasSpoken_ || detail::GetTickCount() - client.accepted_ <= limits_.silence;
        auto events = client.connection.events();
        client.isGone_ = client.isGone_ || !events || *events >= SHMQUEUE_EVENT_CLOSE;
        ShmQueueEnd::Result result = SHMQUEUE_OK;
        do { // a ring that gets no more is drained
            result = SHMQUEUE_CLOSED;
            carrier.guard([&] { result = turn(client); });
            client.hasSpoken_ = client.hasSpoken_ || result;
        } while (client.isGone_ && result);
        return !client.isGone_ && (result || result == SHMQUEUE_EMPTY || result == SHMQUEUE_FULL);
    }

    /// Accepts who waits, a few at a time.
    void accept(detail::Carrier &carrier)
    {
        listener_.events().result().ignore(); // resets the event object; the rings say what is to be done
        for (int few = 16; few > 0 && clients_.size() < limits_.mostClients && listener_.hasRequest(); --few) {
            Connection connection = listener_.accept(++number_, limits_.ringSize);
            bool isTaken = false;
            if (connection) {
                connection.selectEvents(SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_CLOSE).ignore();
                carrier.guard([&] {
                    clients_.emplace_back(std::move(connection));
                    isTaken = true;
                });
            }
            refusals_ = isTaken ? 0 : refusals_ + 1;
            if (!isTaken)
                break; // perhaps the number is in use: the next one will do, in the next turn
        }
        if (refusals_ > 100) { // its segment was damaged on purpose
            stopListening();
            listen();
            refusals_ = 0;
        }
    }

    Clients &clients_;
    ServerLimits limits_;
    Listener listener_;
    char name_[17] = {};                                  // one that is too long stays so
    uint32_t number_ = detail::GetTickCount() & 0xFFFFFF; // clients of a server before this may hold low numbers
    int refusals_ = 0;
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::ShmQueueStat> = "ShmQueueStat";
/// @endcond
#endif

} // namespace general

#endif

/// @file
/// Three ways to carry a byte stream between two processes, behind one face.

#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace bench {

/// A duplex byte stream. A failure ends the program with a message.
class Channel {
public:
    virtual ~Channel() = default;
    /// Sends everything; sleeps while there is no room.
    virtual void send(const void *data, uint32_t length) = 0;
    /// Receives at least one byte; sleeps while there is none. 0 once the peer has gone.
    virtual uint32_t receive(void *buffer, uint32_t length) = 0;
};

/// The waiting end of a connection, made before its peer is started.
class Listener {
public:
    virtual ~Listener() = default;
    virtual std::unique_ptr<Channel> accept() = 0;
    /// What connect() needs to know.
    virtual std::string address() const = 0;
};

enum Transport { general, namedPipe, tcp, generalByEvent }; ///< the queue's ends wait in select, or on the event

/// @param capacity   bytes that a direction is to buffer
std::unique_ptr<Listener> listen(Transport transport, uint32_t capacity);
std::unique_ptr<Channel> connect(Transport transport, const std::string &address, uint32_t capacity);

} // namespace bench

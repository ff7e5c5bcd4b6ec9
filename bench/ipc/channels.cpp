#include "bench/ipc/channels.h"

#include "general/shmqueue.h"

#include <winsock2.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

void require(bool holds, const char *what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s failed (error %lu)\n", what, GetLastError());
    std::exit(1);
}

std::string uniqueName()
{
    return "b" + std::to_string(GetCurrentProcessId());
}

// ---- shared-memory queue ----

class ShmChannel : public Channel {
public:
    ShmChannel(ShmQueue *queue, bool waitsOnEvent) : queue_(queue), waitsOnEvent_(waitsOnEvent)
    {
        require(queue_ != nullptr, "ShmQueueConnect or -Accept");
        uint32_t events = waitsOnEvent ? SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_WRITE | SHMQUEUE_EVENT_CLOSE : 0;
        require(ShmQueueEventSelect(queue_, events) == SHMQUEUE_OK, "ShmQueueEventSelect");
    }
    ~ShmChannel() override { ShmQueueDestroy(queue_); }

    void send(const void *data, uint32_t length) override
    {
        auto *bytes = static_cast<const char *>(data);
        while (length > 0) {
            uint32_t part = length;
            uint32_t status = ShmQueueAdd(queue_, bytes, &part);
            if (status == SHMQUEUE_FULL) {
                sleep(SHMQUEUE_SELECT_WRITE);
                continue;
            }
            require(status == SHMQUEUE_OK, "ShmQueueAdd");
            bytes += part;
            length -= part;
        }
    }
    /// A remove that had room to spare has drained the ring: the next one sleeps first.
    uint32_t receive(void *buffer, uint32_t length) override
    {
        for (;;) {
            if (isDrained_)
                sleep(SHMQUEUE_SELECT_READ);
            uint32_t part = length;
            uint32_t status = ShmQueueRemove(queue_, buffer, &part);
            isDrained_ = part < length;
            if (status != SHMQUEUE_EMPTY)
                return status == SHMQUEUE_OK ? part : 0;
        }
    }

private:
    void sleep(uint32_t flags)
    {
        uint32_t out = 0;
        if (!waitsOnEvent_) {
            require(ShmQueueSelect(queue_, &flags, INFINITE, &out) == SHMQUEUE_OK, "ShmQueueSelect");
            return;
        }
        WaitForSingleObject(ShmQueueGetEvent(queue_), INFINITE);
        require(ShmQueueEnumEvents(queue_, &out) == SHMQUEUE_OK, "ShmQueueEnumEvents");
    }

    ShmQueue *queue_;
    bool waitsOnEvent_;
    bool isDrained_ = true;
};

class ShmListener : public Listener {
public:
    ShmListener(uint32_t capacity, bool waitsOnEvent)
        : capacity_(capacity), waitsOnEvent_(waitsOnEvent), listener_(ShmQueueListen(uniqueName().c_str()))
    {
        require(listener_ != nullptr, "ShmQueueListen");
    }
    ~ShmListener() override { ShmQueueDestroy(listener_); }
    std::unique_ptr<Channel> accept() override
    {
        uint32_t flags = SHMQUEUE_SELECT_READ, ready = 0;
        require(ShmQueueSelect(listener_, &flags, INFINITE, &ready) == SHMQUEUE_OK, "ShmQueueSelect");
        return std::make_unique<ShmChannel>(ShmQueueAccept(listener_, 1, capacity_), waitsOnEvent_);
    }
    std::string address() const override { return uniqueName(); }

private:
    uint32_t capacity_;
    bool waitsOnEvent_;
    ShmQueue *listener_;
};

// ---- named pipe ----

class PipeChannel : public Channel {
public:
    explicit PipeChannel(HANDLE pipe) : pipe_(pipe) { require(pipe_ != INVALID_HANDLE_VALUE, "CreateFile"); }
    ~PipeChannel() override { CloseHandle(pipe_); }
    void send(const void *data, uint32_t length) override
    {
        auto *bytes = static_cast<const char *>(data);
        for (DWORD done = 0; length > 0; bytes += done, length -= done)
            require(WriteFile(pipe_, bytes, length, &done, nullptr), "WriteFile");
    }
    uint32_t receive(void *buffer, uint32_t length) override
    {
        DWORD done = 0;
        return ReadFile(pipe_, buffer, length, &done, nullptr) ? done : 0;
    }

private:
    HANDLE pipe_;
};

class PipeListener : public Listener {
public:
    explicit PipeListener(uint32_t capacity)
        : pipe_(CreateNamedPipeA(address().c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT,
                                 1, capacity, capacity, 0, nullptr))
    {
        require(pipe_ != INVALID_HANDLE_VALUE, "CreateNamedPipe");
    }
    std::unique_ptr<Channel> accept() override
    {
        require(ConnectNamedPipe(pipe_, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED, "ConnectNamedPipe");
        return std::make_unique<PipeChannel>(pipe_); // which closes it
    }
    std::string address() const override { return "\\\\.\\pipe\\" + uniqueName(); }

private:
    HANDLE pipe_;
};

// ---- TCP ----

class TcpChannel : public Channel {
public:
    TcpChannel(SOCKET connected, uint32_t capacity) : socket_(connected)
    {
        int bytes = static_cast<int>(capacity), yes = 1;
        setsockopt(socket_, SOL_SOCKET, SO_SNDBUF, reinterpret_cast<char *>(&bytes), sizeof bytes);
        setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<char *>(&bytes), sizeof bytes);
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char *>(&yes), sizeof yes);
    }
    ~TcpChannel() override { closesocket(socket_); }
    void send(const void *data, uint32_t length) override
    {
        auto *bytes = static_cast<const char *>(data);
        for (int done = 0; length > 0; bytes += done, length -= static_cast<uint32_t>(done)) {
            done = ::send(socket_, bytes, static_cast<int>(length), 0);
            require(done > 0, "send");
        }
    }
    uint32_t receive(void *buffer, uint32_t length) override
    {
        int done = recv(socket_, static_cast<char *>(buffer), static_cast<int>(length), 0);
        return done > 0 ? static_cast<uint32_t>(done) : 0;
    }

private:
    SOCKET socket_;
};

sockaddr_in loopback(const std::string &port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<u_short>(std::atoi(port.c_str())));
    return address;
}

SOCKET newSocket()
{
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    SOCKET made = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    require(made != INVALID_SOCKET, "socket");
    return made;
}

class TcpListener : public Listener {
public:
    explicit TcpListener(uint32_t capacity) : capacity_(capacity), socket_(newSocket())
    {
        sockaddr_in any = loopback("0");
        require(bind(socket_, reinterpret_cast<sockaddr *>(&any), sizeof any) == 0, "bind");
        require(::listen(socket_, 1) == 0, "listen");
    }
    ~TcpListener() override { closesocket(socket_); }
    std::unique_ptr<Channel> accept() override
    {
        SOCKET connected = ::accept(socket_, nullptr, nullptr);
        require(connected != INVALID_SOCKET, "accept");
        return std::make_unique<TcpChannel>(connected, capacity_);
    }
    std::string address() const override
    {
        sockaddr_in bound{};
        int size = sizeof bound;
        getsockname(socket_, reinterpret_cast<sockaddr *>(&bound), &size);
        return std::to_string(ntohs(bound.sin_port));
    }

private:
    uint32_t capacity_;
    SOCKET socket_;
};

SOCKET connectedSocket(const std::string &port)
{
    SOCKET made = newSocket();
    sockaddr_in server = loopback(port);
    require(connect(made, reinterpret_cast<sockaddr *>(&server), sizeof server) == 0, "connect");
    return made;
}

} // namespace

std::unique_ptr<Listener> listen(Transport transport, uint32_t capacity)
{
    if (transport == general || transport == generalByEvent)
        return std::make_unique<ShmListener>(capacity, transport == generalByEvent);
    if (transport == tcp)
        return std::make_unique<TcpListener>(capacity);
    return std::make_unique<PipeListener>(capacity);
}

std::unique_ptr<Channel> connect(Transport transport, const std::string &address, uint32_t capacity)
{
    if (transport == general || transport == generalByEvent)
        return std::make_unique<ShmChannel>(ShmQueueConnect(address.c_str()), transport == generalByEvent);
    if (transport == tcp)
        return std::make_unique<TcpChannel>(connectedSocket(address), capacity);
    return std::make_unique<PipeChannel>(
        CreateFileA(address.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

} // namespace bench

#include "base/crt_stdio.h"

#include "ipc/shm_objects.h"

#include "base/handle_magic.h"
#include "base/module_id.h"

#include <stdlib.h>
#include <string.h>

#include <initializer_list>

GENERAL_MODULE_ID("$Id$");

namespace general::shm {

namespace {

struct ObjectName {
    char text[sizeof(Prefix) + sizeof "ProcessWaitEvent"];
};

ObjectName objectName(const Prefix &prefix, const char *suffix)
{
    ObjectName name;
    snprintf(name.text, sizeof name.text, "%s%s", prefix.text, suffix);
    return name;
}

void closeIfOpen(HANDLE handle)
{
    if (handle != nullptr)
        CloseHandle(handle);
}

RingHeader *ringAt(const ShmQueue *queue, uint32_t offset)
{
    return reinterpret_cast<RingHeader *>(queue->view + offset);
}

} // namespace

Prefix initPrefix(const char *name)
{
    Prefix prefix;
    snprintf(prefix.text, sizeof prefix.text, "QVSShmInit%.15s", name);
    return prefix;
}

Prefix connectionPrefix(const char *name, uint32_t number)
{
    Prefix prefix;
    snprintf(prefix.text, sizeof prefix.text, "QVSShm%.15s%02d", name, static_cast<int>(number));
    return prefix;
}

AccessForAll::AccessForAll()
    : attributes_{.nLength = sizeof attributes_,
                  .lpSecurityDescriptor = malloc(SECURITY_DESCRIPTOR_MIN_LENGTH),
                  .bInheritHandle = FALSE}
{
    void *descriptor = attributes_.lpSecurityDescriptor;
    isReady_ = descriptor != nullptr && InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION) &&
               SetSecurityDescriptorDacl(descriptor, TRUE, nullptr, FALSE);
    // Windows 95, 98 and ME have no access rights to set: there everybody has full access anyway.
    if (descriptor != nullptr && !isReady_ && GetLastError() == ERROR_CALL_NOT_IMPLEMENTED) {
        free(descriptor);
        attributes_.lpSecurityDescriptor = nullptr;
        isReady_ = true;
    }
}

AccessForAll::~AccessForAll()
{
    free(attributes_.lpSecurityDescriptor);
}

HANDLE SegmentObjects::mapping(uint32_t size)
{
    if (attributes_ == nullptr)
        return OpenFileMappingA(FILE_MAP_WRITE, FALSE, prefix_.text);
    SetLastError(ERROR_SUCCESS);
    return checked(CreateFileMappingA(INVALID_HANDLE_VALUE, attributes_, PAGE_READWRITE, 0, size, prefix_.text));
}

HANDLE SegmentObjects::mutex()
{
    SetLastError(ERROR_SUCCESS);
    return checked(CreateMutexA(attributes_, FALSE, objectName(prefix_, "Mutex").text));
}

HANDLE SegmentObjects::event(const char *suffix, bool isManualReset)
{
    SetLastError(ERROR_SUCCESS);
    return checked(CreateEventA(attributes_, isManualReset, FALSE, objectName(prefix_, suffix).text));
}

/// What is to be made must not have been there.
HANDLE SegmentObjects::checked(HANDLE object)
{
    if (attributes_ == nullptr || object == nullptr || GetLastError() != ERROR_ALREADY_EXISTS)
        return object;
    CloseHandle(object);
    clashed_ = true;
    return nullptr;
}

ShmQueue *newQueue()
{
    return static_cast<ShmQueue *>(calloc(1, sizeof(ShmQueue)));
}

void release(ShmQueue *queue)
{
    if (queue == nullptr)
        return;
    for (HANDLE event : {queue->peerEvent, queue->ownEvent, queue->peerWake, queue->ownWake})
        closeIfOpen(event);
    closeIfOpen(queue->mutex);
    if (queue->view != nullptr)
        UnmapViewOfFile(queue->view);
    closeIfOpen(queue->mapping);
    for (HANDLE other : {queue->watcherThread, queue->endedWatcher, queue->processWaitEvent, queue->presence})
        closeIfOpen(other);
    closeIfOpen(queue->hasPresence); // after the mapping: a segment that can be opened still says so
    general::clearMagic(queue->tag);
    free(queue);
}

HANDLE openEvent(const Prefix &prefix, const char *suffix)
{
    return OpenEventA(SYNCHRONIZE, FALSE, objectName(prefix, suffix).text);
}

bool isHeldBySomebody(const Prefix &prefix, const char *suffix)
{
    HANDLE event = openEvent(prefix, suffix);
    if (event == nullptr)
        return GetLastError() != ERROR_FILE_NOT_FOUND;
    CloseHandle(event);
    return true;
}

bool mapView(ShmQueue *queue, uint32_t size)
{
    queue->view = static_cast<uint8_t *>(MapViewOfFile(queue->mapping, FILE_MAP_WRITE, 0, 0, size));
    if (queue->view == nullptr)
        return false;
    MEMORY_BASIC_INFORMATION memory{};
    return VirtualQuery(queue->view, &memory, sizeof memory) != 0 && memory.State == MEM_COMMIT &&
           memory.Type != MEM_IMAGE && memory.Protect == PAGE_READWRITE && memory.RegionSize >= size;
}

void placeRings(ShmQueue *queue, uint32_t firstOffset, uint32_t capacity, bool isMaker)
{
    RingHeader *first = ringAt(queue, firstOffset);
    RingHeader *second = ringAt(queue, firstOffset + ringSize(capacity));
    queue->sendRing = isMaker ? first : second;
    queue->recvRing = isMaker ? second : first;
    queue->capacity = capacity;
}

void initialiseRings(const ShmQueue *queue)
{
    for (RingHeader *ring : {queue->sendRing, queue->recvRing}) {
        memset(reinterpret_cast<uint8_t *>(ring), 0, sizeof *ring);
        ring->end = queue->capacity;
    }
}

} // namespace general::shm

/// @file
/// The thread that looks after an accepted connection.

#pragma once

#include "ipc/shm_objects.h"

namespace general::shm {

/// Makes the event that wakes a connection's watcher, and starts the watcher. It waits for the connector's
/// process to announce itself and then to end; ShmQueueDestroy sends it home.
bool startWatcher(ShmQueue *connection, SegmentObjects &objects);

} // namespace general::shm

/// @file
/// The thread that looks after one end of a connection. Until it ends, nothing that it uses is released:
/// ShmQueueDestroy sends it home and waits for its end.

#pragma once

#include "ipc/shm_segment.h"

namespace general::shm {

/// Starts the watcher of an accepted connection, whose event to wake it is there. It waits for the
/// connector's process to announce itself and then to end.
bool startWatcher(ShmQueue *connection);

/// Starts the watcher of a connecting end: it waits until the acceptor is gone.
bool watchAcceptor(ShmQueue *connection);

} // namespace general::shm

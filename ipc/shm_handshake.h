/// @file
/// What an accepted connection still has to do with the handshake until its client has come.

#pragma once

#include "ipc/shm_segment.h"

namespace general::shm {

/// Gives the signal that a connection's accept owes to a waiting client, unless the one before is still not
/// seen or the mutex is taken.
/// @return whether the signal is still owed
bool stillOwesSignal(const ShmQueue *connection);

/// Takes the reply of a connection that no client has claimed out of the init segment: the next client would
/// take it for its own.
void takeReplyBack(const ShmQueue *connection);

} // namespace general::shm

/// @file
/// The whole interface of the library.

#ifndef GENERAL_H
#define GENERAL_H

#include "general/chrono.h"
#include "general/geometry.h"
#include "general/list.h"
#include "general/perf.h"
#include "general/processor.h"
#include "general/queue.h"
#include "general/redblack.h"
#include "general/shmqueue.h"
#include "general/spline.h"
#include "general/stack.h"
#include "general/system.h"
#include "general/version.h"

#endif

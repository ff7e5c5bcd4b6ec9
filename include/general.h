/// @file
/// The whole interface of the library.

#ifndef GENERAL_H
#define GENERAL_H

#include "general/action.h"
#include "general/arraylst.h"
#include "general/bufpool.h"
#include "general/cache.h"
#include "general/cbuf.h"
#include "general/chrono.h"
#include "general/debug_output.h"
#include "general/dynld.h"
#include "general/errortext.h"
#include "general/fp.h"
#include "general/geometry.h"
#include "general/getopt.h"
#include "general/glob.h"
#include "general/keycall.h"
#include "general/list.h"
#include "general/mail.h"
#include "general/map.h"
#include "general/message_log.h"
#include "general/perf.h"
#include "general/pqueue.h"
#include "general/processor.h"
#include "general/queue.h"
#include "general/redblack.h"
#include "general/refcounter.h"
#include "general/shmqueue.h"
#include "general/spline.h"
#include "general/stack.h"
#include "general/stacktrace.h"
#include "general/strings.h"
#include "general/strlist.h"
#include "general/strvec.h"
#include "general/system.h"
#include "general/validators.h"
#include "general/version.h"
#include "general/verystupidfunction.h"
#include "general/vstr.h"

#endif

/// @file
/// The whole interface of the library.

#ifndef GENERAL_H
#define GENERAL_H

#include "general/fp.h"
#include "general/getopt.h"
#include "general/glob.h"
#include "general/list.h"
#include "general/queue.h"
#include "general/redblack.h"
#include "general/stack.h"
#include "general/strings.h"
#include "general/version.h"

#endif

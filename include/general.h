/// @file
/// The whole interface of the library.

#ifndef GENERAL_H
#define GENERAL_H

#include "general/list.h"
#include "general/queue.h"
#include "general/redblack.h"
#include "general/spline.h"
#include "general/stack.h"
#include "general/version.h"

#endif

/// @file
/// The whole interface for C++. docs/cpp.md is the guide.

#ifndef GENERAL_GENERAL_HPP
#define GENERAL_GENERAL_HPP

#include "general/buffers.hpp"
#include "general/cache.hpp"
#include "general/geometry.hpp"
#include "general/list.hpp"
#include "general/map.hpp"
#include "general/options.hpp"
#include "general/perf.hpp"
#include "general/queue.hpp"
#include "general/registry.hpp"
#include "general/shmqueue.hpp"
#include "general/spline.hpp"
#include "general/text.hpp"
#include "general/trace.hpp"
#include "general/tree.hpp"

#endif

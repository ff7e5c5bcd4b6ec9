/// @file
/// The whole interface for C++. docs/cpp.md is the guide.

#ifndef GENERAL_GENERAL_HPP
#define GENERAL_GENERAL_HPP

#include "general/queue.hpp"

#endif

/// @file
/// The version of the interface that these headers describe.

#ifndef GENERAL_VERSION_H
#define GENERAL_VERSION_H

#define GENERAL_VERSION_MAJOR 0
#define GENERAL_VERSION_MINOR 1
#define GENERAL_VERSION_PATCH 0

#endif

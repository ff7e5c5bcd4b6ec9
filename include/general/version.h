/// @file
/// The version of the interface that these headers describe.

#ifndef GENERAL_VERSION_H
#define GENERAL_VERSION_H

#define GENERAL_VERSION_MAJOR 1 ///< goes up when programs have to be built again
#define GENERAL_VERSION_MINOR 0 ///< goes up when something is added
#define GENERAL_VERSION_PATCH 0 ///< goes up when something is mended

#endif

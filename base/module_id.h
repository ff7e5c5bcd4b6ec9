/// @file
/// The identification string that every source module carries in the binary.
///
/// git expands "$Id$" on checkout, so `strings general.dll` lists the modules that a DLL was built
/// from together with the content hash of each.

#pragma once

#define GENERAL_MODULE_ID(id) [[gnu::used]] static const char moduleId[] = "@(#)" __FILE__ " " id

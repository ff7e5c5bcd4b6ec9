/// @file
/// The bookkeeping behind HeapWatch, fed by whatever catches the library's heap calls in each build.
/// Internal to the test support library.

#pragma once

#include <cstddef>

namespace test_support {

using MallocFunction = void *(std::size_t size);
using CallocFunction = void *(std::size_t count, std::size_t size);
using ReallocFunction = void *(void *block, std::size_t size);
using FreeFunction = void(void *block);

/// Begin and end the catching of heap calls.
void catchHeapCalls();
void releaseHeapCalls();

/// What a caught call does: counts, fails when it is its turn, else calls the real function.
void *watchedMalloc(std::size_t size, MallocFunction *real);
void *watchedCalloc(std::size_t count, std::size_t size, CallocFunction *real);
void *watchedRealloc(void *block, std::size_t size, ReallocFunction *real);
void watchedFree(void *block, FreeFunction *real);

} // namespace test_support

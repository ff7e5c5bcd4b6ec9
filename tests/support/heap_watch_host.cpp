#include "tests/support/heap_watch_record.h"

// The test programs are linked with --wrap for these four, so every call passes here; only those
// made while a watch is active are counted.

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);

void *__wrap_malloc(std::size_t size)
{
    return test_support::watchedMalloc(size, &__real_malloc);
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return test_support::watchedCalloc(count, size, &__real_calloc);
}

void *__wrap_realloc(void *block, std::size_t size)
{
    return test_support::watchedRealloc(block, size, &__real_realloc);
}

void __wrap_free(void *block)
{
    test_support::watchedFree(block, &__real_free);
}
}

namespace test_support {

void catchHeapCalls() {}

void releaseHeapCalls() {}

} // namespace test_support

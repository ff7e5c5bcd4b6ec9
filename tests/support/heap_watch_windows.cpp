#include "tests/support/heap_watch_record.h"
#include "tests/support/import_hook.h"

#include <cstdlib>
#include <optional>

namespace test_support {

namespace {

void *hookedMalloc(std::size_t size)
{
    return watchedMalloc(size, &std::malloc);
}

void *hookedCalloc(std::size_t count, std::size_t size)
{
    return watchedCalloc(count, size, &std::calloc);
}

void *hookedRealloc(void *block, std::size_t size)
{
    return watchedRealloc(block, size, &std::realloc);
}

void hookedFree(void *block)
{
    watchedFree(block, &std::free);
}

struct HeapHooks {
    ImportHook mallocHook{"malloc", &hookedMalloc};
    ImportHook callocHook{"calloc", &hookedCalloc};
    ImportHook reallocHook{"realloc", &hookedRealloc};
    ImportHook freeHook{"free", &hookedFree};
};

std::optional<HeapHooks> hooks;

} // namespace

void catchHeapCalls()
{
    hooks.emplace();
}

void releaseHeapCalls()
{
    hooks.reset();
}

} // namespace test_support

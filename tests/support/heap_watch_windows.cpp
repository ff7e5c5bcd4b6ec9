#include "tests/support/heap_watch_record.h"
#include "tests/support/import_hook.h"

#include <cstdlib>
#include <optional>

namespace test_support {

namespace {

struct HeapHooks {
    ImportHook mallocHook{"malloc", +[](std::size_t size) { return watchedMalloc(size, &std::malloc); }};
    ImportHook callocHook{
        "calloc", +[](std::size_t count, std::size_t size) { return watchedCalloc(count, size, &std::calloc); }};
    ImportHook reallocHook{"realloc",
                           +[](void *block, std::size_t size) { return watchedRealloc(block, size, &std::realloc); }};
    ImportHook freeHook{"free", +[](void *block) { watchedFree(block, &std::free); }};
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

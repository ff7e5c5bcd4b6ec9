#include "tests/support/heap_watch.h"

#include "tests/support/fault_count.h"
#ifdef _WIN32
#include "tests/support/import_hook.h"
#endif

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

extern "C" {
#ifdef _WIN32
// The DLL's imports are hooked.
constexpr auto *__real_malloc = &std::malloc;
constexpr auto *__real_calloc = &std::calloc;
constexpr auto *__real_realloc = &std::realloc;
constexpr auto *__real_free = &std::free;
#else
// The test programs are linked with --wrap, which gives the four functions these names.
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);
#endif

void *__wrap_malloc(std::size_t size)
{
    return test_support::HeapWatch::allocate(size, nullptr, [=] { return __real_malloc(size); });
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return test_support::HeapWatch::allocate(count * size, nullptr, [=] { return __real_calloc(count, size); });
}

void *__wrap_realloc(void *block, std::size_t size)
{
    return test_support::HeapWatch::allocate(size, block, [=] { return __real_realloc(block, size); });
}

void __wrap_free(void *block)
{
    test_support::HeapWatch::release(block);
    __real_free(block);
}
}

namespace test_support {

static std::mutex lock; // the library frees in threads too

struct HeapWatch::Hooks {
#ifdef _WIN32
    ImportHook mallocHook{"malloc", __wrap_malloc};
    ImportHook callocHook{"calloc", __wrap_calloc};
    ImportHook reallocHook{"realloc", __wrap_realloc};
    ImportHook freeHook{"free", __wrap_free};
#endif
};

HeapWatch::HeapWatch(int failingAllocation) : failingAllocation_(failingAllocation), hooks_(std::make_shared<Hooks>())
{
    active_ = this;
}

HeapWatch::~HeapWatch()
{
    hooks_.reset();
    active_ = nullptr;
    if (failed())
        countFault("allocations_failed");
}

void *HeapWatch::allocate(std::size_t size, void *former, const std::function<void *()> &real)
{
    if (active_ == nullptr)
        return real();
    std::lock_guard guard(lock);
    active_->lastSize_ = size;
    if (++active_->allocations_ == active_->failingAllocation_) {
        active_->failedUnasked_ = true;
        return nullptr;
    }
    void *block = real();
    if (block != nullptr || size == 0) // of nothing, a reallocation frees
        active_->sizes_.erase(former);
    if (block != nullptr)
        active_->sizes_[block] = size;
    return block;
}

void HeapWatch::release(void *block)
{
    if (active_ == nullptr)
        return;
    std::lock_guard guard(lock);
    auto found = active_->sizes_.find(block);
    if (found == active_->sizes_.end())
        return;
    std::memset(active_->lastFreed_, 0, sizeof active_->lastFreed_);
    std::memcpy(active_->lastFreed_, block, std::min(found->second, sizeof active_->lastFreed_));
    active_->sizes_.erase(found);
}

} // namespace test_support

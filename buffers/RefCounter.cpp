#include "base/module_id.h"

#include "general/refcounter.h"

#include <stddef.h>
#include <stdlib.h>

#include <utility>

GENERAL_MODULE_ID("$Id$");

struct RefCounter {
    void *value;
    RefCounterRelease release; ///< null while it runs
    void *context;
    uint32_t count;
};

static_assert(offsetof(RefCounter, release) == 4 && offsetof(RefCounter, context) == 8);
static_assert(offsetof(RefCounter, count) == 12 && sizeof(RefCounter) == 16);

RefCounter *RefCounterCreate(void *value, RefCounterRelease release, void *context)
{
    auto *counter = static_cast<RefCounter *>(malloc(sizeof(RefCounter)));
    if (counter != nullptr)
        *counter = RefCounter{.value = value, .release = release, .context = context, .count = 1};
    return counter;
}

void *RefCounterGetValue(const RefCounter *counter)
{
    return counter->value;
}

uint32_t RefCounterGetReferenceCount(const RefCounter *counter)
{
    return counter->count;
}

RefCounter *RefCounterAddReference(RefCounter *counter)
{
    ++counter->count;
    return counter;
}

void RefCounterReleaseReference(RefCounter *counter)
{
    if (counter->count == 0 || --counter->count != 0)
        return;
    RefCounterRelease release = std::exchange(counter->release, nullptr);
    if (release == nullptr)
        return; // a reference that the callback took, and dropped again: the counter is on its way already
    release(counter->value, counter->context);
    free(counter);
}

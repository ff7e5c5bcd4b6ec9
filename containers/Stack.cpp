#include "base/checked_size.h"
#include "base/element_copy.h"
#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/stack.h"

#include <stddef.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

struct Stack {
    uint32_t magic;
    uint32_t capacity; ///< element slots
    uint32_t elementSize;
    uint32_t count;
    unsigned char *storage;
};

static_assert(offsetof(Stack, capacity) == 4 && offsetof(Stack, elementSize) == 8);
static_assert(offsetof(Stack, count) == 12 && offsetof(Stack, storage) == 16 && sizeof(Stack) == 20);

namespace {

constexpr uint32_t stackMagic = 0x53746131;
constexpr uint32_t initialCapacity = 20;
constexpr uint32_t growthStep = 10;

bool isLive(const Stack *stack)
{
    return stack != nullptr && stack->magic == stackMagic;
}

unsigned char *slot(const Stack *stack, uint32_t index)
{
    return general::elementAt(stack->storage, index, stack->elementSize);
}

bool grow(Stack *stack)
{
    size_t size = 0;
    if (!general::checkedProduct(stack->capacity + growthStep, stack->elementSize, size))
        return false;
    void *storage = realloc(stack->storage, size);
    if (storage == nullptr)
        return false;
    stack->storage = static_cast<unsigned char *>(storage);
    stack->capacity += growthStep;
    return true;
}

/// Pushes an element of any size, growing the storage first if it is full.
[[gnu::noinline]] StackStat push(Stack *stack, const void *element)
{
    if (stack->count == stack->capacity && !grow(stack))
        return STACK_NO_MEMORY;
    general::copyElement(slot(stack, stack->count), element, stack->elementSize);
    ++stack->count;
    return STACK_OK;
}

/// Pops an element of any size.
[[gnu::noinline]] StackStat pop(Stack *stack, void *element)
{
    --stack->count;
    general::copyElement(element, slot(stack, stack->count), stack->elementSize);
    return STACK_OK;
}

} // namespace

Stack *StackCreate(uint32_t elementSize)
{
    size_t size = 0;
    if (elementSize == 0 || !general::checkedProduct(initialCapacity, elementSize, size))
        return nullptr;
    auto *stack = static_cast<Stack *>(malloc(sizeof(Stack)));
    auto *storage = static_cast<unsigned char *>(malloc(size));
    if (stack == nullptr || storage == nullptr) {
        free(stack);
        free(storage);
        return nullptr;
    }
    *stack = Stack{
        .magic = stackMagic, .capacity = initialCapacity, .elementSize = elementSize, .count = 0, .storage = storage};
    return stack;
}

uint32_t StackDestroy(Stack *stack)
{
    if (!isLive(stack))
        return STACK_BAD_HANDLE;

    general::clearMagic(stack->magic);
    free(stack->storage);
    free(stack);
    return STACK_OK;
}

uint32_t StackLength(const Stack *stack, uint32_t *length)
{
    if (!isLive(stack))
        return STACK_BAD_HANDLE;
    if (length == nullptr)
        return STACK_BAD_ARG;

    *length = stack->count;
    return STACK_OK;
}

uint32_t StackAdd(Stack *stack, const void *element)
{
    if (!isLive(stack))
        return STACK_BAD_HANDLE;
    if (element == nullptr)
        return STACK_BAD_ARG;
    if (stack->elementSize != general::wordSize || stack->count == stack->capacity)
        return push(stack, element);

    general::copyWord(general::elementAt(stack->storage, stack->count, general::wordSize), element);
    ++stack->count;
    return STACK_OK;
}

uint32_t StackRmv(Stack *stack, void *element)
{
    if (!isLive(stack))
        return STACK_BAD_HANDLE;
    if (stack->count == 0)
        return STACK_EMPTY;
    if (element == nullptr)
        return STACK_BAD_ARG;
    if (stack->elementSize != general::wordSize)
        return pop(stack, element);

    --stack->count;
    general::copyWord(element, general::elementAt(stack->storage, stack->count, general::wordSize));
    return STACK_OK;
}

#include "base/element_storage.h"
#include "base/module_id.h"

#include "general/stack.h"

#include <stddef.h>

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

template<>
constexpr uint32_t general::liveMagic<Stack> = 0x53746131;

namespace {

using general::isLive;

/// Pushes an element of any size, growing the storage first if it is full.
[[gnu::noinline]] StackStat push(Stack *stack, const void *element)
{
    if (stack->count == stack->capacity && !general::growStorage(stack))
        return STACK_NO_MEMORY;
    general::copyBytes(general::slot(stack, stack->count), element, stack->elementSize);
    ++stack->count;
    return STACK_OK;
}

/// Pops an element of any size.
[[gnu::noinline]] StackStat pop(Stack *stack, void *element)
{
    --stack->count;
    general::copyBytes(element, general::slot(stack, stack->count), stack->elementSize);
    return STACK_OK;
}

} // namespace

Stack *StackCreate(uint32_t elementSize)
{
    return elementSize == 0 ? nullptr : general::createContainer<Stack>(elementSize);
}

uint32_t StackDestroy(Stack *stack)
{
    if (!isLive(stack))
        return STACK_BAD_HANDLE;

    general::destroyContainer(stack);
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

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

[[gnu::noinline]] uint32_t growAndAdd(Stack *stack, const void *element)
{
    return general::growStorage(stack) ? StackAdd(stack, element) : uint32_t{STACK_NO_MEMORY};
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
    uint32_t number = stack->count;
    if (number == stack->capacity)
        return growAndAdd(stack, element);

    stack->count = number + 1;
    return general::putElement(stack, number, element);
}

uint32_t StackRmv(Stack *stack, void *element)
{
    if (!isLive(stack))
        return STACK_BAD_HANDLE;
    if (stack->count == 0)
        return STACK_EMPTY;
    if (element == nullptr)
        return STACK_BAD_ARG;

    uint32_t number = stack->count - 1;
    stack->count = number;
    return general::takeElement(stack, number, element);
}

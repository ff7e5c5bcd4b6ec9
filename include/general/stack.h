/// @file
/// Last-in, first-out stack of fixed-size elements, copied in and out by value.
///
/// Storage starts at 20 elements and grows by 10. A stack is not locked: callers serialise access
/// to one stack.

#ifndef GENERAL_STACK_H
#define GENERAL_STACK_H

#include "general/api.h"
#include "general/names.h"

/// A stack. Opaque to callers.
typedef struct Stack Stack;

/// Outcome of every stack call.
typedef enum StackStat {
    STACK_OK = 0,         ///< done
    STACK_BAD_HANDLE = 1, ///< null, or not a live stack
    STACK_EMPTY = 2,      ///< nothing to take
    STACK_NO_MEMORY = 3,  ///< storage could not grow; the stack is unchanged
    STACK_BAD_ARG = 4     ///< a required pointer is null
} StackStat;

/// Makes an empty stack.
/// @param elementSize  bytes per element, not 0
/// @return the stack, which the caller hands to StackDestroy; null if elementSize is 0, if
///         20 elements of that size exceed the address space, or if memory is exhausted
GENERAL_API Stack *GENERAL_CALL StackCreate(uint32_t elementSize);

/// Frees the stack and the elements on it.
/// @param stack  a live stack
/// @return STACK_OK or STACK_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL StackDestroy(Stack *stack);

/// Tells how many elements the stack holds.
/// @param stack   a live stack
/// @param length  receives the count
/// @return STACK_OK, STACK_BAD_HANDLE or STACK_BAD_ARG (length is null), looked for in that order
GENERAL_API uint32_t GENERAL_CALL StackLength(const Stack *stack, uint32_t *length);

/// Puts a copy of an element on top. Growth is by 10 elements when the storage is full.
/// @param stack    a live stack
/// @param element  elementSize bytes; may not lie inside this stack's own storage
/// @return STACK_OK, STACK_BAD_HANDLE, STACK_BAD_ARG (element is null) or STACK_NO_MEMORY, looked
///         for in that order
GENERAL_API uint32_t GENERAL_CALL StackAdd(Stack *stack, const void *element);

/// Takes the newest element off the stack.
/// @param stack    a live stack
/// @param element  receives elementSize bytes
/// @return STACK_OK, STACK_BAD_HANDLE, STACK_EMPTY or STACK_BAD_ARG (element is null), looked for
///         in that order
GENERAL_API uint32_t GENERAL_CALL StackRmv(Stack *stack, void *element);

#include "general/names.h"

#endif

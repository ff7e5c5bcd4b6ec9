/* Linked as Microsoft's tools would, without any runtime: the exit status is the result. */

#include <general.h>

#ifdef __cplusplus
#define UNMANGLED extern "C"
#else
#define UNMANGLED
#endif

UNMANGLED int start(void)
{
    int value = 42;
    Stack *stack = StackCreate(sizeof value);
    StackAdd(stack, &value);
    value = 0;
    StackRmv(stack, &value);
    return StackDestroy(stack) == STACK_OK ? value : 1;
}

// The part of a program in C++ that uses the interface by the names in C.
#include <general.h>

extern "C" int sumAndDestroy(Queue *queue)
{
    int sum = 0;
    int element = 0;
    while (QueRmv(queue, &element) == QUE_OK)
        sum += element;
    return QueDestroy(queue) == QUE_OK ? sum : -1;
}

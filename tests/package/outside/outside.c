#include <general.h>
#include <stdio.h>

int main(void)
{
    int value = 42;
    Queue *queue = QueCreate(sizeof value);
    QueAdd(queue, &value);
    value = 0;
    QueRmv(queue, &value);
    QueDestroy(queue);
    printf("C %d\n", value);
    return 0;
}

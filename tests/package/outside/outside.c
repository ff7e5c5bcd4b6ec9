/* With the tool-chain's own parsers of options. */
#define GENERAL_NO_GETOPT
#include <general.h>

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv)
{
    static const struct option longOptions[] = {{"value", required_argument, NULL, 'v'}, {NULL, 0, NULL, 0}};
    int value = getopt(argc, argv, "v:") == 'v' ? atoi(optarg) : 0;
    if (getopt_long(argc, argv, "v:", longOptions, NULL) == 'v')
        value += atoi(optarg);
    Queue *queue = QueCreate(sizeof value);
    QueAdd(queue, &value);
    value = 0;
    QueRmv(queue, &value);
    QueDestroy(queue);
    printf("C %d\n", value);
    return 0;
}

/* Linked without any runtime, and also compiled with another default calling convention: the exit
   status is the result. `getopt` is a function of somebody else's. */

#define GENERAL_NO_GETOPT
#include <general.h>

#ifdef __cplusplus
#define UNMANGLED extern "C"
#else
#define UNMANGLED extern
#endif

UNMANGLED int GENERAL_CALL getopt(int argc, char *const *argv, const char *options);

static int GENERAL_CALL smallestFirst(const void *queued, const void *added)
{
    return *(const int *)added - *(const int *)queued;
}

UNMANGLED int GENERAL_CALL start(void)
{
    int values[] = {3, 1, 2};
    int first = 0;
    PQueue *queue = PQCreate(sizeof first, smallestFirst);
    for (int i = 0; i < 3; ++i)
        PQAdd(queue, &values[i]);
    PQRmv(queue, &first);
    return PQDestroy(queue) == PQ_OK ? first + getopt(0, 0, "") : 0;
}

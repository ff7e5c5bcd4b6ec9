/* Prints the first bytes of a named shared-memory segment in hexadecimal, as another process sees
 * them: segment_dump NAME COUNT */

#include <stdio.h>
#include <stdlib.h>
#include <windows.h>

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    HANDLE mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, argv[1]);
    const unsigned char *bytes = mapping ? MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : NULL;
    if (bytes == NULL)
        return 1;
    for (int i = 0; i < atoi(argv[2]); ++i)
        printf("%02X%c", bytes[i], i % 4 == 3 ? ' ' : '-');
    return 0;
}

/* Stands in for the mail command: copies its command line and the body to the file that QVSMAIL_RECORD
   names, unless QVSMAIL_SLEEP tells it to sleep for so many milliseconds and touch nothing. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

int main(int argc, char **argv)
{
    char body[1 << 12];
    if (getenv("QVSMAIL_SLEEP")) {
        Sleep((DWORD)atoi(getenv("QVSMAIL_SLEEP")));
        return 0;
    }
    argv[argc - 1][strcspn(argv[argc - 1], "\n")] = 0; /* the line's end, which Wine's cmd passes on */
    FILE *source = fopen(argv[argc - 1], "rb"), *record = fopen(getenv("QVSMAIL_RECORD"), "wb");
    if (source == NULL || record == NULL)
        return 1;
    for (int i = 1; i < argc; ++i)
        fprintf(record, "%s\n", argv[i]);
    for (size_t count; (count = fread(body, 1, sizeof body, source)) > 0;)
        fwrite(body, 1, count, record);
    return 0;
}

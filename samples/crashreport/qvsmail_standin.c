/* Stands in for the mail command qvsmail, for the demo and for tests: no mail leaves the machine. Writes its
   arguments, a line each, and then the body into the file that QVSMAIL_RECORD names. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char **argv)
{
    if (argc != 7 || !getenv("QVSMAIL_RECORD")) {
        fputs("usage: qvsmail -t RECIPIENTS -s SUBJECT -b BODY_FILE, with QVSMAIL_RECORD set\n", stderr);
        return 2;
    }
    argv[6][strcspn(argv[6], "\n")] = 0; /* the end of the command line, which Wine's cmd passes on */
    FILE *body = fopen(argv[6], "rb"), *record = fopen(getenv("QVSMAIL_RECORD"), "wb");
    if (body == NULL || record == NULL)
        return 1;
    for (int i = 1; i < argc; ++i)
        fprintf(record, "%s\n", argv[i]);
    char part[4096];
    for (size_t count; (count = fread(part, 1, sizeof part, body)) > 0;)
        fwrite(part, 1, count, record);
    return 0;
}

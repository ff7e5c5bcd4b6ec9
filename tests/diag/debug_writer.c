// Writes with the library's debug output, for the tests to look at from outside.
//
//   debug_writer redirected    to the standard error handle that it is given
//   debug_writer none          without one, and with one only after the first call
//   debug_writer console       to its console, the start of which it copies to the standard output

#include "general/debug_output.h"

#include <stdio.h>
#include <string.h>

#include <windows.h>

static HANDLE openConsole(void)
{
    return CreateFileA("CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                       0, NULL);
}

static void copyRow(HANDLE console, SHORT row)
{
    char text[64];
    DWORD length = 0;
    COORD start = {0, row};
    ReadConsoleOutputCharacterA(console, text, sizeof text, start, &length);
    printf("%.*s\n", (int)length, text);
}

int main(int argc, char **argv)
{
    static char longText[5001];
    const char *mode = argc > 1 ? argv[1] : "";
    HANDLE console = strcmp(mode, "console") == 0 ? openConsole() : NULL;
    if (strcmp(mode, "redirected") != 0)
        SetStdHandle(STD_ERROR_HANDLE, console);
    qvs_debug("q", "%d and %s\n", 1, "two");
    if (strcmp(mode, "none") == 0)
        SetStdHandle(STD_ERROR_HANDLE, GetStdHandle(STD_OUTPUT_HANDLE));
    qvs_debug_log("q", "%d", 3);
    qvs_assert("p != 0", "queue", 42);
    for (SHORT row = 0; console != NULL && row < 3; ++row)
        copyRow(console, row);
    memset(longText, 'x', sizeof longText - 1);
    qvs_debug("q", "%s\n", longText);
    qvs_debug_log("q", "%s", longText);
    qvs_debug(NULL, NULL);
    return 0;
}

// Writes with the library's debug output, for the tests to look at from outside.
//
//   debug_writer redirected    to the standard error handle that it is given
//   debug_writer none          without one, and with one only after the first call
//   debug_writer console       to its console, the start of which it copies to the standard output

#include "general/debug_output.h"

#include <windows.h>

int main(int argc, char **argv)
{
    char screen[240] = "";
    const char mode = argc > 1 ? argv[1][0] : 'r';
    HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE), console = NULL;
    if (mode == 'c')
        console = CreateFileA("CONOUT$", GENERIC_READ | GENERIC_WRITE, 3, NULL, OPEN_EXISTING, 0, NULL);
    if (mode != 'r')
        SetStdHandle(STD_ERROR_HANDLE, console);
    qvs_debug("q", "%d and %s\n", 1, "two");
    if (mode == 'n')
        SetStdHandle(STD_ERROR_HANDLE, output);
    qvs_debug_log("q", "%d", 3);
    qvs_assert("p != 0", "queue", 42);
    DWORD length = 0;
    if (ReadConsoleOutputCharacterA(console, screen, sizeof screen, (COORD){0, 0}, &length))
        WriteFile(output, screen, length, &length, NULL);
    char longText[5001] = "";
    for (int i = 0; i < 5000; ++i)
        longText[i] = 'x';
    qvs_debug("q", "%s\n", longText);
    qvs_debug_log("q", "%s", longText);
    qvs_debug(NULL, NULL);
    return 0;
}

/* A DLL that does nothing: what loading any DLL of this tool-chain costs. */

__declspec(dllexport) int answer(void)
{
    return 42;
}

/* Stands in for the system's mail library: writes down what it is handed. */

#include <stdio.h>
#include <windows.h>

#include <mapi.h>

__declspec(dllexport) char mapiRecord[1 << 16];
__declspec(dllexport) ULONG mapiAnswer;

static size_t length;

#define NOTE(...) (length += (size_t)snprintf(mapiRecord + length, sizeof mapiRecord - length, __VA_ARGS__))

__declspec(dllexport) ULONG WINAPI MAPISendMail(LHANDLE session, ULONG_PTR window, lpMapiMessage mail, FLAGS flags,
                                                ULONG reserved)
{
    length = 0;
    NOTE("%d %d %d %d|", (int)session, (int)window, (int)flags, (int)reserved);
    NOTE("%d %d %d|", mail->lpszMessageType != NULL, mail->lpOriginator != NULL, (int)mail->flFlags);
    for (ULONG i = 0; i < mail->nRecipCount; ++i)
        NOTE("%d:%s=%s;", (int)mail->lpRecips[i].ulRecipClass, mail->lpRecips[i].lpszName,
             mail->lpRecips[i].lpszAddress);
    for (ULONG i = 0; i < mail->nFileCount; ++i)
        NOTE("|%d:%s%s", (int)mail->lpFiles[i].nPosition, mail->lpFiles[i].lpszPathName,
             mail->lpFiles[i].lpszFileName != NULL || mail->lpFiles[i].lpFileType != NULL ? "?" : "");
    NOTE("|%s|%s", mail->lpszSubject, mail->lpszNoteText);
    return mapiAnswer;
}

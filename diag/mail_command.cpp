#include "base/crt_stdio.h"

#include "base/module_id.h"
#include "diag/mail_message.h"

#include "general/errortext.h"

#include <stdlib.h>
#include <string.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

constexpr DWORD waitingTime = 5000;     // milliseconds
constexpr size_t longestCommand = 8191; // that the command interpreter takes
constexpr const char *commandFormat = "cmd /c qvsmail -t %s -s \"%s\" -b \"%s\"\n";

bool isControl(char character)
{
    return static_cast<unsigned char>(character) < ' ';
}

/// Whether the interpreter sees the recipients, which stand outside quotes, as plain text.
bool isPlain(const char *recipients)
{
    for (const char *c = recipients; *c != 0; ++c)
        if (isControl(*c) || strchr("\"%&|<>^()", *c) != nullptr)
            return false;
    return true;
}

/// Makes a subject plain text between double quotes. Inside them the interpreter knows the quote, the
/// line's end and two percent signs; the command, in its turn, a backslash before the closing quote.
void makeQuotable(char *subject)
{
    char *firstPercent = strchr(subject, '%');
    bool hasTwo = firstPercent != nullptr && strchr(firstPercent + 1, '%') != nullptr;
    char *c = subject;
    for (; *c != 0; ++c) {
        if (*c == '"')
            *c = '\'';
        else if (isControl(*c) || (*c == '%' && hasTwo))
            *c = ' ';
    }
    if (c != subject && c[-1] == '\\')
        c[-1] = '/';
}

/// Waits for a started command. One that takes too long goes on without us.
bool isOverInTime(HANDLE process)
{
    DWORD wait = WaitForSingleObject(process, waitingTime);
    if (wait == WAIT_OBJECT_0)
        return true;
    return failed("WaitForSingleObject failed with error <%s>",
                  GetErrorText(wait == WAIT_FAILED ? GetLastError() : wait));
}

bool run(char *command)
{
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    PROCESS_INFORMATION started = {};
    if (CreateProcessA(nullptr, command, nullptr, nullptr, TRUE, CREATE_NEW_CONSOLE | CREATE_DEFAULT_ERROR_MODE,
                       nullptr, nullptr, &startup, &started) == FALSE)
        return failed("CreateProcess for qvsmail failed with error <%s>", GetErrorText(GetLastError()));
    bool isOver = isOverInTime(started.hProcess);
    CloseHandle(started.hThread);
    CloseHandle(started.hProcess);
    return isOver;
}

} // namespace

bool sendByCommand(MailMessage &message)
{
    if (fflush(message.body) != 0)
        return failed("fflush() of message failed");
    if (!isPlain(message.recipients))
        return failed("qvsmail cannot be given the recipients <%s>", message.recipients);
    if (message.subject != nullptr)
        makeQuotable(message.subject);
    size_t size =
        strlen(commandFormat) + strlen(message.recipients) + strlen(subjectOf(message)) + strlen(message.bodyName) + 1;
    auto *command = static_cast<char *>(malloc(size));
    if (command == nullptr)
        return failed("malloc() for command line of %u bytes failed", static_cast<unsigned>(size));
    auto length = static_cast<size_t>(
        snprintf(command, size, commandFormat, message.recipients, subjectOf(message), message.bodyName));
    bool isRun = length <= longestCommand
                     ? run(command)
                     : failed("a command line of %u characters is too long for qvsmail", static_cast<unsigned>(length));
    free(command);
    return isRun;
}

} // namespace general

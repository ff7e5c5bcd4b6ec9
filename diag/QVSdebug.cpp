#include "base/module_id.h"
#include "diag/formatted_text.h"

#include "general/debug_output.h"

#include <stdarg.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace {

HANDLE console;
bool hasNoConsole;

/// The standard error handle; null for none.
HANDLE findConsole()
{
    if (console == nullptr && !hasNoConsole) {
        console = GetStdHandle(STD_ERROR_HANDLE);
        hasNoConsole = console == nullptr;
    }
    return console;
}

enum class Redirected { Written, Silent };

void output(const general::FormattedText &line, Redirected redirected)
{
    HANDLE handle = findConsole();
    auto length = static_cast<DWORD>(line.length());
    DWORD written = 0;
    if (handle != nullptr && !WriteConsoleA(handle, line.text(), length, &written, nullptr) &&
        redirected == Redirected::Written)
        WriteFile(handle, line.text(), length, &written, nullptr);
    OutputDebugStringA(line.text());
}

void appendWho(general::FormattedText &line, const char *who)
{
    line.append(who == nullptr ? "(null)" : who); // as the runtime prints it
    line.append(": ");
}

} // namespace

void qvs_debug(const char *who, const char *format, ...)
{
    general::FormattedText line;
    appendWho(line, who);
    va_list arguments;
    va_start(arguments, format);
    line.appendFormatted(format, arguments);
    va_end(arguments);
    output(line, Redirected::Written);
}

void qvs_debug_log(const char *who, const char *format, ...)
{
    general::FormattedText line;
    line.append("Log: ");
    appendWho(line, who);
    va_list arguments;
    va_start(arguments, format);
    line.appendFormatted(format, arguments);
    va_end(arguments);
    line.endLine();
    output(line, Redirected::Silent);
}

void qvs_assert(const char *expression, const char *who, int line)
{
    qvs_debug(who, "QVS assertion failed: (%s) at line %d\n", expression, line);
}

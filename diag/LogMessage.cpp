#include "base/module_id.h"
#include "diag/formatted_text.h"
#include "diag/log_backend.h"

#include "general/message_log.h"
#include "general/validators.h"

#include <stdarg.h>

GENERAL_MODULE_ID("$Id$");

namespace {

bool initialised;
const general::LogBackend *backend;

constexpr const char *defaultName = "QVS";
constexpr uint16_t noCategory = 0;

const char *orEmpty(const char *text)
{
    return text == nullptr ? "" : text;
}

} // namespace

void LogName(const char *name)
{
    if (initialised)
        backend->close();
    backend = iswin95() != 0 ? &general::fileLogBackend : &general::eventLogBackend;
    backend->open(name == nullptr ? defaultName : name);
    initialised = true;
}

void LogMessage(const char *who, const char *text)
{
    if (!initialised)
        LogName(defaultName);
    backend->write(noCategory, "%s: <%s>", orEmpty(who), orEmpty(text));
}

void LogPrintf(const char *who, const char *format, ...)
{
    general::FormattedText message;
    va_list arguments;
    va_start(arguments, format);
    message.appendFormatted(format, arguments);
    va_end(arguments);
    LogMessage(who, message.text());
}

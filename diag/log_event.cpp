#include "base/module_id.h"
#include "base/registry_text.h"
#include "diag/formatted_text.h"
#include "diag/log_backend.h"

#include <string.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

HANDLE source = INVALID_HANDLE_VALUE;
DWORD eventCounter; // the last event's identifier

constexpr DWORD informationType = EVENTLOG_INFORMATION_TYPE;

bool hasMessageFile(HKEY key)
{
    RegistryText text;
    DWORD size = 0;
    LSTATUS status = readRegistryText(key, "EventMessageFile", text, size);
    return (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) && size >= leastTextSize;
}

void setMessageFile(HKEY key, const char *name)
{
    FormattedText file;
    file.append(name);
    file.append(".message.dll");
    RegSetValueExA(key, "EventMessageFile", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE *>(file.text()),
                   static_cast<DWORD>(file.length()) + 1);
}

/// Tells the event viewer of the source. The path's doubled separators are what installed systems
/// have, and stay.
void describeSource(const char *name)
{
    FormattedText path;
    path.append(R"(SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\)");
    path.append(name);
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.text(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr, &key, nullptr) != ERROR_SUCCESS)
        return;
    if (!hasMessageFile(key))
        setMessageFile(key, name);
    RegSetValueExA(key, "TypesSupported", 0, REG_DWORD, reinterpret_cast<const BYTE *>(&informationType),
                   sizeof informationType);
    RegCloseKey(key);
}

void open(const char *name)
{
    describeSource(name);
    source = RegisterEventSourceA(nullptr, name);
}

void close()
{
    DeregisterEventSource(source);
    source = INVALID_HANDLE_VALUE;
}

// The text of an event is made by the message file from the two strings.
void write(uint16_t category, const char *, const char *first, const char *second)
{
    const char *strings[] = {first, second};
    ++eventCounter;
    ReportEventA(source, EVENTLOG_INFORMATION_TYPE, category, eventCounter, nullptr, 2, 0, strings, nullptr);
}

} // namespace

const LogBackend eventLogBackend = {open, close, write};

} // namespace general

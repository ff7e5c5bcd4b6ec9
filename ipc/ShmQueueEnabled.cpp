#include "base/module_id.h"
#include "base/registry_text.h"

#include "general/shmqueue.h"

#include <windows.h>

#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

/// Longer names end the scan; see ShmQueueEnabled.
constexpr DWORD nameSize = 16;
constexpr DWORD dataSize = 32;

bool valueIs(HKEY key, const char *name, const char *expected)
{
    char data[dataSize + 1];
    DWORD size = 0;
    return general::readRegistryText(key, name, data, size) == ERROR_SUCCESS && _stricmp(data, expected) == 0;
}

int scanValues(HKEY key, const char *queueName)
{
    DWORD count = 0;
    if (RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr,
                         nullptr) != ERROR_SUCCESS)
        return 0;

    int enabled = 0;
    for (DWORD index = 0; index < count; ++index) {
        char name[nameSize] = "";
        DWORD size = nameSize;
        if (RegEnumValueA(key, index, name, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            return enabled;
        if (name[0] == '\0') {
            if (!valueIs(key, name, "on"))
                return enabled;
            enabled = 1;
        } else if (strcmp(name, queueName) == 0 && valueIs(key, name, "off")) {
            return 0;
        }
    }
    return enabled;
}

} // namespace

int ShmQueueEnabled(const char *name)
{
    HKEY key = nullptr;
    if (name == nullptr ||
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Borvik\\FastConnection", 0, KEY_READ, &key) != ERROR_SUCCESS)
        return 0;
    int enabled = scanValues(key, name);
    RegCloseKey(key);
    return enabled;
}

#include "base/module_id.h"

#include "general/validators.h"

#include <string.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace {

bool hasAttributes(const char *path, DWORD &attributes)
{
    attributes = path == nullptr ? INVALID_FILE_ATTRIBUTES : GetFileAttributesA(path);
    return attributes != INVALID_FILE_ATTRIBUTES;
}

} // namespace

int isdirectory(const char *path, int)
{
    DWORD attributes = 0;
    return hasAttributes(path, attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 1 : 0;
}

int isfile(const char *path, int)
{
    DWORD attributes = 0;
    return hasAttributes(path, attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ? 1 : 0;
}

int isloadable(const char *file, char *directory)
{
    if (file == nullptr || directory == nullptr)
        return 0;
    char *name = nullptr;
    DWORD length = SearchPathA(nullptr, file, nullptr, ISLOADABLE_DIR_SIZE, directory, &name);
    if (length == 0 || length >= ISLOADABLE_DIR_SIZE)
        return 0;
    size_t directoryLength =
        (name == nullptr || name == directory ? length : static_cast<size_t>(name - directory)) - 1;
    memset(directory + directoryLength, 0, ISLOADABLE_DIR_SIZE - directoryLength);
    return 1;
}

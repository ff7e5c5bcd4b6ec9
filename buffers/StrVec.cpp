#include "base/checked_size.h"
#include "base/module_id.h"

#include "general/strvec.h"

#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

char **StrVecCreate(char *buffer, uint32_t count)
{
    size_t size = 0;
    if (!general::checkedSum(count, 1, size) || !general::checkedProduct(size, sizeof(char *), size))
        return nullptr;
    auto **vector = static_cast<char **>(malloc(size));
    if (vector == nullptr)
        return nullptr;

    for (uint32_t i = 0; i < count; ++i)
        vector[i] = i == 0 ? buffer : vector[i - 1] + strlen(vector[i - 1]) + 1;
    vector[count] = nullptr;
    return vector;
}

void StrVecDestroy(char **vector)
{
    free(vector);
}

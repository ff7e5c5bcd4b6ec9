#include "base/module_id.h"
#include "platform/processor_rules.h"

#include "general/processor.h"
#include "general/system.h"

GENERAL_MODULE_ID("$Id$");

namespace {

constexpr long invalidArgument = 22; // handed out as a result, for compatibility

}

long QVSsysconf(int name)
{
    unsigned logical = 1;
    unsigned cores = 1;
    KuCPUCount(&logical, &cores, nullptr);
    switch (name) {
    case QVS_SC_PER_THREAD:
        return general::shareOf8192(logical, cores);
    case QVS_SC_64:
        return 64;
    default:
        return invalidArgument;
    }
}

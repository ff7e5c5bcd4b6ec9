#include "base/checked_size.h"
#include "base/module_id.h"

#include "general/perf.h"

#include <stddef.h>
#include <string.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

static_assert(offsetof(PerfCounterDef, isPrivate) == 12 && offsetof(PerfCounterDef, initialValue) == 20);
static_assert(sizeof(PerfCounterDef) == 24);
static_assert(offsetof(PerfObjectDef, counters) == 12 && offsetof(PerfObjectDef, counterCount) == 16);
static_assert(sizeof(PerfObjectDef) == 28);
static_assert(offsetof(PerfSegment, recordCount) == 4 && sizeof(PerfSegment) == 8);
static_assert(offsetof(PerfRecord, length) == 4 && offsetof(PerfRecord, value) == 8 && sizeof(PerfRecord) == 12);

namespace {

/// The segment that this process publishes; no view, no segment. The sizes are kept here because any
/// process may write to the segment: nothing read from it decides where memory is touched.
struct Published {
    HANDLE mapping;
    PerfSegment *view;
    uint32_t size;     ///< of head and records
    uint32_t viewSize; ///< to the end of a page, or of the larger segment that was taken over
};

Published published;

/// Finds the segment's size.
/// @return false when something is null that must not be, or a number overflows
bool measure(const PerfObjectDef *objects, uint32_t objectCount, uint32_t &size)
{
    if (objects == nullptr && objectCount > 0)
        return false;
    size_t total = sizeof(PerfSegment);
    size_t definitions = 0;
    for (uint32_t i = 0; i < objectCount; ++i) {
        const PerfObjectDef &object = objects[i];
        if (object.counters == nullptr && object.counterCount > 0)
            return false;
        if (!general::checkedSum(definitions, object.counterCount, definitions))
            return false;
        for (uint32_t j = 0; j < object.counterCount; ++j)
            if (object.counters[j].isPrivate == 0 && !general::checkedSum(total, sizeof(PerfRecord), total))
                return false;
    }
    size = total;
    return true;
}

/// Maps the whole of a mapping: an older one of the name may be larger than what is asked for, or smaller.
bool mapAll(Published &segment)
{
    segment.view = static_cast<PerfSegment *>(MapViewOfFile(segment.mapping, FILE_MAP_WRITE, 0, 0, 0));
    MEMORY_BASIC_INFORMATION region = {};
    if (segment.view == nullptr)
        return false;
    segment.viewSize = VirtualQuery(segment.view, &region, sizeof region) == 0 ? 0 : region.RegionSize;
    if (segment.viewSize >= segment.size)
        return true;
    UnmapViewOfFile(segment.view);
    return false;
}

bool openSegment(const char *name, uint32_t size, Published &segment)
{
    segment.size = size;
    segment.mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, name);
    if (segment.mapping == nullptr)
        return false;
    if (mapAll(segment))
        return true;
    CloseHandle(segment.mapping);
    return false;
}

/// The magic is what readers go by: nothing that is written before it may come after it, nor the
/// other way round.
void storeMagic(PerfSegment *segment, uint32_t magic)
{
    __atomic_store_n(&segment->magic, magic, __ATOMIC_SEQ_CST);
}

/// Lays out the records, and clears what lies behind them: readers walk as far as records go on, and in
/// a segment that is taken over those of its last owner would. The count takes in private counters too,
/// which readers know and allow for.
void fill(const Published &segment, const PerfObjectDef *objects, uint32_t objectCount)
{
    auto *record = reinterpret_cast<PerfRecord *>(segment.view + 1);
    segment.view->recordCount = 0;
    for (uint32_t i = 0; i < objectCount; ++i) {
        for (uint32_t j = 0; j < objects[i].counterCount; ++j) {
            const PerfCounterDef &counter = objects[i].counters[j];
            ++segment.view->recordCount;
            if (counter.isPrivate == 0)
                *record++ = PerfRecord{.id = counter.id, .length = sizeof(PerfRecord), .value = counter.initialValue};
        }
    }
    memset(record, 0, segment.viewSize - segment.size);
}

/// The first record with an identifier; null when there is none or no segment. The walk ends where
/// the segment does, whatever its count and lengths say by now.
PerfRecord *findRecord(uint32_t id)
{
    if (published.view == nullptr)
        return nullptr;
    auto *bytes = reinterpret_cast<unsigned char *>(published.view);
    uint32_t offset = sizeof(PerfSegment);
    for (uint32_t left = published.view->recordCount; left > 0; --left) {
        if (published.size - offset < sizeof(PerfRecord))
            return nullptr;
        auto *record = reinterpret_cast<PerfRecord *>(bytes + offset);
        if (record->id == id)
            return record;
        uint32_t length = __atomic_load_n(&record->length, __ATOMIC_RELAXED); // read once: it may change
        if (length < sizeof(PerfRecord) || length > published.size - offset)
            return nullptr;
        offset += length;
    }
    return nullptr;
}

} // namespace

int PerfInit(const char *name, const PerfObjectDef *objects, uint32_t objectCount)
{
    uint32_t size = 0;
    if (name == nullptr || !measure(objects, objectCount, size))
        return PERF_NO_SEGMENT;
    PerfShutdown();

    Published segment = {};
    if (!openSegment(name, size, segment))
        return PERF_NO_SEGMENT;
    storeMagic(segment.view, 0); // someone may hold an older segment of this name open
    fill(segment, objects, objectCount);
    storeMagic(segment.view, PERF_MAGIC);
    published = segment;
    return PERF_OK;
}

int PerfSetValue(uint32_t id, uint32_t value)
{
    if (PerfRecord *record = findRecord(id))
        record->value = value;
    return PERF_OK;
}

int PerfApplyDelta(uint32_t id, uint32_t delta)
{
    if (PerfRecord *record = findRecord(id))
        record->value += delta;
    return PERF_OK;
}

int PerfShutdown(void)
{
    if (published.view == nullptr)
        return 0;

    storeMagic(published.view, 0);
    UnmapViewOfFile(published.view);
    int closed = CloseHandle(published.mapping);
    published = Published{};
    return closed;
}

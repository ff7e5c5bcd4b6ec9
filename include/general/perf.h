/// @file
/// Publishes numeric counters of this process in a named shared-memory segment, where a monitoring
/// program reads them while the process runs. A process has at most one segment.
///
/// The segment is a PerfSegment followed by one PerfRecord per published counter. The magic is
/// written when everything else is in place, and taken away first. A reader maps the segment by its
/// name, checks the magic, and steps from record to record by each record's length until it finds no
/// whole record in the segment: recordCount also counts the counters that are kept private, so there
/// may be fewer records than it says.
///
/// Updates are plain 32-bit stores without a lock. A reader sees every value whole, but not all values
/// of one moment; of two threads that add to one counter at once, one may lose its increment. Neither
/// PerfInit nor PerfShutdown may run beside another call of the family: they take away the memory that
/// the other one writes to.

#ifndef GENERAL_PERF_H
#define GENERAL_PERF_H

#include "general/api.h"
#include "general/names.h"

/// The segment's magic while its records are valid (bytes 6D 76 68 53); 0 before and after.
#define PERF_MAGIC 0x5368766Du

/// What the functions that can fail return.
typedef enum PerfStat {
    PERF_OK = 0,
    PERF_NO_SEGMENT = 3 ///< the segment could not be created
} PerfStat;

/// Describes one counter to PerfInit.
typedef struct PerfCounterDef {
    uint32_t id;           ///< names the counter to readers and to PerfSetValue
    uint32_t reserved2;    ///< not looked at
    uint32_t reserved3;    ///< not looked at
    uint32_t isPrivate;    ///< not 0: the counter is counted in recordCount, but not published
    uint32_t reserved5;    ///< not looked at
    uint32_t initialValue; ///< what readers see first
} PerfCounterDef;

/// Describes a group of counters to PerfInit.
typedef struct PerfObjectDef {
    uint32_t reserved1;             ///< not looked at
    uint32_t reserved2;             ///< not looked at
    uint32_t reserved3;             ///< not looked at
    const PerfCounterDef *counters; ///< counterCount descriptions
    uint32_t counterCount;          ///< how many counters are described
    uint32_t reserved6;             ///< not looked at
    uint32_t reserved7;             ///< not looked at
} PerfObjectDef;

/// The head of the segment.
typedef struct PerfSegment {
    uint32_t magic;       ///< PERF_MAGIC, or 0
    uint32_t recordCount; ///< counters described to PerfInit, private ones included
} PerfSegment;

/// One published counter in the segment.
typedef struct PerfRecord {
    uint32_t id;     ///< as it was described
    uint32_t length; ///< bytes from this record to the next: 12
    uint32_t value;  ///< the present value
} PerfRecord;

/// Creates the segment and fills it with every counter's initial value, object by object.
///
/// Where the process has a segment already, that one is withdrawn first, as PerfShutdown does; it
/// stays if the arguments are unusable or the size overflows. A segment of this name that someone
/// else still holds open is taken over, provided that it is large enough, and cleared of its records.
/// Two processes that publish under one name write to one segment: the name is the caller's to choose.
/// @param name         name of the segment, not null
/// @param objects      objectCount descriptions, which are not needed after the call
/// @param objectCount  how many objects are described
/// @return PERF_OK; PERF_NO_SEGMENT when the system refuses the segment, when name, objects or an
///         object's counters are null (with a count above 0), or when the segment's size or count
///         exceeds 32 bits
GENERAL_API int GENERAL_CALL PerfInit(const char *name, const PerfObjectDef *objects, uint32_t objectCount);

/// Sets the first counter that has this identifier. Nothing happens when there is none or no segment.
/// @param id     the identifier that the counter was described with
/// @param value  the new value
/// @return 0
GENERAL_API int GENERAL_CALL PerfSetValue(uint32_t id, uint32_t value);

/// Adds to the first counter that has this identifier, modulo 2 to the 32nd: 0xFFFFFFFF takes 1 off.
/// Nothing happens when there is none or no segment.
/// @param id     the identifier that the counter was described with
/// @param delta  what is added, modulo 2 to the 32nd
/// @return 0
GENERAL_API int GENERAL_CALL PerfApplyDelta(uint32_t id, uint32_t delta);

/// Withdraws the segment: clears its magic, then closes it. Readers that hold it open keep it.
/// @return not 0 when the system closed the segment; 0 when it did not, or when there is no segment
GENERAL_API int GENERAL_CALL PerfShutdown(void);

#include "general/names.h"

#endif

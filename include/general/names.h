/// @file
/// Keeps the types of the C interface out of a program's global names, for one that defines
/// GENERAL_NO_GLOBAL_NAMES.
///
/// The interface's handles and records are called `List`, `Map`, `Cache`, `Stack` and so on, and a program
/// may well have types of those names itself. In C++ its own `class Cache` would even complete the
/// library's without a word. A program that defines GENERAL_NO_GLOBAL_NAMES, in all of its files, has the
/// names for itself: each type of the interface, callbacks and enumerations too, then has `general_` before
/// its name, `general_Cache *cache = CacheCreate(...)`. Functions and constants are called as ever. Without
/// the macro nothing changes, and the binary interface is the same with and without it.
///
/// The headers for C++ (general.hpp) know the types as `general::c::Cache` and so on in both cases.
///
/// No program includes this header itself. The others include it before their first declaration, where it
/// gives their types the longer names, and after their last one, where it takes that back.

#if defined(GENERAL_NO_GLOBAL_NAMES) && !defined(GENERAL_NAMES_BEGUN)
#define GENERAL_NAMES_BEGUN
#define Action general_Action
#define ActionCallback general_ActionCallback
#define ActionStat general_ActionStat
#define ArrayLst general_ArrayLst
#define ArrayLstStat general_ArrayLstStat
#define BufPool general_BufPool
#define CBuf general_CBuf
#define CBufStat general_CBufStat
#define Cache general_Cache
#define CacheDispose general_CacheDispose
#define CacheMake general_CacheMake
#define CacheStat general_CacheStat
#define ChronoLocal general_ChronoLocal
#define ChronoRec general_ChronoRec
#define CpuTimeSelector general_CpuTimeSelector
#define DynLdStat general_DynLdStat
#define GlobStat general_GlobStat
#define KeyCall general_KeyCall
#define KeyCallStat general_KeyCallStat
#define KuCountStatus general_KuCountStatus
#define List general_List
#define ListNode general_ListNode
#define Map general_Map
#define MapStat general_MapStat
#define PQCompare general_PQCompare
#define PQStat general_PQStat
#define PQueue general_PQueue
#define PerfCounterDef general_PerfCounterDef
#define PerfObjectDef general_PerfObjectDef
#define PerfRecord general_PerfRecord
#define PerfSegment general_PerfSegment
#define PerfStat general_PerfStat
#define QVSTraceEntry general_QVSTraceEntry
#define QueStat general_QueStat
#define Queue general_Queue
#define R3 general_R3
#define RbCompare general_RbCompare
#define RbNode general_RbNode
#define RefCounter general_RefCounter
#define RefCounterRelease general_RefCounterRelease
#define ShmQueue general_ShmQueue
#define ShmQueueStat general_ShmQueueStat
#define Spline1 general_Spline1
#define SplineCoord general_SplineCoord
#define SplineLX general_SplineLX
#define SplineResult general_SplineResult
#define Stack general_Stack
#define StackStat general_StackStat
#define StrList general_StrList
#define T4 general_T4
#define V3 general_V3
#define Vstr general_Vstr
#define VstrStat general_VstrStat
#elif defined(GENERAL_NO_GLOBAL_NAMES)
#undef GENERAL_NAMES_BEGUN
#undef Action
#undef ActionCallback
#undef ActionStat
#undef ArrayLst
#undef ArrayLstStat
#undef BufPool
#undef CBuf
#undef CBufStat
#undef Cache
#undef CacheDispose
#undef CacheMake
#undef CacheStat
#undef ChronoLocal
#undef ChronoRec
#undef CpuTimeSelector
#undef DynLdStat
#undef GlobStat
#undef KeyCall
#undef KeyCallStat
#undef KuCountStatus
#undef List
#undef ListNode
#undef Map
#undef MapStat
#undef PQCompare
#undef PQStat
#undef PQueue
#undef PerfCounterDef
#undef PerfObjectDef
#undef PerfRecord
#undef PerfSegment
#undef PerfStat
#undef QVSTraceEntry
#undef QueStat
#undef Queue
#undef R3
#undef RbCompare
#undef RbNode
#undef RefCounter
#undef RefCounterRelease
#undef ShmQueue
#undef ShmQueueStat
#undef Spline1
#undef SplineCoord
#undef SplineLX
#undef SplineResult
#undef Stack
#undef StackStat
#undef StrList
#undef T4
#undef V3
#undef Vstr
#undef VstrStat
#endif

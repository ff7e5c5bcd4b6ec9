#include "base/checked_size.h"
#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/arraylst.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <bit>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

GENERAL_MODULE_ID("$Id$");

namespace {

struct Pair {
    uint32_t key;
    uint32_t object;
};

constexpr uint32_t growthStep = 10;

} // namespace

struct ArrayLst {
    uint32_t magic; ///< not cleared on destruction
    uint32_t count;
    uint32_t capacity; ///< pairs
    uint32_t cursor;   ///< index of the pair that ArrayLstNext gives
    Pair *pairs;
};

static_assert(offsetof(ArrayLst, count) == 4 && offsetof(ArrayLst, capacity) == 8 && offsetof(ArrayLst, cursor) == 12);
static_assert(offsetof(ArrayLst, pairs) == 16 && sizeof(ArrayLst) == 20);
static_assert(offsetof(Pair, object) == 4 && sizeof(Pair) == 8);

template<>
constexpr uint32_t general::liveMagic<ArrayLst> = 0x0004676C;

namespace {

constexpr ArrayLst emptyList = {
    .magic = general::liveMagic<ArrayLst>, .count = 0, .capacity = 0, .cursor = 0, .pairs = nullptr};

using general::isLive;

/// Makes room for one more pair. A failed first allocation leaves the capacity at 10 without an
/// array; the array is what tells whether there is room.
bool makeRoom(ArrayLst *list)
{
    if (list->pairs == nullptr) {
        list->capacity = growthStep;
        list->pairs = static_cast<Pair *>(malloc(growthStep * sizeof(Pair)));
        return list->pairs != nullptr;
    }
    if (list->count < list->capacity)
        return true;
    size_t size = 0;
    if (!general::checkedProduct(list->capacity + growthStep, sizeof(Pair), size))
        return false;
    auto *pairs = static_cast<Pair *>(realloc(list->pairs, size));
    if (pairs == nullptr)
        return false;
    list->pairs = pairs;
    list->capacity += growthStep;
    return true;
}

using Member = uint32_t Pair::*;

/// Which of four pairs have a key or object: a bit for each.
template<Member member>
uint32_t matchesAmongFour(const Pair *pairs, uint32_t wanted)
{
#ifdef __SSE2__
    __m128 low = _mm_loadu_ps(reinterpret_cast<const float *>(pairs)); // moved and regrouped, never computed with
    __m128 high = _mm_loadu_ps(reinterpret_cast<const float *>(pairs + 2));
    __m128 members = member == &Pair::key ? _mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0))
                                          : _mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1));
    __m128i equal = _mm_cmpeq_epi32(_mm_castps_si128(members), _mm_set1_epi32(static_cast<int>(wanted)));
    return static_cast<uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(equal)));
#else
    uint32_t matches = 0;
    for (uint32_t i = 0; i < 4; ++i)
        matches |= uint32_t{pairs[i].*member == wanted} << i;
    return matches;
#endif
}

/// The index of the first pair with a key or object; the count if there is none.
template<Member member>
[[gnu::always_inline]] inline uint32_t indexOf(const ArrayLst *list, uint32_t wanted)
{
    const Pair *pairs = list->pairs;
    uint32_t count = list->count;
    uint32_t index = 0;
    for (; count - index >= 4; index += 4)
        if (uint32_t matches = matchesAmongFour<member>(pairs + index, wanted))
            return index + static_cast<uint32_t>(std::countr_zero(matches));
    while (index < count && pairs[index].*member != wanted)
        ++index;
    return index;
}

template<Member member, Member other>
ArrayLstStat removePair(ArrayLst *list, uint32_t wanted, uint32_t *partner, ArrayLstStat notFound)
{
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;

    *partner = 0;
    uint32_t index = indexOf<member>(list, wanted);
    if (index == list->count)
        return notFound;
    Pair *pair = &list->pairs[index];
    *partner = pair->*other;
    list->cursor = index;
    --list->count;
    memmove(pair, pair + 1, size_t{list->count - index} * sizeof(Pair));
    return ARRAYLST_OK;
}

template<Member member, Member other>
ArrayLstStat seekPair(ArrayLst *list, uint32_t wanted, uint32_t *partner, ArrayLstStat notFound)
{
    *partner = 0;
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;

    uint32_t index = indexOf<member>(list, wanted);
    if (index == list->count)
        return notFound;
    *partner = list->pairs[index].*other;
    list->cursor = index + 1;
    return ARRAYLST_OK;
}

/// Gives the pair at an index and leaves the cursor behind it.
ArrayLstStat visit(ArrayLst *list, uint32_t index, uint32_t *key, uint32_t *object)
{
    if (index >= list->count)
        return ARRAYLST_EMPTY;
    *key = list->pairs[index].key;
    *object = list->pairs[index].object;
    list->cursor = index + 1;
    return ARRAYLST_OK;
}

template<Member member>
ArrayLstStat snapshot(const ArrayLst *list, uint32_t *count, uint32_t **array)
{
    *count = 0;
    *array = nullptr;
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;
    if (list->count == 0)
        return ARRAYLST_EMPTY;
    auto *copy = static_cast<uint32_t *>(malloc(size_t{list->count} * sizeof(uint32_t)));
    if (copy == nullptr)
        return ARRAYLST_BAD_MALLOC;

    for (uint32_t i = 0; i < list->count; ++i)
        copy[i] = list->pairs[i].*member;
    *count = list->count;
    *array = copy;
    return ARRAYLST_OK;
}

} // namespace

ArrayLst *ArrayLstCreate(void)
{
    auto *list = static_cast<ArrayLst *>(malloc(sizeof(ArrayLst)));
    if (list != nullptr)
        *list = emptyList;
    return list;
}

uint32_t ArrayLstDestroy(ArrayLst *list)
{
    if (list == nullptr)
        return ARRAYLST_OK;
    if (!isLive(list))
        return ARRAYLST_INVALID_ARGS;

    free(list->pairs);
    free(list);
    return ARRAYLST_OK;
}

uint32_t ArrayLstAdd(ArrayLst *list, uint32_t key, uint32_t object)
{
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;
    if (!makeRoom(list))
        return ARRAYLST_BAD_MALLOC;

    list->pairs[list->count] = Pair{.key = key, .object = object};
    ++list->count;
    return ARRAYLST_OK;
}

uint32_t ArrayLstRemoveAll(ArrayLst *list)
{
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;

    list->count = 0;
    list->cursor = 0;
    return ARRAYLST_OK;
}

uint32_t ArrayLstRemove(ArrayLst *list, uint32_t key, uint32_t *object)
{
    return removePair<&Pair::key, &Pair::object>(list, key, object, ARRAYLST_NO_SUCH_KEY);
}

uint32_t ArrayLstRemoveObj(ArrayLst *list, uint32_t *key, uint32_t object)
{
    return removePair<&Pair::object, &Pair::key>(list, object, key, ARRAYLST_NO_SUCH_OBJ);
}

uint32_t ArrayLstSeek(ArrayLst *list, uint32_t key, uint32_t *object)
{
    return seekPair<&Pair::key, &Pair::object>(list, key, object, ARRAYLST_NO_SUCH_KEY);
}

uint32_t ArrayLstSeekObj(ArrayLst *list, uint32_t *key, uint32_t object)
{
    return seekPair<&Pair::object, &Pair::key>(list, object, key, ARRAYLST_NO_SUCH_OBJ);
}

uint32_t ArrayLstFirst(ArrayLst *list, uint32_t *key, uint32_t *object)
{
    *key = *object = 0;
    return isLive(list) ? visit(list, 0, key, object) : ARRAYLST_NO_SUCH_LST;
}

uint32_t ArrayLstNext(ArrayLst *list, uint32_t *key, uint32_t *object)
{
    *key = *object = 0;
    return isLive(list) ? visit(list, list->cursor, key, object) : ARRAYLST_NO_SUCH_LST;
}

uint32_t ArrayLstLast(ArrayLst *list, uint32_t *key, uint32_t *object)
{
    *key = *object = 0;
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;
    return list->count == 0 ? ARRAYLST_EMPTY : visit(list, list->count - 1, key, object);
}

uint32_t ArrayLstSize(const ArrayLst *list, uint32_t *count)
{
    *count = 0;
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;

    *count = list->count;
    return ARRAYLST_OK;
}

uint32_t ArrayLstGet(const ArrayLst *list, uint32_t *key, uint32_t *object, uint32_t index)
{
    if (key != nullptr)
        *key = 0;
    if (object != nullptr)
        *object = 0;
    if (!isLive(list))
        return ARRAYLST_NO_SUCH_LST;
    if (index >= list->count)
        return ARRAYLST_NO_SUCH_OBJ;

    if (key != nullptr)
        *key = list->pairs[index].key;
    if (object != nullptr)
        *object = list->pairs[index].object;
    return ARRAYLST_OK;
}

uint32_t ArrayLstGetKeys(const ArrayLst *list, uint32_t *count, uint32_t **keys)
{
    return snapshot<&Pair::key>(list, count, keys);
}

uint32_t ArrayLstGetObjs(const ArrayLst *list, uint32_t *count, uint32_t **objects)
{
    return snapshot<&Pair::object>(list, count, objects);
}

void ArrayLstFree(void *array)
{
    free(array);
}

const char *ArrayLstStatStr(int32_t stat)
{
    static constexpr const char *names[] = {
        "ARRAYLST_OK",          "ARRAYLST_BAD_MALLOC",  "ARRAYLST_EMPTY",       "ARRAYLST_INVALID_ARGS",
        "ARRAYLST_NO_SUCH_KEY", "ARRAYLST_NO_SUCH_LST", "ARRAYLST_NO_SUCH_OBJ",
    };
    bool known = stat >= 0 && static_cast<size_t>(stat) < sizeof names / sizeof names[0];
    return known ? names[stat] : "arraylstStat unknown enum value";
}

#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/keycall.h"

#include <stddef.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace {

struct Entry {
    uint32_t key;
    void *callback;
    void *data;
    Entry *next;
};

} // namespace

struct KeyCall {
    uint32_t magic;
    uint32_t nextKey;
    Entry *first;
};

static_assert(offsetof(KeyCall, nextKey) == 4 && offsetof(KeyCall, first) == 8 && sizeof(KeyCall) == 12);
static_assert(offsetof(Entry, callback) == 4 && offsetof(Entry, data) == 8 && offsetof(Entry, next) == 12);
static_assert(sizeof(Entry) == 16);

template<>
constexpr uint32_t general::liveMagic<KeyCall> = 0x4B657930;

namespace {

using general::isLive;

template<typename Value>
void store(Value *destination, Value value)
{
    if (destination != nullptr)
        *destination = value;
}

/// The link to the first entry with a key; the list's last link if there is none.
template<typename Link>
Link *findKey(Link *link, uint32_t key)
{
    while (*link != nullptr && (*link)->key != key)
        link = &(*link)->next;
    return link;
}

KeyCallStat show(const Entry *entry, uint32_t *key, void **callback, void **data)
{
    if (entry == nullptr)
        return KEYCALL_NO_ENTRY;
    store(key, entry->key);
    store(callback, entry->callback);
    store(data, entry->data);
    return KEYCALL_OK;
}

KeyCallStat takeOut(Entry **link, uint32_t *key, void **callback, void **data)
{
    Entry *entry = *link;
    KeyCallStat stat = show(entry, key, callback, data);
    if (entry != nullptr)
        *link = entry->next;
    free(entry);
    return stat;
}

} // namespace

KeyCall *KeyCallCreate(void)
{
    auto *registry = static_cast<KeyCall *>(malloc(sizeof(KeyCall)));
    if (registry != nullptr)
        *registry = KeyCall{.magic = general::liveMagic<KeyCall>, .nextKey = 1, .first = nullptr};
    return registry;
}

uint32_t KeyCallDestroy(KeyCall *registry)
{
    if (!isLive(registry))
        return KEYCALL_BAD_HANDLE;

    for (Entry *entry = registry->first; entry != nullptr;) {
        Entry *following = entry->next;
        free(entry);
        entry = following;
    }
    general::clearMagic(registry->magic);
    free(registry);
    return KEYCALL_OK;
}

uint32_t KeyCallNext(KeyCall *registry)
{
    return isLive(registry) ? registry->nextKey++ : 0;
}

uint32_t KeyCallAdd(KeyCall *registry, uint32_t key, void *callback, void *data)
{
    if (!isLive(registry))
        return KEYCALL_BAD_HANDLE;
    auto *entry = static_cast<Entry *>(malloc(sizeof(Entry)));
    if (entry == nullptr)
        return KEYCALL_NO_MEMORY;

    *entry = Entry{.key = key, .callback = callback, .data = data, .next = nullptr};
    Entry **link = &registry->first;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = entry;
    return KEYCALL_OK;
}

uint32_t KeyCallRmv(KeyCall *registry, uint32_t key, void **callback, void **data)
{
    if (!isLive(registry))
        return KEYCALL_BAD_HANDLE;

    return takeOut(findKey(&registry->first, key), nullptr, callback, data);
}

uint32_t KeyCallRmvAny(KeyCall *registry, uint32_t *key, void **callback, void **data)
{
    if (!isLive(registry))
        return KEYCALL_BAD_HANDLE;

    return takeOut(&registry->first, key, callback, data);
}

uint32_t KeyCallGet(const KeyCall *registry, uint32_t key, void **callback, void **data)
{
    if (!isLive(registry))
        return KEYCALL_BAD_HANDLE;

    return show(*findKey(&registry->first, key), nullptr, callback, data);
}

uint32_t KeyCallGetI(const KeyCall *registry, int32_t index, uint32_t *key, void **callback, void **data)
{
    if (!isLive(registry))
        return KEYCALL_BAD_HANDLE;
    if (index < 0)
        return KEYCALL_NO_ENTRY;

    const Entry *entry = registry->first;
    for (; entry != nullptr && index > 0; --index)
        entry = entry->next;
    return show(entry, key, callback, data);
}

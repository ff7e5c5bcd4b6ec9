#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/action.h"

#include <stddef.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace {

struct Entry {
    int32_t id;
    ActionCallback callback;
    void *userData;
    uint32_t removed; ///< 1 = to be freed when no ActionDo runs any more
    Entry *next;
    ActionCallback invoked; ///< the callback, or doNothing when there is none or the entry is removed
};

enum Pending : uint32_t { destructionPending = 1, removalsPending = 2 };

} // namespace

struct Action {
    uint32_t magic; ///< not cleared on destruction
    int32_t nextId; ///< below 1 when all have been given
    uint32_t depth; ///< ActionDo calls that are running
    uint32_t flags; ///< Pending
    Entry *first;
};

static_assert(offsetof(Action, nextId) == 4 && offsetof(Action, depth) == 8 && offsetof(Action, flags) == 12);
static_assert(offsetof(Action, first) == 16 && sizeof(Action) == 20);
static_assert(offsetof(Entry, callback) == 4 && offsetof(Entry, userData) == 8 && offsetof(Entry, removed) == 12);
static_assert(offsetof(Entry, next) == 16);

template<>
constexpr uint32_t general::liveMagic<Action> = 0x41637441;

namespace {

using general::isLive;

void doNothing(void *, void *, void *) {}

void markRemoved(Entry *entry)
{
    entry->removed = 1;
    entry->invoked = doNothing;
}

/// Unlinks and frees the entries that a predicate picks.
template<typename Predicate>
void freeEntries(Action *action, Predicate picked)
{
    for (Entry **link = &action->first; *link != nullptr;) {
        Entry *entry = *link;
        if (!picked(*entry)) {
            link = &entry->next;
            continue;
        }
        *link = entry->next;
        free(entry);
    }
}

/// Frees the entries that are marked removed, now or when the outermost ActionDo returns.
void purge(Action *action)
{
    if (action->depth != 0) {
        action->flags |= removalsPending;
        return;
    }
    freeEntries(action, [](const Entry &entry) { return entry.removed != 0; });
    action->flags &= ~uint32_t{removalsPending};
}

/// Frees the registry, now or when the outermost ActionDo returns.
void destroy(Action *action)
{
    if (action->depth != 0) {
        action->flags |= destructionPending;
        return;
    }
    freeEntries(action, [](const Entry &) { return true; });
    free(action);
}

/// Removes the first entry that a predicate picks. Until it is freed, a removed entry is still found:
/// callers see success again, and removing by callback does not reach a second entry in one pass.
template<typename Predicate>
ActionStat removeFirst(Action *action, Predicate picked)
{
    if (!isLive(action))
        return ACTION_BAD_HANDLE;
    for (Entry *entry = action->first; entry != nullptr; entry = entry->next)
        if (picked(*entry)) {
            markRemoved(entry);
            purge(action);
            return ACTION_OK;
        }
    return ACTION_NO_ENTRY;
}

} // namespace

Action *ActionCreate(void)
{
    auto *action = static_cast<Action *>(malloc(sizeof(Action)));
    if (action != nullptr)
        *action = Action{.magic = general::liveMagic<Action>, .nextId = 1, .depth = 0, .flags = 0, .first = nullptr};
    return action;
}

uint32_t ActionDestroy(Action *action)
{
    if (!isLive(action))
        return ACTION_BAD_HANDLE;

    destroy(action);
    return ACTION_OK;
}

int32_t ActionAdd(Action *action, ActionCallback callback, void *userData)
{
    if (!isLive(action) || action->nextId < 1)
        return 0;
    auto *entry = static_cast<Entry *>(malloc(sizeof(Entry)));
    if (entry == nullptr)
        return 0;

    int32_t id = action->nextId;
    action->nextId = id == INT32_MAX ? 0 : id + 1;
    *entry = Entry{.id = id,
                   .callback = callback,
                   .userData = userData,
                   .removed = 0,
                   .next = nullptr,
                   .invoked = callback == nullptr ? doNothing : callback};
    Entry **link = &action->first;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = entry;
    return id;
}

uint32_t ActionRmv(Action *action, int32_t id)
{
    return removeFirst(action, [id](const Entry &entry) { return entry.id == id; });
}

uint32_t ActionRmvCall(Action *action, ActionCallback callback)
{
    return removeFirst(action, [callback](const Entry &entry) { return entry.callback == callback; });
}

uint32_t ActionRmvAll(Action *action)
{
    if (!isLive(action))
        return ACTION_BAD_HANDLE;

    for (Entry *entry = action->first; entry != nullptr; entry = entry->next)
        markRemoved(entry);
    purge(action);
    return ACTION_OK;
}

uint32_t ActionDo(Action *action, void *first, void *second)
{
    if (!isLive(action))
        return ACTION_BAD_HANDLE;

    ++action->depth;
    // The next entry is read after the call, which may have added it.
    for (const Entry *entry = action->first; entry != nullptr; entry = entry->next)
        entry->invoked(first, entry->userData, second);
    if (--action->depth != 0)
        return ACTION_OK;

    if (action->flags & destructionPending)
        destroy(action);
    else if (action->flags & removalsPending)
        purge(action);
    return ACTION_OK;
}

uint32_t ActionCount(const Action *action, uint32_t *count)
{
    if (!isLive(action))
        return ACTION_BAD_HANDLE;
    if (count == nullptr)
        return ACTION_NO_ENTRY;

    *count = 0;
    for (const Entry *entry = action->first; entry != nullptr; entry = entry->next)
        *count += entry->removed == 0;
    return ACTION_OK;
}

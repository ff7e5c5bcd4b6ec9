#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/list.h"

#include <stddef.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

static_assert(offsetof(ListNode, previous) == 4 && sizeof(ListNode) == 8);
static_assert(offsetof(List, nodeSize) == 8 && offsetof(List, spares) == 12 && offsetof(List, magic) == 16);
static_assert(sizeof(List) == 20);

template<>
constexpr uint32_t general::liveMagic<List> = 0x4C697374;

namespace {

using general::isLive;

/// The spare chain ends in a block of its own whose link points to itself.
bool isTerminator(const ListNode *spare)
{
    return spare->next == spare;
}

} // namespace

List *ListMake(uint32_t nodeSize)
{
    auto *list = static_cast<List *>(malloc(sizeof(List)));
    auto *terminator = static_cast<ListNode *>(malloc(sizeof(ListNode)));
    if (list == nullptr || terminator == nullptr) {
        free(list);
        free(terminator);
        return nullptr;
    }
    terminator->next = terminator;
    terminator->previous = nullptr;
    list->links = {.next = &list->links, .previous = &list->links};
    list->nodeSize = nodeSize < sizeof(ListNode) ? uint32_t{sizeof(ListNode)} : nodeSize;
    list->spares = terminator;
    list->magic = general::liveMagic<List>;
    return list;
}

int ListDestroy(List *list)
{
    if (!isLive(list))
        return 0;

    for (ListNode *node = list->links.next; node != &list->links;) {
        ListNode *next = node->next;
        free(node);
        node = next;
    }
    ListNode *spare = list->spares;
    while (!isTerminator(spare)) {
        ListNode *next = spare->next;
        free(spare);
        spare = next;
    }
    free(spare);
    general::clearMagic(list->magic);
    free(list);
    return 1;
}

void *ListMakeNode(List *list)
{
    if (!isLive(list))
        return nullptr;
    if (isTerminator(list->spares))
        return malloc(list->nodeSize);

    ListNode *node = list->spares;
    list->spares = node->next;
    return node;
}

void ListFreeNode(List *list, void *node)
{
    if (!isLive(list) || node == nullptr)
        return;

    auto *spare = static_cast<ListNode *>(node);
    spare->next = list->spares;
    list->spares = spare;
}

void ListInsert(ListNode *position, ListNode *node)
{
    node->next = position;
    node->previous = position->previous;
    position->previous->next = node;
    position->previous = node;
}

void ListRmvItem(ListNode *node)
{
    node->previous->next = node->next;
    node->next->previous = node->previous;
}

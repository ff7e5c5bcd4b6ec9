/// @file
/// Intrusive circular doubly linked list with recycled nodes of one size.
///
/// A node is a block of the caller's own layout that begins with two links, a ListNode. The list
/// begins with the same two links and is its own sentinel: the handle, seen as a node, stands
/// before the first and after the last node.
///
///     typedef struct Job { ListNode links; int id; } Job;
///     List *jobs = ListMake(sizeof(Job));
///     Job *job = (Job *)ListMakeNode(jobs);
///     ListInsert(&jobs->links, &job->links);            // at the end
///     for (ListNode *n = jobs->links.next; n != &jobs->links; n = n->next) ...
///
/// ListDestroy frees what is on the list or spare. Nothing frees a node that has been unlinked and not
/// given back: hand it to ListFreeNode before the list is destroyed.
///
/// A list is not locked: callers serialise access to one list.

#ifndef GENERAL_LIST_H
#define GENERAL_LIST_H

#include "general/api.h"
#include "general/names.h"

/// The two links that every node begins with.
typedef struct ListNode {
    struct ListNode *next;     ///< towards the end
    struct ListNode *previous; ///< towards the beginning
} ListNode;

/// A list. Callers read `links` (`next` is the first node, `previous` the last, both the handle
/// itself when the list is empty) and leave the rest alone.
typedef struct List {
    ListNode links;    ///< first and last node
    uint32_t nodeSize; ///< bytes per node
    ListNode *spares;  ///< nodes to hand out again, chained by their first link
    uint32_t magic;    ///< what tells a live list
} List;

/// Makes an empty list.
/// @param nodeSize  bytes per node, both links included. A size below that of the links is raised
///                  to it, because a spare node is chained through its first link
/// @return the list, which the caller hands to ListDestroy, or null if memory is exhausted
GENERAL_API List *GENERAL_CALL ListMake(uint32_t nodeSize);

/// Frees every node on the list, every spare node and the list itself; not what nodes point to, and
/// not nodes that are neither on the list nor spare.
/// @param list  a live list
/// @return 1, or 0 for a null handle or one that is not a live list
GENERAL_API int GENERAL_CALL ListDestroy(List *list);

/// Hands out a node that is on no list: the one that ListFreeNode was given last if there is a
/// spare, a new block otherwise. Its contents are not cleared. Until it is linked or given back, it is
/// the caller's to keep track of.
/// @param list  a live list
/// @return nodeSize bytes that belong to the list; null if the handle is null or not a live list, or
///         if memory is exhausted
GENERAL_API void *GENERAL_CALL ListMakeNode(List *list);

/// Takes a node back for the next ListMakeNode. Its memory returns to the heap with ListDestroy only.
/// @param list  a live list; the call is ignored otherwise
/// @param node  a node of this list that is unlinked, or was never linked; null is ignored
GENERAL_API void GENERAL_CALL ListFreeNode(List *list, void *node);

/// Links a node in front of a position. Nothing is checked.
/// @param position  a node of the list, or the list's own links to append at the end
/// @param node      a node that is on no list
GENERAL_API void GENERAL_CALL ListInsert(ListNode *position, ListNode *node);

/// Unlinks a node from the list that holds it. The node's own links are left as they were. Nothing
/// is checked.
/// @param node  a node that is on a list
GENERAL_API void GENERAL_CALL ListRmvItem(ListNode *node);

#include "general/names.h"

#endif

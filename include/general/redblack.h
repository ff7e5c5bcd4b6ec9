/// @file
/// Ordered dictionary: a leaf-oriented red-black tree whose leaves are threaded in key order.
///
/// Every pair of key and value lives in a leaf; the internal nodes only route the search. A tree is
/// handled through its head. Keys are strings (functions without suffix: byte order, bytes taken as
/// unsigned), signed 32-bit integers (suffix `I`) or whatever a caller's comparison orders (suffix
/// `G`); one tree keeps to one kind. The tree never copies, changes or frees keys and values.
///
/// Inserting is done at a position that a search has found, so a caller decides about duplicates:
///
///     int32_t found;
///     RbNode *position = RbFindKey_n(tree, word, &found);
///     if (!found)
///         RbInsert_b(position, word, counter);
///
/// A leaf stays where it is, with its key and value, until it is deleted itself: other insertions and
/// deletions do not move it. Deleting frees it, so a walk takes the next leaf first:
///
///     for (RbNode *next, *leaf = RbFirst(tree); leaf; leaf = next) {
///         next = RbNext(leaf);
///         if (isOutdated(RbVal(leaf)))
///             RbDeleteNode(leaf);
///     }
///
/// A position from a search holds until the tree next changes: what belongs in front of it may be
/// another leaf then. Internal nodes come and go with every change.
///
/// Nodes are found, inserted and deleted in O(log n); a step along the order takes constant time.
/// An insertion takes two heap blocks (the first leaf one), a deletion frees as many. A tree is not
/// locked: callers serialise access to one tree. Null arguments are not checked, and a destroyed tree is
/// not told from a live one: it has no magic.
///
/// Methods: red-black trees, R. Bayer (1972), L. J. Guibas and R. Sedgewick (1978).

#ifndef GENERAL_REDBLACK_H
#define GENERAL_REDBLACK_H

#include "general/api.h"
#include "general/names.h"

/// A tree's head, one of its leaves, or an internal node. Opaque to callers.
typedef struct RbNode RbNode;

/// Orders opaque keys: negative, 0 or positive as searchKey comes before, equals or follows nodeKey. It
/// must not change the tree that is searched, and has to return: not by longjmp, nor by an exception.
typedef int(GENERAL_CALL *RbCompare)(const void *searchKey, const void *nodeKey);

/// Makes an empty tree.
/// @return its head, which the caller hands to RbDestroy, or null if memory is exhausted
GENERAL_API RbNode *GENERAL_CALL RbCreate(void);

/// Deletes every leaf and frees the head. Keys and values are not touched.
/// @param tree  a head; anything else is left alone
GENERAL_API void GENERAL_CALL RbDestroy(RbNode *tree);

/// Looks a string key up.
/// @param tree   a head
/// @param key    a NUL-terminated string
/// @param found  set to 1 when the tree has the key, to 0 otherwise
/// @return with found 1, a leaf with that key. With found 0, the position to insert the key at: the
///         leaf with the smallest greater key, or the head if no key is greater (always so in an
///         empty tree). Null if tree is not a head
GENERAL_API RbNode *GENERAL_CALL RbFindKey_n(RbNode *tree, const char *key, int32_t *found);
/// As RbFindKey_n, without saying whether the key was found.
/// @param tree  a head
/// @param key   a NUL-terminated string
/// @return as RbFindKey_n
GENERAL_API RbNode *GENERAL_CALL RbFindKey(RbNode *tree, const char *key);
/// As RbFindKey_n, for a tree with integer keys.
/// @param tree   a head
/// @param key    any number
/// @param found  set to 1 when the tree has the key, to 0 otherwise
/// @return as RbFindKey_n
GENERAL_API RbNode *GENERAL_CALL RbFindKeyI_n(RbNode *tree, int32_t key, int32_t *found);
/// As RbFindKeyI_n, without saying whether the key was found.
/// @param tree  a head
/// @param key   any number
/// @return as RbFindKey_n
GENERAL_API RbNode *GENERAL_CALL RbFindKeyI(RbNode *tree, int32_t key);
/// As RbFindKey_n, for a tree with opaque keys.
/// @param tree     a head
/// @param key      any pointer that compare understands
/// @param compare  the order that the tree was built with; key is its first argument
/// @param found    set to 1 when the tree has the key, to 0 otherwise
/// @return as RbFindKey_n
GENERAL_API RbNode *GENERAL_CALL RbFindKeyG_n(RbNode *tree, const void *key, RbCompare compare, int32_t *found);
/// As RbFindKeyG_n, without saying whether the key was found.
/// @param tree     a head
/// @param key      any pointer that compare understands
/// @param compare  the order that the tree was built with; key is its first argument
/// @return as RbFindKey_n
GENERAL_API RbNode *GENERAL_CALL RbFindKeyG(RbNode *tree, const void *key, RbCompare compare);

/// Looks a string key up and takes no other for it.
/// @param tree  a head
/// @param key   a NUL-terminated string
/// @return a leaf with that key; null if there is none or tree is not a head
GENERAL_API RbNode *GENERAL_CALL RbExact(RbNode *tree, const char *key);
/// As RbExact, for a tree with integer keys.
/// @param tree  a head
/// @param key   any number
/// @return as RbExact
GENERAL_API RbNode *GENERAL_CALL RbExactI(RbNode *tree, int32_t key);
/// As RbExact, for a tree with opaque keys.
/// @param tree     a head
/// @param key      any pointer that compare understands
/// @param compare  the order that the tree was built with; key is its first argument
/// @return as RbExact
GENERAL_API RbNode *GENERAL_CALL RbExactG(RbNode *tree, const void *key, RbCompare compare);

/// Inserts a pair in front of a position. The order of the keys is the caller's to keep: take the
/// position from a search for the key. An equal key is not refused.
/// @param position  a leaf, or the head to insert behind the last leaf
/// @param key       the key as the tree's kind demands, an integer key as `(void *)(intptr_t)key`.
///                  A string or opaque key must outlive the leaf
/// @param value     the caller's, any pointer
/// @return the new leaf, or null if memory is exhausted; the tree is then unchanged
GENERAL_API RbNode *GENERAL_CALL RbInsert_b(RbNode *position, const void *key, void *value);
/// As RbInsert_b, with the position read from a variable.
/// @param position  the variable
/// @param key       as for RbInsert_b
/// @param value     the caller's, any pointer
/// @return as RbInsert_b
GENERAL_API RbNode *GENERAL_CALL RbInsert_a(RbNode **position, const void *key, void *value);

/// Deletes a leaf and frees it; its key and value are not touched.
/// @param leaf  a leaf; heads and internal nodes are left alone
GENERAL_API void GENERAL_CALL RbDeleteNode(RbNode *leaf);

/// A leaf's string or opaque key, as it was inserted.
/// @param leaf  a leaf
/// @return the key
GENERAL_API void *GENERAL_CALL RbKey(const RbNode *leaf);
/// A leaf's integer key.
/// @param leaf  a leaf
/// @return the key
GENERAL_API int32_t GENERAL_CALL RbKeyI(const RbNode *leaf);
/// A leaf's value, as it was inserted.
/// @param leaf  a leaf
/// @return the value
GENERAL_API void *GENERAL_CALL RbVal(const RbNode *leaf);

/// @param tree  a head
/// @return the leaf with the smallest key; null if the tree is empty or the argument is not a head
GENERAL_API RbNode *GENERAL_CALL RbFirst(const RbNode *tree);
/// @param tree  a head
/// @return the leaf with the greatest key; null if the tree is empty or the argument is not a head
GENERAL_API RbNode *GENERAL_CALL RbLast(const RbNode *tree);
/// @param leaf  a leaf or a head
/// @return the leaf that follows, or null at the end. Given a head, its first leaf
GENERAL_API RbNode *GENERAL_CALL RbNext(const RbNode *leaf);
/// @param leaf  a leaf or a head
/// @return the leaf before, or null at the beginning. Given a head, its last leaf
GENERAL_API RbNode *GENERAL_CALL RbPrev(const RbNode *leaf);
/// @param tree  a head
/// @return 1 if the tree has no leaf, else 0
GENERAL_API int32_t GENERAL_CALL RbEmpty(const RbNode *tree);

/// @param leaf  a leaf
/// @return the number of black nodes from the leaf up to the root, both included, which is the same
///         for every leaf of a tree; 0 if the argument is not a leaf
GENERAL_API int32_t GENERAL_CALL RbNblack(const RbNode *leaf);
/// @param leaf  a leaf
/// @return the number of nodes from the leaf up to the root, both included; 0 if the argument is not
///         a leaf
GENERAL_API int32_t GENERAL_CALL RbPlength(const RbNode *leaf);

/// Writes a tree with string keys, or the part below a node, to standard output: one line a node,
/// children before their parent.
/// @param node    a head, an internal node or a leaf
/// @param indent  spaces in front of the node's line, two more for each level below; a head starts
///                at 0 whatever is given
/// @return what the last printf returned
GENERAL_API int32_t GENERAL_CALL RbPrintTree(const RbNode *node, int32_t indent);
/// As RbPrintTree, for a tree with integer keys.
/// @param node    a head, an internal node or a leaf
/// @param indent  spaces in front of the node's line
/// @return what the last printf returned
GENERAL_API int32_t GENERAL_CALL RbPrintTreeI(const RbNode *node, int32_t indent);

#include "general/names.h"

#endif

#include "base/crt_stdio.h"

#include "base/module_id.h"

#include "containers/RedBlack_node.h"

#include "general/redblack.h"

GENERAL_MODULE_ID("$Id$");

namespace {

/// The parts of the two dumps that differ.
class StringDump {
public:
    static int printHead(const RbNode *head) { return printf("Head: 0x%p.  Root = 0x%p\n", head, head->parent); }
    static int printInternal(const RbNode *node)
    {
        return printf("Int node 0x%p: %c,%c: l=0x%p, r=0x%p, p=0x%p, lr=(%s,%s)\n", node, colourOf(node), sideOf(node),
                      node->child[RB_LEFT], node->child[RB_RIGHT], node->parent, keyOf(node->leafLeft),
                      keyOf(node->leafRight));
    }
    static int printLeaf(const RbNode *leaf)
    {
        return printf("Ext node 0x%p: %c,%c: p=0x%p, k=%s\n", leaf, colourOf(leaf), sideOf(leaf), leaf->parent,
                      keyOf(leaf));
    }

protected:
    static int colourOf(const RbNode *node) { return node->isRed() ? 'R' : 'B'; }
    static int sideOf(const RbNode *node) { return node->side() == RB_LEFT ? 'l' : 'r'; }

private:
    static const char *keyOf(const RbNode *leaf) { return static_cast<const char *>(leaf->key); }
};

class IntegerDump : StringDump {
public:
    static int printHead(const RbNode *head)
    {
        return printf("Head: 0x%p.  Root = 0x%p, < = 0x%p, > = 0x%p\n", head, head->parent, head->previous(),
                      head->next());
    }
    static int printInternal(const RbNode *node)
    {
        return printf("Int node 0x%p: %c,%c: l=0x%p, r=0x%p, p=0x%p, lr=(%ld,%ld)\n", node, colourOf(node),
                      sideOf(node), node->child[RB_LEFT], node->child[RB_RIGHT], node->parent, keyOf(node->leafLeft),
                      keyOf(node->leafRight));
    }
    static int printLeaf(const RbNode *leaf)
    {
        return printf("Ext node 0x%p: %c,%c: p=0x%p, <=0x%p, >=0x%p k=%ld v=%p\n", leaf, colourOf(leaf), sideOf(leaf),
                      leaf->parent, leaf->previous(), leaf->next(), keyOf(leaf), leaf->value);
    }

private:
    static long keyOf(const RbNode *leaf) { return RbKeyI(leaf); }
};

template<typename Dump>
int32_t printSubtree(const RbNode *node, int32_t indent)
{
    if (node->isInternal()) {
        printSubtree<Dump>(node->child[RB_LEFT], indent + 2);
        printSubtree<Dump>(node->child[RB_RIGHT], indent + 2);
    }
    for (int32_t i = 0; i < indent; ++i)
        printf(" ");
    return node->isInternal() ? Dump::printInternal(node) : Dump::printLeaf(node);
}

template<typename Dump>
int32_t printTree(const RbNode *node, int32_t indent)
{
    if (!node->isHead())
        return printSubtree<Dump>(node, indent);
    if (node->isEmpty())
        return printf("tree 0x%p is empty\n", node);
    Dump::printHead(node);
    return printSubtree<Dump>(node->parent, 0);
}

} // namespace

int32_t RbPrintTree(const RbNode *node, int32_t indent)
{
    return printTree<StringDump>(node, indent);
}

int32_t RbPrintTreeI(const RbNode *node, int32_t indent)
{
    return printTree<IntegerDump>(node, indent);
}

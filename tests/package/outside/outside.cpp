#include <general.h>
#include <iostream>

int main()
{
    RbNode *tree = RbCreate();
    for (const char *word : {"two", "one"})
        RbInsert_b(RbFindKey(tree, word), word, nullptr);
    for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
        std::cout << static_cast<const char *>(RbKey(leaf)) << ' ';
    RbDestroy(tree);
    std::cout << "C++" << std::endl;
    return 0;
}

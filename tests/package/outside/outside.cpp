// With the library's parser of options, for which any two dashes end them.
#include <getopt.h>
#include <iostream>

#include <general.h>

int main(int argc, char **argv)
{
    RbNode *tree = RbCreate();
    while (getopt(argc, argv, "w:") == 'w')
        RbInsert_b(RbFindKey(tree, optarg), optarg, nullptr);
    for (RbNode *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
        std::cout << static_cast<const char *>(RbKey(leaf)) << ' ';
    RbDestroy(tree);
    std::cout << "C++ " << argv[optind] << std::endl;
    return 0;
}

// The interface for C++, in a program that has types of its own by the names in C. With exceptions it is linked and run
// as any program; without, it needs no runtime. The exit status is the result.
class Cache {
public:
    int own;
};
struct List {
    double own;
};

#define GENERAL_NO_GLOBAL_NAMES
#include <general/general.hpp>

class Map {
public:
    Cache cache;
    List list;
};
struct Queue;
enum class V3 { own = 2 };

extern "C" int sumAndDestroy(general::c::Queue *queue);

static int run()
{
    general::PriorityQueue<int> largestFirst;
    for (int element : {3, 40, 5})
        if (!largestFirst.push(element))
            return 0;
    Map map = {{static_cast<int>(V3::own)}, {0}};
    general::Queue<int> queue;
    queue.push(*largestFirst.top()).ignore();
    queue.push(map.cache.own).ignore();
    return sumAndDestroy(queue.release());
}

#if GENERAL_EXCEPTIONS
struct Throwing {
    bool operator()(int a, int b) const { return a == b ? throw 42 : a < b; }
};

int main()
{
    general::PriorityQueue<int, Throwing> queue;
    try {
        general::check(queue.push(1));
        general::check(queue.push(1));
    } catch (int thrown) {
        return queue.size() == 1 && thrown == run() ? thrown : 0;
    }
    return 0;
}
#else
extern "C" int GENERAL_CALL start()
{
    return run();
}
#endif

#include "bench/support/row.h"

#include "general/stack.h"

#include <vector>

namespace {

constexpr int depth = 1000;

void fillAndDrainStack(benchmark::State &state)
{
    Stack *stack = StackCreate(sizeof(int));
    for (auto _ : state) {
        for (int i = 0; i < depth; ++i)
            StackAdd(stack, &i);
        int newest = 0;
        while (StackRmv(stack, &newest) == STACK_OK)
            benchmark::DoNotOptimize(newest);
    }
    StackDestroy(stack);
}

void fillAndDrainVector(benchmark::State &state)
{
    std::vector<int> stack;
    for (auto _ : state) {
        for (int i = 0; i < depth; ++i)
            stack.push_back(i);
        while (!stack.empty()) {
            int newest = stack.back();
            stack.pop_back();
            benchmark::DoNotOptimize(newest);
        }
    }
}

const bool registered = [] {
    bench::contend("stack: push 1000 integers, pop 1000", "general", fillAndDrainStack, 0.5);
    bench::contend("stack: push 1000 integers, pop 1000", "std::vector", fillAndDrainVector);
    return true;
}();

} // namespace

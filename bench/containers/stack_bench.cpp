#include "bench/support/row.h"

#include "general/stack.h"
#include "general/verystupidfunction.h"

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

/// As many calls into the DLL that do nothing.
void callAsOften(benchmark::State &state)
{
    for (auto _ : state)
        for (int i = 0; i < 2 * depth; ++i)
            benchmark::DoNotOptimize(VeryStupidFunction(i));
}

struct Record {
    int fields[16];
};

void fillAndDrainStackOfRecords(benchmark::State &state)
{
    Stack *stack = StackCreate(sizeof(Record));
    Record record = {};
    for (auto _ : state) {
        for (int i = 0; i < depth; ++i) {
            record.fields[0] = i;
            StackAdd(stack, &record);
        }
        while (StackRmv(stack, &record) == STACK_OK)
            benchmark::DoNotOptimize(record);
    }
    StackDestroy(stack);
}

void fillAndDrainVectorOfRecords(benchmark::State &state)
{
    std::vector<Record> stack;
    Record record = {};
    for (auto _ : state) {
        for (int i = 0; i < depth; ++i) {
            record.fields[0] = i;
            stack.push_back(record);
        }
        while (!stack.empty()) {
            record = stack.back();
            stack.pop_back();
            benchmark::DoNotOptimize(record);
        }
    }
}

const bool registered = [] {
    bench::contend("stack: push 1000 integers, pop 1000", "general", fillAndDrainStack, 0.5);
    bench::contend("stack: push 1000 integers, pop 1000", "std::vector", fillAndDrainVector);
    bench::contend("stack: push 1000 integers, pop 1000", "limit: empty calls", callAsOften);
    bench::contend("stack: push 1000 records of 64 bytes, pop 1000", "general", fillAndDrainStackOfRecords, 0.5);
    bench::contend("stack: push 1000 records of 64 bytes, pop 1000", "std::vector", fillAndDrainVectorOfRecords);
    return true;
}();

} // namespace

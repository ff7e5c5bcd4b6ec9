// Containers that copy elements in and out: the stack and the queue.

#include "base/element_storage.h"

#include "bench/support/row.h"

#include "general/queue.h"
#include "general/stack.h"

#include <deque>
#include <utility>
#include <vector>

namespace {

constexpr uint32_t depth = 1000;

template<size_t size>
struct Record {
    uint32_t fields[size / sizeof(uint32_t)];
};

struct GeneralStack {
    Stack *stack;
    explicit GeneralStack(uint32_t size) : stack(StackCreate(size)) {}
    ~GeneralStack() { StackDestroy(stack); }
    void add(const void *element) { StackAdd(stack, element); }
    bool remove(void *element) { return StackRmv(stack, element) == STACK_OK; }
};

struct GeneralQueue {
    Queue *queue;
    explicit GeneralQueue(uint32_t size) : queue(QueCreate(size)) {}
    ~GeneralQueue() { QueDestroy(queue); }
    void add(const void *element) { QueAdd(queue, element); }
    bool remove(void *element) { return QueRmv(queue, element) == QUE_OK; }
};

template<typename Container, size_t size>
void fillAndDrain(benchmark::State &state)
{
    Container container(size);
    Record<size> record = {};
    for (auto _ : state) {
        for (uint32_t i = 0; i < depth; ++i) {
            record.fields[0] = i;
            container.add(&record);
        }
        while (container.remove(&record))
            benchmark::DoNotOptimize(record);
    }
}

template<size_t size>
void fillAndDrainVector(benchmark::State &state)
{
    std::vector<Record<size>> stack;
    Record<size> record = {};
    for (auto _ : state) {
        for (uint32_t i = 0; i < depth; ++i) {
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

template<size_t size>
void fillAndDrainDeque(benchmark::State &state)
{
    std::deque<Record<size>> queue;
    Record<size> record = {};
    for (auto _ : state) {
        for (uint32_t i = 0; i < depth; ++i) {
            record.fields[0] = i;
            queue.push_back(record);
        }
        while (!queue.empty()) {
            record = queue.front();
            queue.pop_front();
            benchmark::DoNotOptimize(record);
        }
    }
}

/// A stack and a queue that check nothing and never grow, called through pointers as the functions of a
/// DLL are.
struct Bare {
    uint32_t elementSize;
    uint32_t count;
    uint32_t capacity;
    uint32_t tail;
    uint32_t head;
    unsigned char *storage;

    static uint32_t push(Bare *stack, const void *element)
    {
        return general::putElement(stack, stack->count++, element);
    }
    static uint32_t pop(Bare *stack, void *element) { return general::takeElement(stack, --stack->count, element); }
    static uint32_t append(Bare *queue, const void *element)
    {
        ++queue->count;
        return general::putElement(queue, std::exchange(queue->tail, queue->after(queue->tail)), element);
    }
    static uint32_t takeOldest(Bare *queue, void *element)
    {
        --queue->count;
        return general::takeElement(queue, std::exchange(queue->head, queue->after(queue->head)), element);
    }
    uint32_t after(uint32_t number) const { return number + 1 == capacity ? 0 : number + 1; }
};

template<size_t size>
void copyAsOften(benchmark::State &state, uint32_t (*add)(Bare *, const void *), uint32_t (*remove)(Bare *, void *))
{
    benchmark::DoNotOptimize(add);
    benchmark::DoNotOptimize(remove);
    std::vector<unsigned char> storage(depth * size);
    Bare container = {size, 0, depth, 0, 0, storage.data()};
    Record<size> record = {};
    for (auto _ : state) {
        for (uint32_t i = 0; i < depth; ++i) {
            record.fields[0] = i;
            add(&container, &record);
        }
        while (container.count != 0) {
            remove(&container, &record);
            benchmark::DoNotOptimize(record);
        }
    }
}

template<size_t size>
void contendOneSize(double aim)
{
    const std::string bytes = " of " + std::to_string(size) + " bytes, ";
    const std::string stack = "stack: push 1000 elements" + bytes + "pop 1000";
    const std::string queue = "queue: add 1000 elements" + bytes + "remove 1000";
    bench::contend(stack, "general", fillAndDrain<GeneralStack, size>, aim);
    bench::contend(stack, "std::vector", fillAndDrainVector<size>);
    bench::contend(queue, "general", fillAndDrain<GeneralQueue, size>, aim);
    bench::contend(queue, "std::deque", fillAndDrainDeque<size>);
    constexpr double aimOfLimit = 0.9;
    bench::contend(
        stack, "limit: calls that copy",
        [](benchmark::State &state) { copyAsOften<size>(state, Bare::push, Bare::pop); }, aimOfLimit);
    bench::contend(
        queue, "limit: calls that copy",
        [](benchmark::State &state) { copyAsOften<size>(state, Bare::append, Bare::takeOldest); }, aimOfLimit);
}

const bool registered = [] {
    contendOneSize<4>(0.4);
    contendOneSize<8>(0.4);
    contendOneSize<16>(0.4);
    contendOneSize<32>(0.4);
    contendOneSize<64>(0.4);
    return true;
}();

} // namespace

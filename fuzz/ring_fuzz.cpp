// The input is a capacity and then steps: a ring that strangers write to is added to, removed from and spoiled.

#include "fuzz/fuzz_input.h"

#include "ipc/ring.h"

#include <algorithm>
#include <deque>
#include <numeric>

using namespace general::shm;

namespace {

constexpr uint32_t greatestCapacity = 80;

/// Takes the input apart; past its end there are zeros.
class Reader {
public:
    explicit Reader(const std::string &input) : input_(input) {}
    bool hasMore() const { return next_ < input_.size(); }
    uint8_t byte() { return hasMore() ? static_cast<uint8_t>(input_[next_++]) : 0; }
    uint32_t word()
    {
        uint32_t low = byte(), second = byte(), third = byte();
        return low | second << 8 | third << 16 | uint32_t{byte()} << 24;
    }

private:
    const std::string &input_;
    std::size_t next_ = 0;
};

} // namespace

void runWith(const std::string &input)
{
    Reader reader(input);
    uint32_t capacity = reader.byte() % (greatestCapacity + 1);
    std::vector<uint8_t> block(sizeof(RingHeader) + capacity); // exactly, for the sanitizers
    auto *ring = reinterpret_cast<RingHeader *>(block.data());
    ring->end = capacity;
    std::deque<uint8_t> held;
    bool isHonest = true; // nobody has spoiled the header so far
    uint8_t filling = 0;

    while (reader.hasMore()) {
        uint8_t step = reader.byte();
        auto spoil = [&] {
            uint32_t value = reader.word();
            std::memcpy(block.data() + step / 16 % 10 * sizeof value, &value, sizeof value);
            isHonest = false;
        };
        if (step % 8 == 0)
            spoil();
        RingState state = stateOf(ring, capacity);
        fuzz::require(state.count <= capacity && isPlausible(state, 0, capacity, capacity), "a state can be true");
        fuzz::require(!isHonest || (state.count == held.size() && !state.closed), "the count is that of the bytes");
        uint32_t ready = readinessOf(state, state, capacity, 3);
        fuzz::require(
            ready == ((state.count != 0 || state.closed ? 1 : 0) | (state.count < capacity && !state.closed ? 2 : 0)),
            "readiness follows from the state");
        if (step % 8 == 1)
            spoil(); // once read, the header may say anything
        std::vector<uint8_t> bytes(1U + reader.byte());
        auto length = static_cast<uint32_t>(bytes.size());
        if (step & 8) {
            std::iota(bytes.begin(), bytes.end(), filling);
            uint32_t added = copyIn(ring, state, capacity, bytes.data(), length);
            fuzz::require(added == std::min(length, capacity - state.count), "what fits is added");
            finishAdd(ring, state, capacity, added);
            held.insert(held.end(), bytes.begin(), bytes.begin() + added);
            filling = static_cast<uint8_t>(filling + added);
        } else {
            uint32_t removed = copyOut(ring, state, capacity, bytes.data(), length);
            fuzz::require(removed == std::min(length, state.count), "what is there is removed");
            finishRemove(ring, state, capacity, removed);
            if (isHonest) {
                fuzz::require(std::equal(bytes.begin(), bytes.begin() + removed, held.begin()), "the order is kept");
                held.erase(held.begin(), held.begin() + removed);
            }
        }
    }
}

#include "talvex/math/FrameLengthRing.h"

namespace Math {

FrameLengthRing::FrameLengthRing(std::size_t reservedCapacity) : storage(reservedCapacity) {}

void FrameLengthRing::push_back(float value) {
    if (count == storage.size()) grow();
    std::size_t index = head + count;
    if (index >= storage.size()) index -= storage.size();
    storage[index] = value;
    ++count;
}

void FrameLengthRing::pop_front() {
    if (count == 0) return;
    ++head;
    if (head == storage.size()) head = 0;
    --count;
}

void FrameLengthRing::clear() {
    head = 0;
    count = 0;
}

void FrameLengthRing::grow() {
    std::vector<float> larger(storage.empty() ? 16 : storage.size() * 2);
    for (std::size_t position = 0; position < count; ++position) larger[position] = at(position);
    storage.swap(larger);
    head = 0;
}

}  // namespace Math

#pragma once

#include <cstddef>
#include <iterator>
#include <vector>

namespace Math {

// A double-ended queue of frame lengths in one contiguous circular buffer. The frame-length
// queues push and drop a frame on every frame of a game; a std::deque would allocate and free a
// block every few hundred frames, this buffer only when it holds more frames than ever before.
// Storage never shrinks, not even on clear().
class FrameLengthRing {
  public:
    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = float;
        using difference_type = std::ptrdiff_t;
        using pointer = const float*;
        using reference = const float&;

        const_iterator(const FrameLengthRing* ring, std::size_t position)
            : ring(ring), position(position) {}
        reference operator*() const { return ring->at(position); }
        const_iterator& operator++() {
            ++position;
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator previous = *this;
            ++position;
            return previous;
        }
        bool operator==(const const_iterator& other) const { return position == other.position; }
        bool operator!=(const const_iterator& other) const { return position != other.position; }

      private:
        const FrameLengthRing* ring;
        std::size_t position;
    };

    explicit FrameLengthRing(std::size_t reservedCapacity = 0);

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    std::size_t capacity() const { return storage.size(); }

    // Oldest and newest element; the ring must not be empty.
    float front() const { return at(0); }
    float back() const { return at(count - 1); }

    void push_back(float value);
    // Drops the oldest element; does nothing on an empty ring.
    void pop_front();
    void clear();

    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, count); }

  private:
    const float& at(std::size_t position) const {
        std::size_t index = head + position;
        if (index >= storage.size()) index -= storage.size();
        return storage[index];
    }
    void grow();

    std::vector<float> storage;
    std::size_t head = 0;
    std::size_t count = 0;
};

}  // namespace Math

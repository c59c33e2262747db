// Owned arrays from the C heap. Sizes often come from a file: nothing here throws, and an
// allocation that fails gives a null array.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

struct FreeHeap {
    void operator()(void* p) const { std::free(p); }
};

// Indexed by the signed counts of the format.
template <class T> struct HeapArray : std::unique_ptr<T[], FreeHeap> {
    using std::unique_ptr<T[], FreeHeap>::unique_ptr;
    T& operator[](int64_t i) const { return this->get()[i]; }
};

// Has at least one element, so that an array of nothing differs from one without memory. Null when
// there is no memory or the size overflows. The elements are not initialised.
template <class T> [[nodiscard]] HeapArray<T> heap_array(int64_t count)
{
    const size_t wanted = count > 0 ? static_cast<size_t>(count) : 1;
    if (wanted > SIZE_MAX / 2 / sizeof(T)) return nullptr; // no product of two int32 is so large
    return HeapArray<T>(static_cast<T*>(std::malloc(wanted * sizeof(T))));
}

// The same, zeroed.
template <class T> [[nodiscard]] HeapArray<T> zeroed_heap_array(int64_t count)
{
    return HeapArray<T>(
        static_cast<T*>(std::calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(T))));
}

// An array whose elements own memory themselves: they are destroyed with it.
template <class T> struct FreeOwners {
    int64_t count;
    void operator()(T* owners) const
    {
        std::destroy_n(owners, count);
        std::free(owners);
    }
};
template <class T> using OwnerArray = std::unique_ptr<T[], FreeOwners<T>>;

// So many empty owners, by heap_array's rules.
template <class T> [[nodiscard]] OwnerArray<T> owner_array(int64_t count)
{
    T* const owners = heap_array<T>(count).release();
    if (!owners) return {};
    std::uninitialized_value_construct_n(owners, count);
    return {owners, {count}};
}

#ifndef UTDARRAY_H
#define UTDARRAY_H

#include "utlib/UtMemory.h"

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

/// Whether an object may be moved as bytes to another address, the old place then being forgotten
/// without a destructor. UtDArray takes this for granted. A type that something points into, itself
/// perhaps, can refuse, and is then no element type:
///     template <> struct UtRelocatable<Node> : std::false_type {};
template <class T>
struct UtRelocatable : std::true_type {
};

/// The equality by which an element is looked for. Handles are equal when they hold the same
/// object, or none both: identities are compared, never contents.
template <class T>
bool utStandardEqual(const T& a, const T& b)
{
    return a == b;
}

/// Contiguous array that grows by half its size and never shrinks before it is destroyed. It moves
/// its elements as bytes, without their constructors and destructors: see UtRelocatable.
/// References and pointers into it are valid until the next operation that adds or removes.
template <class T>
class UtDArray
{
public:
    long used = 0;       ///< elements in use
    long allocated = 0;  ///< elements for which storage is there
    T* data = nullptr;   ///< the storage; null while there is none

    UtDArray() = default;
    UtDArray(const UtDArray<T>&) = delete;
    UtDArray<T>& operator=(const UtDArray<T>&) = delete;

    ~UtDArray()
    {
        if constexpr (!std::is_trivially_destructible<T>::value)
            for (long i = 0; i < used; ++i)
                data[i].~T();
        used = 0;
        utfree(data);
    }

    long size() const { return used; }
    long capacity() const { return allocated; }

    /// The element at index i, 0 <= i < size(); not tested.
    T& operator[](long i) { return data[i]; }
    const T& operator[](long i) const { return data[i]; }

    /// Opens a gap of n elements at index pos, 0 <= pos <= size(). The gap is raw memory: the
    /// caller constructs the elements in it.
    void insertMemory(long pos, long n)
    {
        grow(used + n);
        if (pos != used)
            ::memmove((void*)(data + pos + n), (const void*)(data + pos), (used - pos) * sizeof(T));
        used += n;
    }

    /// Adds a copy of the value at the end: one call of the copy constructor. The value may be an
    /// element of this array.
    void append(const T& value)
    {
        const char* const place = &reinterpret_cast<const char&>(value);
        const char* const first = (const char*)data;
        const bool isInside = first && place >= first && place < first + used * (long)sizeof(T);
        const long offset = isInside ? place - first : 0;
        insertMemory(used, 1);  // may move the value along with the storage
        ::new ((void*)(data + used - 1)) T(isInside ? *(const T*)((char*)data + offset) : value);
    }

    /// Destroys the n elements from index pos on; those behind them move down.
    void remove(long pos, long n)
    {
        for (long i = pos; i < pos + n; ++i)
            data[i].~T();
        if (pos + n < used)
            ::memmove((void*)(data + pos), (const void*)(data + pos + n),
                      (used - pos - n) * sizeof(T));
        used -= n;
    }

    /// Cuts the array to its first n elements, or fills it up to n with default-constructed ones.
    /// resize(0) empties it and keeps the storage.
    void resize(long n)
    {
        for (long i = n; i < used; ++i)
            data[i].~T();
        grow(n);
        for (long i = used; i < n; ++i)
            ::new ((void*)(data + i)) T();
        used = n;
    }

private:
    /// Makes room for n elements: at least half as much again as is in use now.
    void grow(long n)
    {
        static_assert(UtRelocatable<T>::value, "UtDArray moves its elements as bytes");
        static_assert(alignof(T) <= alignof(std::max_align_t), "utrealloc() aligns no further");
        if (n <= allocated)
            return;
        const long half = (long)(1.5 * (double)used);
        allocated = n > half ? n : half;
        data = (T*)utrealloc((void*)data, allocated * sizeof(T));
    }
};

#endif

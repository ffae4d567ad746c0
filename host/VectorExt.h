#pragma once
#include <cstdint>
#include <new>
#include <utility>

#include "iOS.h"

// The editor's copyable growable array. Its storage comes from the editor's
// memory service on both sides of the plug-in boundary, so either side may
// grow or free an array that the other filled.
template <class T>
class VectorExt
{
public:
    VectorExt() = default;
    VectorExt(const VectorExt& o) { assign(o); }
    VectorExt& operator=(const VectorExt& o)
    {
        if (this != &o) {
            purge();
            assign(o);
        }
        return *this;
    }
    ~VectorExt() { purge(); }

    // False when the memory is not there; the array is then unchanged.
    bool add(const T& item)
    {
        if (count_ == capacity_ && !grow())
            return false;
        new (data_ + count_) T(item);
        ++count_;
        return true;
    }
    bool push_back(const T& item) { return add(item); }
    void clear() { purge(); }

    std::uint32_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    T& operator[](std::uint32_t i) { return data_[i]; }
    const T& operator[](std::uint32_t i) const { return data_[i]; }
    T* begin() { return data_; }
    T* end() { return data_ + count_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + count_; }

private:
    bool grow()
    {
        std::uint32_t capacity = capacity_ ? capacity_ * 2 : 4;
        if (capacity <= capacity_)
            return false;
        T* data = static_cast<T*>(OS().memory().allocate(sizeof(T) * capacity));
        if (!data)
            return false;
        for (std::uint32_t i = 0; i < count_; ++i) {
            new (data + i) T(std::move(data_[i]));
            data_[i].~T();
        }
        OS().memory().free(data_);
        data_ = data;
        capacity_ = capacity;
        return true;
    }
    void assign(const VectorExt& o)
    {
        for (const T& item : o)
            add(item);
    }
    void purge()
    {
        for (std::uint32_t i = 0; i < count_; ++i)
            data_[i].~T();
        if (data_)
            OS().memory().free(data_);
        data_ = nullptr;
        count_ = 0;
        capacity_ = 0;
    }

    T* data_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t capacity_ = 0;
};

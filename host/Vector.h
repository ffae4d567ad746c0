#pragma once
#include <cstdint>
#include <new>

// The editor's growable array. Its storage goes through the global array
// operators of the module that instantiates it, so a plug-in's vectors live
// in the plug-in's memory.
template <class T>
class Vector
{
public:
    Vector() = default;
    Vector(const Vector&) = delete;
    Vector& operator=(const Vector&) = delete;
    virtual ~Vector() { purge(); }

    virtual void add(const T& item)
    {
        resizeFor(count_ + 1);
        data_[count_] = item;
        ++count_;
    }
    virtual void push_back(const T& item) { add(item); }
    virtual bool locate(const T& item, std::uint32_t& index) const
    {
        for (std::uint32_t i = 0; i < count_; ++i) {
            if (data_[i] == item) {
                index = i;
                return true;
            }
        }
        index = count_;
        return false;
    }
    virtual bool intern(const T& item, std::uint32_t& index)
    {
        if (locate(item, index))
            return false;
        insert(item, index);
        return true;
    }
    // The caller answers for index: it is not checked against count.
    virtual void insert(const T& item, std::uint32_t index)
    {
        resizeFor(count_ + 1);
        for (std::uint32_t i = count_; i > index; --i)
            data_[i] = data_[i - 1];
        data_[index] = item;
        ++count_;
    }
    virtual bool removeIdx(std::uint32_t index)
    {
        if (index >= count_)
            return false;
        --count_;
        for (std::uint32_t i = index; i < count_; ++i)
            data_[i] = data_[i + 1];
        data_[count_] = T();
        return true;
    }
    // Trusts its caller: to is never compared with count.
    virtual bool remove(std::uint32_t from, std::uint32_t to)
    {
        if (from >= to)
            return true;
        for (std::uint32_t i = to; i < count_; ++i)
            data_[i - (to - from)] = data_[i];
        count_ = count_ + from - to;
        return true;
    }
    virtual bool removeItem(const T& item)
    {
        std::uint32_t index = 0;
        if (locate(item, index))
            return removeIdx(index);
        return false;
    }
    virtual void clear() { purge(); }
    virtual void consume(Vector& other)
    {
        if (&other == this)
            return;
        purge();
        data_ = other.data_;
        count_ = other.count_;
        capacity_ = other.capacity_;
        other.data_ = nullptr;
        other.count_ = 0;
        other.capacity_ = 0;
    }

    void resizeFor(std::uint32_t n)
    {
        if (n == 0) {
            purge();
            return;
        }
        if (n <= capacity_)
            return;
        std::uint32_t capacity = capacity_ ? capacity_ : 4;
        while (capacity < n && capacity != 0)
            capacity *= 2;
        if (capacity == 0)
            capacity = n; // doubling wrapped: take exactly what was asked
        T* data = new T[capacity];
        for (std::uint32_t i = 0; i < count_; ++i)
            data[i] = data_[i];
        delete[] data_;
        data_ = data;
        capacity_ = capacity;
    }
    void purge()
    {
        delete[] data_;
        data_ = nullptr;
        count_ = 0;
        capacity_ = 0;
    }

    std::uint32_t size() const { return count_; }
    std::uint32_t capacity() const { return capacity_; }
    T& operator[](std::uint32_t i) { return data_[i]; }
    const T& operator[](std::uint32_t i) const { return data_[i]; }
    T* begin() { return data_; }
    T* end() { return data_ + count_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + count_; }

private:
    T* data_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t capacity_ = 0;
};

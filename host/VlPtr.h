#pragma once
#include <cstddef>
#include <cstdint>
#include <utility>

#include "iOS.h"

namespace Vl {

// Base of every host object held through Ptr: carries the 32-bit counter
// that Ptr moves through the editor's atomic-counter service.
class RefCounted
{
public:
    RefCounted() = default;
    RefCounted(const RefCounted&) {}
    RefCounted& operator=(const RefCounted&) { return *this; }
    virtual ~RefCounted() = default;

    std::uint32_t* refCounter() const { return &refCount_; }

private:
    mutable std::uint32_t refCount_ = 0;
};

// Intrusive reference-counted pointer: the counter's address and the object.
// The last release deletes the object through its virtual destructor, so the
// module that built the object also frees it.
template <class T>
class Ptr
{
public:
    Ptr() = default;
    Ptr(std::nullptr_t) {}
    Ptr(T* p) : count_(p ? p->refCounter() : nullptr), obj_(p) { addRef(); }
    Ptr(const Ptr& o) : count_(o.count_), obj_(o.obj_) { addRef(); }
    Ptr(Ptr&& o) noexcept : count_(std::exchange(o.count_, nullptr)), obj_(std::exchange(o.obj_, nullptr)) {}
    template <class U>
    Ptr(const Ptr<U>& o) : count_(o.counter()), obj_(o.get())
    {
        addRef();
    }
    ~Ptr() { release(); }

    Ptr& operator=(const Ptr& o)
    {
        Ptr(o).swap(*this);
        return *this;
    }
    Ptr& operator=(Ptr&& o) noexcept
    {
        Ptr(std::move(o)).swap(*this);
        return *this;
    }
    Ptr& operator=(std::nullptr_t)
    {
        reset();
        return *this;
    }

    void reset() { Ptr().swap(*this); }
    void swap(Ptr& o) noexcept
    {
        std::swap(count_, o.count_);
        std::swap(obj_, o.obj_);
    }

    T* get() const { return obj_; }
    T* operator->() const { return obj_; }
    T& operator*() const { return *obj_; }
    explicit operator bool() const { return obj_ != nullptr; }
    bool operator!() const { return obj_ == nullptr; }
    bool operator==(const Ptr& o) const { return obj_ == o.obj_; }
    std::uint32_t* counter() const { return count_; }

private:
    void addRef()
    {
        if (count_)
            OS().atomics().increment(count_);
    }
    void release()
    {
        if (count_ && OS().atomics().decrement(count_) == 0)
            delete obj_;
        count_ = nullptr;
        obj_ = nullptr;
    }

    std::uint32_t* count_ = nullptr;
    T* obj_ = nullptr;
};

} // namespace Vl

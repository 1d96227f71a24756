#pragma once

#include "shared/library/common/pointers/SmartPointer.h"

namespace Velmor {

/// A pointer that sorts by its pointee, through `T::orderingField()`. It owns nothing. Both sides of a comparison must
/// point somewhere; `equals` alone takes null.
template <typename T>
class ComparisonPointer {
public:
    explicit ComparisonPointer(T* object = nullptr) : object_(object) {}
    ComparisonPointer(const ComparisonPointer&) = default;
    virtual ~ComparisonPointer() = default;

    virtual T* get() const { return object_; }
    virtual T* operator->() const { return object_; }
    virtual T& operator*() const { return *object_; }

    virtual void set(T* object) { object_ = object; }
    ComparisonPointer& operator=(const ComparisonPointer& other) = default;
    virtual bool isNull() const { return object_ == nullptr; }
    virtual void reset() { object_ = nullptr; }

    /// Compares addresses.
    virtual bool equals(const ComparisonPointer& other) const { return object_ == other.object_; }

    /// -1, 0 or 1.
    virtual int compare(const ComparisonPointer& other) const {
        const auto left = object_->orderingField();
        const auto right = other.object_->orderingField();
        return left < right ? -1 : (right < left ? 1 : 0);
    }
    virtual bool operator<(const ComparisonPointer& other) const { return compare(other) < 0; }
    virtual bool operator<=(const ComparisonPointer& other) const { return compare(other) <= 0; }
    virtual bool operator>(const ComparisonPointer& other) const { return compare(other) > 0; }
    virtual bool operator>=(const ComparisonPointer& other) const { return compare(other) >= 0; }
    virtual bool operator==(const ComparisonPointer& other) const { return compare(other) == 0; }
    virtual bool operator!=(const ComparisonPointer& other) const { return compare(other) != 0; }

private:
    T* object_;
};

/// A reference-counted owner that sorts by its pointee, for ordered containers of shared objects.
template <typename T>
class SmartComparisonPointer : public SmartPointer<T>, public ComparisonPointer<T> {
public:
    SmartComparisonPointer() = default;
    explicit SmartComparisonPointer(T* object) : SmartPointer<T>(object), ComparisonPointer<T>(object) {}
    SmartComparisonPointer(const SmartComparisonPointer&) = default;
    SmartComparisonPointer(SmartComparisonPointer&& other) noexcept
        : SmartPointer<T>(static_cast<SmartPointer<T>&&>(other)), ComparisonPointer<T>(other) {
        other.ComparisonPointer<T>::reset();
    }
    ~SmartComparisonPointer() override = default;

    SmartComparisonPointer& operator=(const SmartComparisonPointer& other) {
        SmartPointer<T>::operator=(other);
        ComparisonPointer<T>::set(other.SmartPointer<T>::get());
        return *this;
    }
    SmartComparisonPointer& operator=(SmartComparisonPointer&& other) noexcept {
        SmartPointer<T>::operator=(static_cast<SmartPointer<T>&&>(other));
        ComparisonPointer<T>::set(SmartPointer<T>::get());
        if (this != &other)
            other.ComparisonPointer<T>::reset();
        return *this;
    }

    T* get() const override { return SmartPointer<T>::get(); }
    T* operator->() const override { return SmartPointer<T>::get(); }
    T& operator*() const override { return *SmartPointer<T>::get(); }
    explicit operator bool() const { return !isNull(); }

    bool isNull() const override { return SmartPointer<T>::isNull(); }
    void release() override {
        SmartPointer<T>::release();
        ComparisonPointer<T>::reset();
    }
    void destroy() override {
        SmartPointer<T>::destroy();
        ComparisonPointer<T>::reset();
    }
    using SmartPointer<T>::equals;
    using ComparisonPointer<T>::equals;
};

} // namespace Velmor

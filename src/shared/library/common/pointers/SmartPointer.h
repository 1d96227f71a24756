#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace Velmor {

/// A reference-counted owner that can also destroy its object for all holders at once.
///
/// The holders share one number. Positive: the object lives, and the number counts its holders. Negative: the object
/// was destroyed by force, and the absolute value counts the holders left, who see `isNull`. The number may be changed
/// by several threads; one `SmartPointer` may not.
template <typename T>
class SmartPointer {
public:
    SmartPointer() = default;
    /// Takes the ownership of `object`.
    explicit SmartPointer(T* object) : pointer_(object), count_(object ? new std::atomic<int32_t>(1) : nullptr) {}
    SmartPointer(const SmartPointer& other) { share(other); }
    SmartPointer(SmartPointer&& other) noexcept
        : pointer_(std::exchange(other.pointer_, nullptr)), count_(std::exchange(other.count_, nullptr)) {}
    virtual ~SmartPointer() { drop(); }

    SmartPointer& operator=(const SmartPointer& other) {
        if (this != &other) {
            drop();
            share(other);
        }
        return *this;
    }
    SmartPointer& operator=(SmartPointer&& other) noexcept {
        if (this != &other) {
            drop();
            pointer_ = std::exchange(other.pointer_, nullptr);
            count_ = std::exchange(other.count_, nullptr);
        }
        return *this;
    }

    /// The object, without a test whether it was destroyed by another holder.
    T* get() const { return pointer_; }
    T* operator->() const { return pointer_; }
    T& operator*() const { return *pointer_; }
    explicit operator bool() const { return !isNull(); }

    /// True if there is no object, or if it was destroyed by any holder.
    virtual bool isNull() const { return !pointer_ || (count_ && count_->load(std::memory_order_acquire) < 1); }

    /// Gives this holder's share back; the last holder's ends the object.
    virtual void release() { drop(); }

    /// Ends the object now, whoever else holds it.
    virtual void destroy() {
        if (count_ && forceNegative()) {
            delete pointer_;
            pointer_ = nullptr;
            count_ = nullptr;
            return;
        }
        // The last holder just releases; an object that is gone already is only let go of.
        drop();
    }

    /// Compares the objects' addresses alone.
    virtual bool equals(const SmartPointer& other) const { return pointer_ == other.pointer_; }

private:
    void share(const SmartPointer& other) {
        pointer_ = other.pointer_;
        count_ = other.count_;
        if (!count_)
            return;
        int32_t value = count_->load(std::memory_order_relaxed);
        while (!count_->compare_exchange_weak(value, value < 0 ? value - 1 : value + 1, std::memory_order_acq_rel)) {
        }
    }

    void drop() {
        if (count_ && pointer_) {
            int32_t value = count_->load(std::memory_order_relaxed);
            while (
                !count_->compare_exchange_weak(value, value < 0 ? value + 1 : value - 1, std::memory_order_acq_rel)) {
            }
            if (value == 1)
                delete pointer_;
            if (value == 1 || value == -1)
                delete count_;
        }
        pointer_ = nullptr;
        count_ = nullptr;
    }

    /// With more than one holder, marks the object destroyed and leaves the number of the others; true if so.
    bool forceNegative() {
        int32_t value = count_->load(std::memory_order_relaxed);
        while (value > 1)
            if (count_->compare_exchange_weak(value, 1 - value, std::memory_order_acq_rel))
                return true;
        return false;
    }

    T* pointer_ = nullptr;
    std::atomic<int32_t>* count_ = nullptr;
};

} // namespace Velmor

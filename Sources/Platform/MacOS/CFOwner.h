#pragma once
// Owns one Core Foundation reference. Any thread.

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace quenda::mac {

template <typename Ref>
class CFOwner {
public:
    CFOwner() = default;
    /// Takes over a reference that a "Create" or "Copy" function returned; may be null.
    explicit CFOwner(Ref ref) : m_ref(ref) {}
    CFOwner(CFOwner &&other) noexcept : m_ref(std::exchange(other.m_ref, nullptr)) {}
    CFOwner &operator=(CFOwner &&other) noexcept {
        if (this != &other)
            reset(std::exchange(other.m_ref, nullptr));
        return *this;
    }
    CFOwner(const CFOwner &) = delete;
    CFOwner &operator=(const CFOwner &) = delete;
    ~CFOwner() { reset(); }

    void reset(Ref ref = nullptr) {
        if (m_ref)
            CFRelease(m_ref);
        m_ref = ref;
    }
    Ref get() const { return m_ref; }
    explicit operator bool() const { return m_ref != nullptr; }

private:
    Ref m_ref = nullptr;
};

} // namespace quenda::mac

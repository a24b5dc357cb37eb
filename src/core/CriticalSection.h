#pragma once

#include <mutex>

namespace Zarn {

// The lock of every shared registry. Re-entrant for the thread that holds it, like the
// platform lock it stands for: code that holds the settings lock may call something
// that takes it again.
class CriticalSection {
public:
    CriticalSection() = default;
    virtual ~CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() { mutex_.lock(); }
    void Leave() { mutex_.unlock(); }

private:
    std::recursive_mutex mutex_;
};

// Holds a CriticalSection for the life of the scope.
class CriticalSectionLock {
public:
    explicit CriticalSectionLock(CriticalSection& section) : section_(&section) {
        section_->Enter();
    }
    ~CriticalSectionLock() { section_->Leave(); }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

private:
    CriticalSection* section_;
};

}  // namespace Zarn

// A mutex whose uncontended lock and unlock are one atomic instruction each,
// inline, where std::mutex calls into the C library for both: the usage
// store takes its lock for every lookup by key, and a monitor looks up every
// key of the store each second. A contended lock marks that it waits and
// sleeps on the atomic, and the unlock that sees the mark wakes a sleeper;
// nothing spins. Meets the standard's Lockable, so std::lock_guard takes it.
#pragma once

#include <atomic>

class InlineMutex {
public:
    void lock() {
        if (!try_lock()) LockContended();
    }

    bool try_lock() {
        int expected = Unlocked;
        return state_.compare_exchange_strong(expected, Locked, std::memory_order_acquire,
                                              std::memory_order_relaxed);
    }

    void unlock() {
        if (state_.exchange(Unlocked, std::memory_order_release) == LockedWithWaiters) state_.notify_one();
    }

private:
    static constexpr int Unlocked = 0;
    static constexpr int Locked = 1;
    static constexpr int LockedWithWaiters = 2;

    // Whoever gets the lock here keeps the mark, since others may still sleep:
    // its unlock then wakes one, perhaps for nothing.
    void LockContended() {
        while (state_.exchange(LockedWithWaiters, std::memory_order_acquire) != Unlocked)
            state_.wait(LockedWithWaiters, std::memory_order_relaxed);
    }

    std::atomic<int> state_{Unlocked};
};

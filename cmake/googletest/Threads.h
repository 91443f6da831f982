// std::mutex and std::condition_variable for GoogleTest and for the benchmarks.
// The C++ library of the win32-thread compilers lacks them, and without them GoogleTest would count the
// assertions of other threads unprotected. Included ahead of every source that uses GoogleTest on Windows.
#pragma once

#include <chrono>
#include <mutex>

namespace std
{
class mutex
{
public:
    constexpr mutex() noexcept = default;
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;
    void lock();
    void unlock();

private:
    friend class condition_variable;
    void* state = nullptr; ///< an SRWLOCK
};

class condition_variable
{
public:
    constexpr condition_variable() noexcept = default;
    condition_variable(const condition_variable&) = delete;
    condition_variable& operator=(const condition_variable&) = delete;
    void notify_one();
    void notify_all();
    void wait(unique_lock<mutex>& lock);

    template<typename Predicate>
    void wait(unique_lock<mutex>& lock, Predicate predicate)
    {
        while (!predicate())
        {
            wait(lock);
        }
    }

    template<typename Representation, typename Period, typename Predicate>
    bool wait_for(unique_lock<mutex>& lock, const chrono::duration<Representation, Period>& limit,
                  Predicate predicate)
    {
        const auto end = chrono::steady_clock::now() + limit;
        while (!predicate())
        {
            const auto left = chrono::duration_cast<chrono::milliseconds>(end - chrono::steady_clock::now());
            if (left.count() <= 0)
            {
                return false;
            }
            WaitMilliseconds(lock, static_cast<unsigned long>(left.count()));
        }
        return true;
    }

private:
    void WaitMilliseconds(unique_lock<mutex>& lock, unsigned long milliseconds);

    void* state = nullptr; ///< a CONDITION_VARIABLE
};
} // namespace std

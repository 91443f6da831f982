// std::mutex and std::condition_variable for GoogleTest, which names both and nothing else of their kind.
// The C++ library of the win32-thread compilers lacks them, and without them GoogleTest would count the
// assertions of other threads unprotected. Included ahead of every source that uses GoogleTest on Windows.
#pragma once

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

private:
    void* state = nullptr; ///< a CONDITION_VARIABLE
};
} // namespace std

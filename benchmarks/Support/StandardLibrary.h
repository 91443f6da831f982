// What the C++ library of the win32-thread compilers lacks for the libraries that the benchmarks use, over the OS's
// own: std::thread, std::recursive_mutex and an output file that is never open. Included ahead of every source.
#pragma once

// The library's header defines a thread that can't be started.
#define thread threadOfTheLibrary
#include <thread>
#undef thread

#include "../../cmake/googletest/Threads.h"

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <utility>

namespace std
{
class recursive_mutex
{
public:
    recursive_mutex();
    ~recursive_mutex();
    recursive_mutex(const recursive_mutex&) = delete;
    recursive_mutex& operator=(const recursive_mutex&) = delete;
    void lock();
    void unlock();

private:
    alignas(8) char state[48]; ///< a CRITICAL_SECTION
};

class thread
{
public:
    thread() noexcept = default;

    template<typename Function, typename... Arguments,
             typename = enable_if_t<!is_same_v<decay_t<Function>, thread>>>
    explicit thread(Function&& function, Arguments&&... arguments)
    {
        Start(new std::function<void()>(bind(forward<Function>(function), forward<Arguments>(arguments)...)));
    }

    thread(thread&& other) noexcept
        : handle(exchange(other.handle, nullptr))
    {
    }

    thread& operator=(thread&& other) noexcept
    {
        swap(handle, other.handle);
        return *this;
    }

    bool joinable() const noexcept
    {
        return handle != nullptr;
    }

    void join();

private:
    void Start(std::function<void()>* body);

    void* handle = nullptr;
};

/// The library's file streams don't work with the universal runtime, whose mbstate_t is larger than the one that the
/// library was compiled with: constructing one faults.
class ofstreamNeverOpen : public ostringstream
{
public:
    void open(const string&)
    {
        setstate(failbit);
    }

    bool is_open() const
    {
        return false;
    }
};
} // namespace std

#define ofstream ofstreamNeverOpen

// An object of the module that keeps state between calls serves one thread at a
// time: a second thread is refused at once rather than left to race or to wait
// with the GIL released.
#pragma once

#include <mutex>
#include <stdexcept>
#include <string>

namespace ferrotip_python {

// Holds `busy` for the caller; RuntimeError naming `object` if another thread holds it.
inline std::unique_lock<std::mutex> claimFor(std::mutex& busy, const char* object)
{
    std::unique_lock<std::mutex> lock(busy, std::try_to_lock);
    if (!lock.owns_lock())
        throw std::runtime_error(std::string("this ") + object +
                                 " is busy in another thread; give each thread its own");
    return lock;
}

}  // namespace ferrotip_python

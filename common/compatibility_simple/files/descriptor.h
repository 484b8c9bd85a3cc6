#pragma once

#include "common/compatibility_simple/calls/calls.h"

#include <cerrno>
#include <utility>

/// Owns a file descriptor, and closes it in the destructor. Movable, not copyable.
class Descriptor
{
public:
    /// Takes ownership of `fd`; -1 is no descriptor.
    explicit Descriptor(int fd = -1)
        : mFd(fd)
    {
    }
    Descriptor(Descriptor&& other) noexcept
        : mFd(other.release())
    {
    }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(mFd, other.mFd);
        return *this;
    }
    ~Descriptor() { close(); }

    bool isOpen() const { return mFd != -1; }
    /// The descriptor, which stays owned; -1 for none.
    int get() const { return mFd; }
    /// Gives up the descriptor without closing it.
    [[nodiscard]] int release() { return std::exchange(mFd, -1); }
    /// Closes the descriptor, if it is open. Returns false, with errno set, when close(2)
    /// reports an error, such as data that a file server could not store. EINTR is no
    /// error: Linux has closed the descriptor then.
    bool close() { return !isOpen() || sc_close(release()) == 0 || errno == EINTR; }

private:
    int mFd;
};

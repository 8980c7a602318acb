// SPDX-License-Identifier: MIT
#ifndef LINXIPC_PLATFORM_FILEDESCRIPTOR_H
#define LINXIPC_PLATFORM_FILEDESCRIPTOR_H

#include "platform/export.h"

/// The owner of a file descriptor.
class LINXIPC_API FileDescriptor {
public:
    /// Closes the descriptor when there is one.
    virtual ~FileDescriptor();

    /// Writes `size` bytes of `data`; the number written goes to `sent`. 0 on success.
    virtual int Send(const void* data, unsigned size, unsigned& sent) = 0;

    /// Reads up to `size` bytes into `data`; the number read goes to `received`. 0 on success.
    virtual int Receive(void* data, unsigned size, unsigned& received) = 0;

    /// Turns blocking on or off. 0 on success.
    virtual int Blocking(bool on) = 0;

    /// The descriptor, for a poll loop; -1 when there is none. It belongs to the object: do not close it.
    int Descriptor() const { return descriptor; }

protected:
    int descriptor = -1;  ///< what `Descriptor` returns
};

#endif

/// @file
/// Ownership of a descriptor.

#ifndef RECORDER_DESCRIPTOR_H
#define RECORDER_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace vehicle_recorder {

/// A descriptor that is closed with its owner.
class Descriptor {
public:
    /// @param number  -1 for none
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }

    /// The descriptor, -1 for none. It stays this object's.
    int get() const { return number_; }

    /// Hands the descriptor over.
    int release() { return std::exchange(number_, -1); }

    /// Closes the descriptor and takes another.
    void reset(int number = -1) {
        if (number_ >= 0) {
            close(number_);
        }
        number_ = number;
    }

private:
    int number_;
};

/// Both ends of a pipe or of a pair of sockets.
struct Ends {
    Descriptor first;   ///< of a pipe the one that is read
    Descriptor second;  ///< of a pipe the one that is written
};

/// Makes a pipe, closed in programs that are executed.
/// @throws program::Failure  no_bus: the system has none left
Ends make_pipe();

}  // namespace vehicle_recorder

#endif

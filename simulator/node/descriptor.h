/// @file
/// Ownership of a file descriptor.

#ifndef SIMULATOR_NODE_DESCRIPTOR_H
#define SIMULATOR_NODE_DESCRIPTOR_H

namespace node_simulator {

/// A file descriptor that is closed with its owner.
class Descriptor {
public:
    /// @param number  the descriptor; -1 none
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// The number; -1 none.
    int get() const { return number_; }

private:
    int number_;
};

}  // namespace node_simulator

#endif

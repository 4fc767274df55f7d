/// @file
/// What connects the simulated nodes to the outside: the interface that a session serves.

#ifndef SIMULATOR_NODE_NODELINK_H
#define SIMULATOR_NODE_NODELINK_H

#include <optional>
#include <string>

#include "simulator/node/canframe.h"

namespace node_simulator {

/// One connection to the outside, that frames come from and go to.
class NodeLink {
public:
    NodeLink() = default;
    virtual ~NodeLink() = default;
    NodeLink(const NodeLink&) = delete;
    NodeLink& operator=(const NodeLink&) = delete;

    /// The first line of standard output, without its end: where frames are received.
    virtual std::string announcement() const = 0;

    /// The descriptor that becomes readable when something comes.
    virtual int descriptor() const = 0;

    /// Takes what waits, without blocking.
    ///
    /// @param[out] frame  the frame; none when what came is no frame for the nodes
    /// @return            whether something had come
    virtual bool receive(std::optional<CanFrame>& frame) = 0;

    /// Whether frames have somewhere to go.
    virtual bool has_peer() const = 0;

    /// Sends a frame. @pre has_peer()
    virtual void send(const CanFrame& frame) = 0;

    /// Prepares for a command that is going to be run against the nodes.
    virtual void expect_command() = 0;

    /// Replaces what stands for this link in an argument of the command.
    virtual void fill_in(std::string& argument) const = 0;

    /// Whether somebody listens where the frames go.
    virtual bool is_heard() const = 0;
};

/// Replaces each @p what in @p text by @p by.
void replace_all(std::string& text, const std::string& what, const std::string& by);

}  // namespace node_simulator

#endif

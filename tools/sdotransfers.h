/// @file
/// Transfers with a node, one after the other, as commands need them (CiA 301, 7.2.4).

#ifndef TOOLS_SDOTRANSFERS_H
#define TOOLS_SDOTRANSFERS_H

#include <cstdint>
#include <string>

#include "nodevik/nodes/objectvalue.h"
#include "nodevik/nodes/sdoclient.h"
#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// An abort code as "0x06090011".
std::string code_text(std::uint32_t abort_code);

/// "Sub-index does not exist. (0x06090011)".
std::string abort_text(const SdoResult& result);

/// The bus of a session, and transfers with one of its nodes.
class SdoTransfers {
public:
    /// Opens the bus. Nothing is sent.
    ///
    /// @param node  1 to 127
    /// @param mode  how what does not fit into one frame is transferred
    /// @throws Failure  the bus cannot be used
    SdoTransfers(const Session& session, unsigned int node, SdoMode mode = SdoMode::automatic);

    /// Reads an entry; a long one with progress on a terminal.
    ///
    /// @param bytes  takes the value, what has come of it when the transfer did not end well
    /// @throws Interrupted  a signal has come: the transfer is aborted
    /// @throws Failure      the bus can no longer be used
    SdoResult read(std::uint16_t index, std::uint8_t subindex, ObjectBytes& bytes);

    /// Writes an entry, as read().
    SdoResult write(std::uint16_t index, std::uint8_t subindex, const ObjectBytes& bytes);

    /// Why a transfer has not been done, as the end of a command.
    Failure failure(const SdoResult& result) const;

    /// Number of the node.
    unsigned int node() const { return node_; }

    /// The bus.
    Bus& bus() { return bus_; }

    /// The client, for what else transfers with nodes.
    SdoClient& client() { return client_; }

private:
    template <typename Start>
    SdoResult run(const Start& start);

    const Session* session_;
    unsigned int node_;
    SdoMode mode_;
    Bus bus_;
    SdoClient client_;
};

}  // namespace nodevik_tool

#endif

/// @file
/// A CANopen node (CiA 301): what it does with each frame of its bus, and what it sends by itself.
///
/// After power-on a node is *initialising*, sends its boot-up message (0x700 + node, one byte 0) and is
/// *pre-operational*. The master moves it by NMT commands (identifier 0: command, node or 0 for all):
///
/// | State           | Code | SDO | PDO | SYNC, emergency | NMT, guarding, heartbeat |
/// |-----------------|------|-----|-----|-----------------|--------------------------|
/// | pre-operational | 127  | yes |     | yes             | yes                      |
/// | operational     | 5    | yes | yes | yes             | yes                      |
/// | stopped         | 4    |     |     |                 | yes                      |
///
/// Commands: 1 start, 2 stop, 128 enter pre-operational, 129 reset the node, 130 reset its communication.

#ifndef SIMULATOR_NODE_CANOPENNODE_H
#define SIMULATOR_NODE_CANOPENNODE_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "simulator/node/canframe.h"
#include "simulator/node/lssslave.h"
#include "simulator/node/nodedictionary.h"
#include "simulator/node/nodepdo.h"
#include "simulator/node/sdoserver.h"

namespace node_simulator {

/// NMT states, as guarding answers and heartbeats tell them (CiA 301, 7.2.8.3.2).
enum class NmtState : std::uint8_t { initialising = 0, stopped = 4, operational = 5, pre_operational = 127 };

/// What a node is like before anybody talks to it.
struct NodeSettings {
    std::uint8_t node = 1;                ///< node number, 1 to 127; 0 for a device that has none
    std::uint16_t heartbeat_ms = 0;       ///< producer heartbeat time (object 1017h); 0 none
    std::uint32_t sync_period_us = 0;     ///< makes the node produce SYNC (objects 1005h, 1006h); 0 not
    bool self_starting = false;           ///< enters operational by itself after boot-up
    bool strict_counts = false;           ///< refuses the number of mapped objects in more than one byte
    std::optional<std::uint32_t> serial;  ///< serial number of its identity; none: as described
    BlockSettings blocks;                 ///< how it does block transfers
    FaultSettings faults;                 ///< what its SDO server does wrong by itself

    /// What its maker says of it, an EDS or DCF; null for the built-in node.
    std::shared_ptr<const DeviceDescription> description;

    /// Its identity object.
    LssIdentity identity() const;

    /// What describes it.
    const DeviceDescription& described_as() const;
};

/// A frame that a node sends, and whether it answers somebody.
struct SentFrame {
    CanFrame frame;
    bool answer = false;  ///< an SDO answer or a guarding answer: what the fault options disturb
};

/// One node. It knows no clock and no bus: every call brings the time, and returns what the node sends.
///
/// Its objects are those of its description. What the communication profile says of them they do, as far as they are
/// there: 1001h, 1003h, 1005h, 1006h, 100Ch, 100Dh, 1010h, 1011h, 1016h, 1017h, and those of the PDOs (see NodePdos). All
/// others hold values. The built-in node has, beside those of its PDOs and SDO server (1200h):
///
/// | Object      | Access | Holds                                                                      |
/// |-------------|--------|----------------------------------------------------------------------------|
/// | 1000h       | r      | device type: 401 with digital and analogue inputs and outputs              |
/// | 1001h       | r      | error register                                                             |
/// | 1003h       | r/w    | the last eight errors; writing 0 to subindex 0 forgets them                |
/// | 1005h, 1006h| r/w    | SYNC identifier, bit 30 produce it; its period in microseconds             |
/// | 1008h-100Ah | r      | name, hardware and software version                                        |
/// | 100Ch, 100Dh| r/w    | guard time (ms) and life time factor                                       |
/// | 1010h, 1011h| r/w    | store and restore: all, communication, application (1 to 3)                |
/// | 1014h       | r      | emergency identifier                                                       |
/// | 1016h       | r/w    | the heartbeats of four others that it watches: node and time (ms)          |
/// | 1017h       | r/w    | producer heartbeat time (ms)                                               |
/// | 1018h       | r      | identity: vendor, product, revision, serial number                         |
/// | 1020h       | r/w    | date and time of the configuration                                         |
/// | 2000h, 2001h| r/w    | a text and bytes, of up to 10,000 each                                     |
/// | 2006h       | r/w    | a domain of up to 1,000,000 bytes                                          |
/// | 2002h       | r/w    | subindices 1 to 8: numbers of 1 to 8 bytes                                 |
/// | 2003h       | w      | a number that can only be written (4 bytes)                                |
/// | 2004h       | r/w    | a number from 10 to 100 (1 byte)                                           |
/// | 2005h       | r/w    | a number that can be written in pre-operational only (2 bytes)             |
/// | 2010h       | w      | writing an error code (2 bytes) sends that emergency; 0 clears the error   |
/// | 6000h, 6401h| r      | subindices 1 to 4: digital (1 byte) and analogue (2 bytes) inputs          |
/// | 6200h, 6411h| r/w    | subindices 1 to 4: outputs, each wired to the input of the same subindex   |
class CanopenNode {
public:
    /// A node without power. @param settings what it is like; it has a number
    explicit CanopenNode(const NodeSettings& settings);

    CanopenNode(const CanopenNode&) = delete;
    CanopenNode& operator=(const CanopenNode&) = delete;

    /// Node number.
    std::uint8_t number() const { return settings_.node; }

    /// The NMT state.
    NmtState state() const { return state_; }

    /// Whether the node has power; without it, it hears and says nothing.
    bool powered() const { return powered_; }

    /// What its description has and it cannot serve, a line each.
    const std::vector<std::string>& left_out() const { return left_out_; }

    /// The node's objects.
    NodeDictionary& dictionary() { return dictionary_; }

    /// Switches the power on: every object is reset, the boot-up message is sent.
    std::vector<SentFrame> power_on(Time now);

    /// Cuts the power: the node vanishes from the bus without a word.
    void power_off();

    /// Hears @p frame.
    std::vector<SentFrame> receive(const CanFrame& frame, Time now);

    /// Does what the time calls for: heartbeat, SYNC, event-driven TPDOs, time-outs.
    std::vector<SentFrame> advance(Time now);

    /// When advance() has something to do; none while only frames can bring something.
    std::optional<Time> deadline() const;

    /// Sends an emergency (CiA 301, 7.2.7), in pre-operational and operational.
    ///
    /// @param code          emergency error code; 0 clears the error register
    /// @param manufacturer  up to five bytes of the manufacturer's own
    std::vector<SentFrame> emergency(std::uint16_t code, std::span<const std::uint8_t> manufacturer,
                                     Time now);

    /// Sets digital input @p channel (1 to 4).
    std::vector<SentFrame> set_input(std::uint8_t channel, std::uint8_t value, Time now);

    /// Replaces what its SDO server does wrong by itself.
    void set_transfer_faults(const FaultSettings& faults) { sdo_.set_faults(faults); }

private:
    // A node whose heartbeat this one watches.
    struct Watched {
        std::optional<Time> lost_at;  // none before its first heartbeat
        bool lost = false;
    };

    void add_objects();
    void preset(std::uint16_t index, std::uint8_t subindex, std::uint64_t number);
    std::uint64_t number(std::uint16_t index, std::uint8_t subindex);
    template <typename Call>
    void for_each_sub(std::uint16_t index, Call call);
    void watch_objects();
    void watch_storage(std::uint16_t index);
    void watch_samples();
    void wire(std::uint16_t output, std::uint16_t input);

    void boot(Time now);
    void enter(NmtState state);
    void command(unsigned code, Time now);
    void guard(Time now);
    void watch_guarding(Time now);
    void hear_heartbeat(const CanFrame& frame, Time now);
    void watch_heartbeats(Time now);
    void lose_contact();
    void find_contact();
    AbortCode check_consumer(std::size_t place, std::uint64_t wanted);
    void beat(Time now);
    void produce_sync(Time now);
    void handle_sync(Time now);
    void handle_pdo(const CanFrame& frame);
    void raise_emergency(std::uint16_t code, std::span<const std::uint8_t> manufacturer);
    void remember_error(std::uint16_t code);
    void send(const CanFrame& frame, bool answer = false);
    std::vector<SentFrame> finish(Time now);
    bool communicates() const;

    NodeSettings settings_;
    NodeDictionary dictionary_;
    std::vector<std::string> left_out_;
    std::unique_ptr<NodePdos> pdos_;
    SdoServer sdo_;
    NmtState state_ = NmtState::initialising;
    bool powered_ = false;
    std::vector<Watched> watched_;  // by its place in 1016h
    unsigned guard_toggle_ = 0;
    std::optional<Time> guarded_until_;   // end of the life time, once guarding has begun
    bool guarding_lost_ = false;          // the life time has passed
    std::optional<Time> next_heartbeat_;  // none while there is no heartbeat
    std::optional<Time> next_sync_;       // none while the node produces none
    std::vector<SentFrame> out_;
};

}  // namespace node_simulator

#endif

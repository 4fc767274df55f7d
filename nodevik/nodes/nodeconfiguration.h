/// @file
/// Sets nodes up as their DCF files say (CiA 302-2), and tells what became of each object.
///
/// @code
/// DeviceDescription left;
/// left.load("left.dcf");
/// SdoClient sdo(driver);
/// NodeConfiguration configuration(driver, sdo);
/// configuration.start(5, left, configured_values(left, 5), {}, [](const ConfigurationReport& report) {
///     for (const auto& item : report.items) {
///         std::printf("%04X:%u %s\n", item.index, item.subindex, configuration_result_name(item.result));
///     }
/// });
/// for (;;) {
///     ...                                              // poll(2), read the bus, sdo.process(now)
///     configuration.process(monotonic_ns());
/// }
/// @endcode
///
/// A node is first asked who it is (0x1000, 0x1018); nothing is written to one that is not what the file describes.
/// Then each object is read, and written only when it differs, and read again. PDOs come first, in the order that nodes
/// accept: the PDO is switched off (bit 31 of its COB-ID), its parameters are written, the number of mapped objects is
/// set to 0, the mapping is written, the number is set, and the PDO is switched on. If the node refuses any of these,
/// that PDO is put back as it was. The other objects follow by index, the heartbeat (0x1016, 0x1017) and the date of
/// the configuration (0x1020) last. 0x1010 and 0x1011 are written only by the options `store` and `restore`.
///
/// Several nodes are set up at once. There is no locking: client, driver and callbacks belong to one thread.

#ifndef NODEVIK_NODES_NODECONFIGURATION_H
#define NODEVIK_NODES_NODECONFIGURATION_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/nodes/sdoclient.h"
#include "nodevik/observeddriver.h"
#include "nodevik/util/export.h"

/// What became of an object.
enum class ConfigurationResult : std::uint8_t {
    not_reached,  ///< it was not written: something before it went wrong, or its PDO was put back
    same,         ///< the node had the value already
    written,      ///< written, and read back right where it can be read
    would_write,  ///< it differs, and nothing is written in a dry run
    refused       ///< the node refused it, or reads otherwise than written
};

/// The name of a result as programs print it: "not-reached", "same", "written", "would-write", "refused".
NODEVIK_EXPORT const char* configuration_result_name(ConfigurationResult result);

/// A value that a node is to have.
struct ConfigurationValue {
    std::uint16_t index = 0;    ///< of the object in the node's dictionary
    std::uint8_t subindex = 0;  ///< of the entry in that object
    ObjectBytes bytes;          ///< as an SDO carries them, least significant first
};

/// An object of a report.
struct ConfigurationItem {
    std::uint16_t index = 0;    ///< of the object in the node's dictionary
    std::uint8_t subindex = 0;  ///< of the entry in that object
    ObjectBytes bytes;          ///< what it is to be
    ConfigurationResult result = ConfigurationResult::not_reached;  ///< what became of it
    std::uint32_t abort_code = 0;  ///< of a refusal; 0 when there was no abort
    std::string reason;            ///< of a refusal, in words
};

/// How a configuration has ended.
enum class ConfigurationOutcome : std::uint8_t {
    done,            ///< every object has its value; in a dry run: all were compared
    refused,         ///< the node refused an object, restoring or storing
    wrong_identity,  ///< the node is not what the file describes: nothing was written
    no_answer,       ///< the node fell silent, or the driver failed
    cancelled        ///< cancel() was called
};

/// What became of a node.
struct ConfigurationReport {
    unsigned int node = 0;                                           ///< the node's number, 1 to 127
    ConfigurationOutcome outcome = ConfigurationOutcome::cancelled;  ///< how it has ended
    std::vector<ConfigurationItem> items;                            ///< as they were asked for
    std::string reason;            ///< what went wrong, in words; empty when nothing did
    std::uint32_t abort_code = 0;  ///< of what went wrong, if there was an abort
    bool restored = false;         ///< 0x1011 was written and the node came back
    bool stored = false;           ///< 0x1010 was written
    bool put_back_failed = false;  ///< a PDO could not be put back: it is switched off, or changed in part
};

/// What is done beside writing the objects.
struct ConfigurationOptions {
    bool dry_run = false;        ///< reads and compares only
    bool check_identity = true;  ///< device type, vendor, product, revision (its upper half), serial number
    bool restore = false;        ///< first restores the maker's values (0x1011:1) and resets that node (NMT)
    bool store = false;          ///< at the end, and only if all went well, stores the values (0x1010:1)
    unsigned int timeout_ms = 500;   ///< longest wait for an SDO answer
    unsigned int slow_ms = 10000;    ///< longest wait for restoring and for storing
    unsigned int boot_up_ms = 5000;  ///< longest wait for the boot-up after the reset
};

/// The values that a DCF wants a node to have: all ParameterValues of objects that can be written, but those with bit 0
/// of ObjFlags, which are not to be written on download.
/// @param description  of the node
/// @param node_id      1 to 127
NODEVIK_EXPORT std::vector<ConfigurationValue> configured_values(const DeviceDescription& description,
                                                                 unsigned int node_id);

/// The concise form of a list of values, as a master's object 0x1F22 takes it (CiA 302-3): number of entries, then for
/// each index, subindex, length and bytes, without gaps, least significant byte first.
NODEVIK_EXPORT ObjectBytes concise_configuration(const std::vector<ConfigurationValue>& values);

/// The configurations of the nodes of a bus.
class NODEVIK_EXPORT NodeConfiguration : public FrameObserver {
public:
    /// Called once when a configuration has ended; it may start the next one.
    using Callback = std::function<void(const ConfigurationReport& report)>;

    /// Begins to observe; ends the process by an assertion when the driver has 8 observers already.
    /// @param driver  the one that @p sdo uses; outlives the object, as @p sdo does
    NodeConfiguration(ObservedDriver& driver, SdoClient& sdo);

    /// Ends every configuration without a callback, and ceases to observe.
    ~NodeConfiguration();

    NodeConfiguration(const NodeConfiguration&) = delete;
    NodeConfiguration& operator=(const NodeConfiguration&) = delete;

    /// Begins to set a node up. The callback is never called from within the call.
    ///
    /// @param node         1 to 127
    /// @param description  what the node should be; read during the call only
    /// @param values       what it is to have; an object that stands twice is written as it stands last
    /// @param options      what is done beside
    /// @param callback     may be empty
    /// @retval 0   it has begun
    /// @retval -1  it has not: the number is none, or the node is being set up
    int start(unsigned int node, const DeviceDescription& description,
              const std::vector<ConfigurationValue>& values, const ConfigurationOptions& options,
              Callback callback);

    /// Ends a configuration between two transfers, or in one; the callback is called. A PDO may stay switched off.
    void cancel(unsigned int node);

    /// Whether a node is being set up.
    bool busy(unsigned int node) const { return jobs_.count(node) != 0; }

    /// How many nodes are being set up.
    std::size_t active() const { return jobs_.size(); }

    /// Looks after the time, for the wait for a boot-up or for a node that somebody else's transfer occupies. The SDO
    /// client's own process() is called by the program.
    /// @param now_ns  the time, see monotonic_ns()
    void process(std::uint64_t now_ns);

    /// When process() is to be called next, at the latest; no_deadline when nothing waits.
    std::uint64_t next_deadline() const;

    /// Sees the boot-up of nodes. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    class NODEVIK_LOCAL Job;

    NODEVIK_LOCAL void finish(unsigned int node);

    ObservedDriver* driver_;
    SdoClient* sdo_;
    std::map<unsigned int, std::unique_ptr<Job>> jobs_;
};

#endif

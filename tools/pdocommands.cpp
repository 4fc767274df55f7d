#include "tools/pdocommands.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "nodevik/nodes/devicepdo.h"
#include "program/numbers.h"
#include "program/progress.h"
#include "tools/nodesetup.h"
#include "tools/objects.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

using Json = nlohmann::ordered_json;
using Description = const DeviceDescription*;

constexpr unsigned int most_pdos = 512;
constexpr unsigned int most_mapped = 64;  // objects, and bits
constexpr std::uint32_t pdo_off = 0x80000000;
constexpr std::uint32_t no_remote = 0x40000000;
constexpr std::uint32_t extended = 0x20000000;
constexpr std::uint32_t short_id = 0x7FF;
constexpr std::uint32_t long_id = 0x1FFFFFFF;
constexpr std::uint32_t abort_no_object = 0x06020000;  // CiA 301, 7.2.4.3.17
constexpr std::uint32_t abort_no_subindex = 0x06090011;
constexpr std::uint32_t abort_write_only = 0x06010001;
constexpr unsigned int inhibit_unit_us = 100;
constexpr unsigned int highest_place_holder = 7;

// Subindices of the communication parameters.
constexpr std::uint8_t cob_id_entry = 1;
constexpr std::uint8_t type_entry = 2;
constexpr std::uint8_t inhibit_entry = 3;
constexpr std::uint8_t event_entry = 5;

// Identifiers that PDOs must not have (CiA 301, 7.3.5).
struct Range {
    std::uint32_t first;
    std::uint32_t last;
};
constexpr std::array<Range, 7> restricted{{{0x000, 0x07F},
                                           {0x101, 0x180},
                                           {0x581, 0x5FF},
                                           {0x601, 0x67F},
                                           {0x6E0, 0x6FF},
                                           {0x701, 0x77F},
                                           {0x780, 0x7FF}}};

std::uint16_t communication_of(bool transmit, unsigned int number) {
    return static_cast<std::uint16_t>((transmit ? 0x1800 : 0x1400) + number - 1);
}

std::uint16_t mapping_of(std::uint16_t communication) {
    return static_cast<std::uint16_t>(communication + 0x200);
}

ObjectBytes bytes_of(std::uint32_t number, std::size_t size) {
    ObjectBytes bytes(size);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(number);
        number >>= 8;
    }
    return bytes;
}

// Whether the node says that there is no such entry.
bool is_missing(const SdoResult& result) {
    return result.outcome == SdoOutcome::aborted_by_node &&
           (result.abort_code == abort_no_object || result.abort_code == abort_no_subindex);
}

// A PDO as a node has it.
struct NodePdo {
    bool transmit = false;
    unsigned int number = 0;
    std::uint32_t cob_id = 0;
    std::optional<std::uint32_t> type;     // nothing when the node does not have it
    std::optional<std::uint32_t> inhibit;  // in units of 100 us
    std::optional<std::uint32_t> event;    // ms
    std::vector<std::uint32_t> mapping;
};

// Asks a node for its PDOs.
class PdoReader {
public:
    explicit PdoReader(SdoTransfers& transfers) : transfers_(&transfers) {}

    // Nothing when the node does not have it.
    std::optional<NodePdo> read(bool transmit, unsigned int number) {
        const std::uint16_t communication = communication_of(transmit, number);
        NodePdo pdo;
        pdo.transmit = transmit;
        pdo.number = number;
        const auto cob_id = entry(communication, cob_id_entry);
        if (!cob_id) {
            return std::nullopt;
        }
        pdo.cob_id = *cob_id;
        pdo.type = entry(communication, type_entry);
        pdo.inhibit = entry(communication, inhibit_entry);
        pdo.event = entry(communication, event_entry);
        const std::uint32_t count = entry(mapping_of(communication), 0).value_or(0);
        for (std::uint32_t subindex = 1; subindex <= std::min(count, most_mapped); ++subindex) {
            const auto mapped = entry(mapping_of(communication), static_cast<std::uint8_t>(subindex));
            if (mapped) {
                pdo.mapping.push_back(*mapped);
            }
        }
        return pdo;
    }

private:
    // A number that the node has; nothing when it has none there.
    std::optional<std::uint32_t> entry(std::uint16_t index, std::uint8_t subindex) {
        ObjectBytes bytes;
        const SdoResult result = transfers_->read(index, subindex, bytes);
        if (result.ok()) {
            return static_cast<std::uint32_t>(little_endian(bytes));
        }
        if (!is_missing(result)) {
            throw transfers_->failure(result);
        }
        return std::nullopt;
    }

    SdoTransfers* transfers_;
};

// The identifier with 3 digits, or with 8 when it has 29 bits.
std::string identifier_text(std::uint32_t cob_id) {
    std::array<char, 16> text{};
    const bool is_long = (cob_id & extended) != 0;
    std::snprintf(text.data(), text.size(), is_long ? "0x%08X" : "0x%03X",
                  static_cast<unsigned int>(cob_id & (is_long ? long_id : short_id)));
    return text.data();
}

struct Mapped {
    std::uint16_t index;
    std::uint8_t subindex;
    unsigned int bits;
    const DeviceDescription::Entry* entry;  // or null
};

Mapped mapped_of(std::uint32_t word, Description description) {
    const auto index = static_cast<std::uint16_t>(word >> 16);
    const auto subindex = static_cast<std::uint8_t>(word >> 8);
    return {index, subindex, word & 0xFF,
            description != nullptr ? description->entry(index, subindex) : nullptr};
}

std::string pdo_word(bool transmit) {
    return transmit ? "tpdo" : "rpdo";
}

Json number_json(const std::optional<std::uint32_t>& number, unsigned int unit = 1) {
    return number ? Json(std::uint64_t{*number} * unit) : Json();
}

void show_json(Output& output, unsigned int node, const NodePdo& pdo, Description description) {
    Json objects = Json::array();
    for (const std::uint32_t word : pdo.mapping) {
        const Mapped mapped = mapped_of(word, description);
        Json object{{"index", index_text(mapped.index)}, {"sub", mapped.subindex}, {"bits", mapped.bits}};
        if (mapped.entry != nullptr) {
            object["name"] = mapped.entry->full_name();
        }
        objects.push_back(object);
    }
    output.object({{"node", node},
                   {"pdo", pdo_word(pdo.transmit)},
                   {"number", pdo.number},
                   {"id", identifier_text(pdo.cob_id)},
                   {"valid", (pdo.cob_id & pdo_off) == 0},
                   {"type", number_json(pdo.type)},
                   {"inhibit_us", number_json(pdo.inhibit, inhibit_unit_us)},
                   {"event_ms", number_json(pdo.event)},
                   {"objects", objects}});
}

void show_text(Output& output, const NodePdo& pdo, Description description) {
    const bool is_on = (pdo.cob_id & pdo_off) == 0;
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%-7s  %s  ",
                  (pdo_word(pdo.transmit) + std::to_string(pdo.number)).c_str(),
                  identifier_text(pdo.cob_id).c_str());
    std::string line =
        head.data() + output.paint(is_on ? "on " : "off", is_on ? Colour::good : Colour::faint);
    if (pdo.type) {
        line += "  type " + std::to_string(*pdo.type);
    }
    if (pdo.inhibit.value_or(0) != 0) {
        line += "  inhibit " + std::to_string(*pdo.inhibit * inhibit_unit_us) + " us";
    }
    if (pdo.event.value_or(0) != 0) {
        line += "  event " + std::to_string(*pdo.event) + " ms";
    }
    const char* separator = "  ";
    for (const std::uint32_t word : pdo.mapping) {
        const Mapped mapped = mapped_of(word, description);
        line += separator + address_text(mapped.index, mapped.subindex) + "/" + std::to_string(mapped.bits);
        line += mapped.entry != nullptr ? " " + printable(mapped.entry->full_name()) : "";
        separator = ", ";
    }
    output.line(line);
}

// The PDOs that may be there, as the communication objects' numbers.
std::vector<std::pair<bool, unsigned int>> candidates(Description description, unsigned int node) {
    std::vector<std::pair<bool, unsigned int>> result;
    if (description != nullptr) {
        for (const DescribedPdo& pdo : described_pdos(*description, node)) {
            result.emplace_back(pdo.direction == DescribedPdo::Direction::transmit, pdo.number);
        }
        return result;
    }
    for (const bool transmit : {false, true}) {
        for (unsigned int number = 1; number <= most_pdos; ++number) {
            result.emplace_back(transmit, number);
        }
    }
    return result;
}

// How many bits an object has in a PDO: as it is said, else as long as the node's value is.
unsigned int bits_of(SdoTransfers& transfers, const MappedObject& object) {
    if (object.bits) {
        return *object.bits;
    }
    ObjectBytes bytes;
    const SdoResult result = transfers.read(object.index, object.subindex, bytes);
    const bool is_secret =
        result.outcome == SdoOutcome::aborted_by_node && result.abort_code == abort_write_only;
    if (!result.ok() && !is_secret) {
        throw transfers.failure(result);
    }
    if (bytes.empty() || 8 * bytes.size() > most_mapped) {
        const std::string address = address_text(object.index, object.subindex);
        throw Failure(ExitStatus::usage, "how many bits " + address +
                                             " has in a PDO is not known; say it, such as " + address +
                                             "/16, or name a description with --eds");
    }
    return static_cast<unsigned int>(8 * bytes.size());
}

// The words of the mapping.
std::vector<std::uint32_t> mapping_words(SdoTransfers& transfers, const std::vector<MappedObject>& objects) {
    std::vector<std::uint32_t> words;
    unsigned int all = 0;
    for (const MappedObject& object : objects) {
        const unsigned int bits = bits_of(transfers, object);
        all += bits;
        words.push_back(static_cast<std::uint32_t>(object.index) << 16 |
                        static_cast<std::uint32_t>(object.subindex) << 8 | bits);
    }
    if (all > most_mapped) {
        throw Failure(ExitStatus::usage,
                      "the objects have " + std::to_string(all) + " bits; a PDO has room for 64");
    }
    return words;
}

// A transmission type (CiA 301, 7.5.2.35): 241 to 251 are none.
std::uint32_t parse_transmission_type(const std::string& text) {
    constexpr std::int64_t last_cyclic = 240;
    constexpr std::int64_t first_remote = 252;
    const auto type = program::whole_number(text, 0, 255);
    if (!type || (*type > last_cyclic && *type < first_remote)) {
        throw Failure(ExitStatus::usage,
                      "'" + text +
                          "' is no transmission type; right are 0 to 240 with SYNC, 252 and 253 on "
                          "remote requests, 254 and 255 by events");
    }
    return static_cast<std::uint32_t>(*type);
}

// Ends the command when the node has refused an entry.
void throw_if_refused(const NodeSetup& setup, const SdoTransfers& transfers) {
    for (const ConfigurationItem& item : setup.report.items) {
        if (item.result != ConfigurationResult::refused) {
            continue;
        }
        // The steps of setting a PDO up are told with their object ahead; all else was only read.
        const bool is_step = item.reason.rfind("0x", 0) == 0;
        const bool is_as_it_was = setup.changed_pdos.empty() && !setup.report.put_back_failed &&
                                  item.reason.rfind("reads otherwise", 0) != 0;
        throw Failure(ExitStatus::refused,
                      "node " + std::to_string(transfers.node()) + ", " +
                          (is_step ? "" : address_text(item.index, item.subindex) + ": ") +
                          refusal_text(item) + (is_as_it_was ? "; the PDO is as it was" : ""));
    }
}

}  // namespace

std::uint32_t parse_cob_id(const std::string& text) {
    const auto number = program::whole_number(text, 0, UINT32_MAX);
    const auto cob_id = static_cast<std::uint32_t>(number.value_or(0));
    const std::uint32_t id = cob_id & ~(pdo_off | no_remote);
    const bool is_off = (cob_id & pdo_off) != 0;
    const bool is_restricted = std::any_of(restricted.begin(), restricted.end(), [id](const Range& range) {
        return id >= range.first && id <= range.last;
    });
    if (!number || id > short_id || (is_restricted && !(is_off && id == 0))) {
        throw Failure(ExitStatus::usage,
                      "'" + text +
                          "' is no COB-ID of a PDO; right are 0x181 to 0x57F and others that "
                          "nothing else has, and with 0x80000000 added a PDO that is off");
    }
    return cob_id;
}

MappedObject parse_mapped_object(const std::string& text, Description description) {
    MappedObject object;
    std::string name = text;
    const std::size_t slash = text.rfind('/');
    const bool is_number = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0 || slash == 1;
    if (slash != std::string::npos && is_number) {
        const auto bits = program::whole_number(text.substr(slash + 1), 1, most_mapped);
        if (!bits) {
            throw Failure(ExitStatus::usage,
                          "'" + text + "' is no object of a PDO; right is 0x6000:1/8, with 1 to 64 bits");
        }
        object.bits = static_cast<unsigned int>(*bits);
        name = text.substr(0, slash);
    }
    const ObjectAddress address = parse_address(name, description);
    object.index = address.index;
    object.subindex = address.subindex.value_or(0);
    const auto* described = description != nullptr ? description->object(object.index) : nullptr;
    if (!address.subindex && described != nullptr && !described->is_single()) {
        throw Failure(ExitStatus::usage, "'" + name + "' has several entries; name one, such as " +
                                             address_text(object.index, 1));
    }
    const auto* entry = description != nullptr ? description->entry(object.index, object.subindex) : nullptr;
    const ObjectDataType type = object.index <= highest_place_holder ? object_data_type(object.index)
                                : entry != nullptr                   ? entry->type
                                                                     : ObjectDataType::none;
    if (!object.bits && type != ObjectDataType::none && object_size(type) > 0) {
        object.bits = type == ObjectDataType::boolean ? 1U : static_cast<unsigned int>(8 * object_size(type));
    }
    return object;
}

ExitStatus list_pdos(const Session& session, unsigned int node) {
    const Descriptions descriptions(session.options.eds);
    const Description description = descriptions.of(node);
    SdoTransfers transfers(session, node, SdoMode::segmented);
    PdoReader reader(transfers);
    program::Progress progress(!session.options.quiet);
    const auto asked = candidates(description, node);
    unsigned int found = 0;
    for (std::size_t i = 0; i < asked.size(); ++i) {
        progress.update(i, asked.size());
        const std::optional<NodePdo> pdo = reader.read(asked[i].first, asked[i].second);
        if (!pdo) {
            continue;
        }
        ++found;
        progress.clear();
        if (session.output.json()) {
            show_json(session.output, node, *pdo, description);
        } else {
            show_text(session.output, *pdo, description);
        }
        session.output.flush();
    }
    progress.clear();
    if (found == 0) {
        tell("node " + std::to_string(node) + " has no PDO" +
             (description != nullptr ? " of those in " + description->file() : std::string()));
    }
    return ExitStatus::done;
}

ExitStatus set_pdo(const Session& session, const PdoArguments& arguments) {
    const Descriptions descriptions(session.options.eds);
    const Description description = descriptions.of(arguments.node);
    std::uint32_t cob_id = parse_cob_id(arguments.cob_id);
    const std::uint32_t type = parse_transmission_type(arguments.type);
    std::vector<MappedObject> objects;
    for (const std::string& text : arguments.objects) {
        objects.push_back(parse_mapped_object(text, description));
    }
    if (objects.size() > most_mapped) {
        throw Failure(ExitStatus::usage,
                      "a PDO has room for 64 objects, not for " + std::to_string(objects.size()));
    }
    SdoTransfers transfers(session, arguments.node, SdoMode::segmented);
    const std::uint16_t communication = communication_of(arguments.transmit, arguments.number);
    const std::uint16_t mapping = mapping_of(communication);
    const std::vector<std::uint32_t> words = mapping_words(transfers, objects);
    ObjectBytes former;
    if (const SdoResult result = transfers.read(communication, cob_id_entry, former); !result.ok()) {
        throw transfers.failure(result);
    }
    cob_id |= arguments.transmit ? static_cast<std::uint32_t>(little_endian(former) & no_remote)
                                 : 0;  // nodes refuse another bit 30
    std::vector<ConfigurationValue> values{
        {communication, cob_id_entry, bytes_of(cob_id, 4)},
        {communication, type_entry, bytes_of(type, 1)},
        {mapping, 0, bytes_of(static_cast<std::uint32_t>(words.size()), 1)}};
    for (std::size_t i = 0; i < words.size(); ++i) {
        values.push_back({mapping, static_cast<std::uint8_t>(i + 1), bytes_of(words[i], 4)});
    }
    ConfigurationOptions options;
    options.check_identity = false;
    const NodeSetup setup = set_up_node(session, transfers, DeviceDescription(), values, options);
    if (session.output.json()) {
        for (const ConfigurationItem& item : setup.report.items) {
            session.output.object(item_json(item));
        }
    }
    tell_changed_pdos(setup);
    if (setup.trouble) {
        session.output.hurry();
    }
    session.output.flush();
    throw_if_refused(setup, transfers);
    throw_unless_done(setup, transfers);
    return ExitStatus::done;
}

}  // namespace nodevik_tool

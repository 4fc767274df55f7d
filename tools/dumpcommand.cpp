#include "tools/dumpcommand.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "program/progress.h"
#include "tools/communicationprofile.h"
#include "tools/dcffile.h"
#include "tools/nodesetup.h"
#include "tools/objects.h"
#include "tools/resultfile.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

using Entry = DeviceDescription::Entry;
using Place = std::pair<std::uint16_t, std::uint8_t>;

constexpr std::uint32_t abort_write_only = 0x06010001;  // CiA 301, 7.2.4.3.17
constexpr std::uint32_t abort_no_object = 0x06020000;
constexpr std::uint32_t abort_no_subindex = 0x06090011;
constexpr std::uint64_t highest_member = 254;  // subindex 255 describes the object
constexpr std::uint32_t not_read_on_scan = 2;  // ObjFlags

// The type of an entry that nobody has described: a number as long as its value, or bytes.
ObjectDataType type_of_size(std::size_t size) {
    constexpr std::array<ObjectDataType, 9> types{
        ObjectDataType::octet_string, ObjectDataType::unsigned8,  ObjectDataType::unsigned16,
        ObjectDataType::unsigned24,   ObjectDataType::unsigned32, ObjectDataType::unsigned40,
        ObjectDataType::unsigned48,   ObjectDataType::unsigned56, ObjectDataType::unsigned64};
    return size < types.size() ? types[size] : ObjectDataType::octet_string;
}

// The type of an entry of the communication profile, if its value is as long as the profile says.
ObjectDataType type_of(const ProfileEntry& entry, const ObjectBytes& bytes) {
    const std::size_t size = object_size(entry.type);
    return entry.type == ObjectDataType::none || (size != 0 && size != bytes.size())
               ? type_of_size(bytes.size())
               : entry.type;
}

// Whether an object is one value, without members, when so many entries of it are there.
bool is_single_object(const ProfileObject& object, std::size_t entries) {
    return object.code == ObjectCode::variable || (!object.is_known && entries == 1);
}

// What has been read of a node.
class Dump {
public:
    Dump(const Session& session, SdoTransfers& transfers)
        : session_(&session), transfers_(&transfers), progress_(!session.options.quiet) {}

    const std::map<Place, ObjectBytes>& values() const { return values_; }
    unsigned int refused() const { return refused_; }
    // The domains of the description, which are not read: a program, or a recording of any length.
    const std::vector<Place>& domains() const { return domains_; }

    // Reads all entries of a description that can be read.
    void read_described(const DeviceDescription& description) {
        std::vector<const Entry*> entries;
        for (const DeviceDescription::Object& object : description.objects()) {
            for (const Entry& entry : object.entries) {
                const bool is_wanted =
                    entry.readable() && (entry.flags & not_read_on_scan) == 0 && !is_no_setting(entry.index);
                if (is_wanted && (entry.is_domain || entry.type == ObjectDataType::domain)) {
                    domains_.emplace_back(entry.index, entry.subindex);
                } else if (is_wanted && entry.type != ObjectDataType::none) {
                    entries.push_back(&entry);
                }
            }
        }
        for (std::size_t i = 0; i < entries.size(); ++i) {
            progress_.update(i, entries.size());
            const Entry& entry = *entries[i];
            if (const SdoResult result = read({entry.index, entry.subindex}); result.ok()) {
                show({entry.index, entry.subindex}, entry_form(&entry), entry.full_name());
            } else {
                refuse(result);
            }
        }
        progress_.clear();
    }

    // Reads all entries of the communication profile that the node has.
    void read_profile() {
        for (unsigned int index = first_profile_index; index <= last_profile_index; ++index) {
            progress_.update(index - first_profile_index, last_profile_index - first_profile_index + 1U);
            if (!is_no_setting(static_cast<std::uint16_t>(index))) {
                read_profile_object(static_cast<std::uint16_t>(index));
            }
        }
        progress_.clear();
    }

private:
    void read_profile_object(std::uint16_t index) {
        const SdoResult zero = read({index, 0});
        if (!zero.ok()) {
            refuse_unless_missing(zero);
            return;
        }
        const ProfileObject object = profile_object(index);
        const ObjectBytes& count = values_.at({index, 0});
        const bool may_have_members =
            object.code != ObjectCode::variable && (object.is_known || count.size() == 1);
        const std::uint64_t highest = may_have_members ? std::min(little_endian(count), highest_member) : 0;
        std::vector<std::uint8_t> members;
        for (unsigned int subindex = 1; subindex <= highest; ++subindex) {
            const auto narrow = static_cast<std::uint8_t>(subindex);
            const SdoResult result = read({index, narrow});
            if (result.ok()) {
                members.push_back(narrow);
            } else if (!object.is_known && subindex == 1 && result.abort_code == abort_no_subindex) {
                break;  // one value, which happens to be a small number
            } else {
                refuse_unless_missing(result);
            }
        }
        const bool is_single = is_single_object(object, members.size() + 1);
        show_profile_entry({index, 0}, is_single);
        for (const std::uint8_t subindex : members) {
            show_profile_entry({index, subindex}, is_single);
        }
    }

    // Reads an entry. Throws when the node has fallen silent, or the bus is in trouble.
    SdoResult read(const Place& place) {
        ObjectBytes bytes;
        const SdoResult result = transfers_->read(place.first, place.second, bytes);
        if (result.ok()) {
            values_[place] = std::move(bytes);
        } else if (result.outcome != SdoOutcome::aborted_by_node) {
            throw transfers_->failure(result);
        }
        return result;
    }

    void refuse(const SdoResult& result) {
        ++refused_;
        progress_.clear();
        tell(transfers_->failure(result).what());
    }

    // Whether a node has an entry is found out by asking; what it keeps for itself is not to be had.
    void refuse_unless_missing(const SdoResult& result) {
        if (result.abort_code != abort_no_object && result.abort_code != abort_no_subindex &&
            result.abort_code != abort_write_only) {
            refuse(result);
        }
    }

    void show_profile_entry(const Place& place, bool is_single) {
        const ProfileEntry entry = profile_entry(place.first, place.second);
        const ObjectDataType type = type_of(entry, values_.at(place));
        const ProfileObject object = profile_object(place.first);
        const ValueForm form = type == ObjectDataType::octet_string || type == ObjectDataType::domain
                                   ? ValueForm{ValueForm::Kind::hex, ObjectDataType::none}
                                   : ValueForm{ValueForm::Kind::typed, type};
        show(place, form, is_single ? object.name : object.name + "/" + entry.name);
    }

    void show(const Place& place, const ValueForm& form, const std::string& name) {
        if (session_->output.json()) {
            progress_.clear();
            session_->output.object(
                entry_json(transfers_->node(), place.first, place.second, form, values_.at(place), name));
            session_->output.flush();
        }
    }

    const Session* session_;
    SdoTransfers* transfers_;
    program::Progress progress_;
    std::map<Place, ObjectBytes> values_;
    std::vector<Place> domains_;
    unsigned int refused_ = 0;
};

// Tells which domains the DCF lacks.
void tell_domains(unsigned int node, const std::vector<Place>& domains) {
    if (domains.empty()) {
        return;
    }
    std::string list;
    for (const auto& [index, subindex] : domains) {
        list += (list.empty() ? "" : ", ") + address_text(index, subindex);
    }
    tell("domains are not read, and left out of the DCF: " + list + "; 'nodevik sdo read " +
         std::to_string(node) + " " + address_text(domains.front().first, domains.front().second) +
         " --out FILE' keeps one");
}

// Writes a description of what has been read of the communication profile (CiA 306-1).
class ProfileWriter {
public:
    explicit ProfileWriter(const std::map<Place, ObjectBytes>& values) : values_(&values) {
        for (const auto& [place, bytes] : values) {
            indexes_.insert(place.first);
        }
    }

    std::string text() {
        line("[FileInfo]");
        line("FileVersion=1");
        line("FileRevision=1");
        line("EDSVersion=4.0");
        line("Description=The communication profile as the node has it");
        line("CreationTime=" + file_time());
        line("CreationDate=" + file_date());
        line("CreatedBy=nodevik");
        write_device();
        write_lists();
        for (const std::uint16_t index : indexes_) {
            write_object(index);
        }
        return std::move(text_);
    }

private:
    void line(const std::string& words) { text_ += words + "\n"; }

    std::string number_at(std::uint8_t subindex) const {
        const auto found = values_->find({0x1018, subindex});
        return found == values_->end() ? std::string() : std::to_string(little_endian(found->second));
    }

    // How many objects there are from one index to another.
    std::string count(std::uint16_t first, std::uint16_t last) const {
        return std::to_string(std::distance(indexes_.lower_bound(first), indexes_.upper_bound(last)));
    }

    void write_device() {
        line("\n[DeviceInfo]");
        line("VendorName=");
        line("VendorNumber=" + number_at(1));
        line("ProductName=");
        line("ProductNumber=" + number_at(2));
        line("RevisionNumber=" + number_at(3));
        line("NrOfRXPDO=" + count(0x1400, 0x15FF));
        line("NrOfTXPDO=" + count(0x1800, 0x19FF));
    }

    void write_lists() {
        const auto is_mandatory = [](std::uint16_t index) {
            return index == 0x1000 || index == 0x1001 || index == 0x1018;
        };
        for (const bool mandatory : {true, false}) {
            std::string list;
            unsigned int count = 0;
            for (const std::uint16_t index : indexes_) {
                if (is_mandatory(index) == mandatory) {
                    list += std::to_string(++count) + "=" + index_text(index) + "\n";
                }
            }
            line(mandatory ? "\n[MandatoryObjects]" : "\n[OptionalObjects]");
            line("SupportedObjects=" + std::to_string(count));
            text_ += list;
        }
    }

    void write_object(std::uint16_t index) {
        const ProfileObject object = profile_object(index);
        const auto first = values_->lower_bound({index, 0});
        const auto end = values_->upper_bound({index, 0xFF});
        const std::string section = index_text(index).substr(2);
        line("\n[" + section + "]");
        const bool is_single = is_single_object(object, static_cast<std::size_t>(std::distance(first, end)));
        if (is_single) {
            write_entry(index, 0, first->second, object.name);
            return;
        }
        line("ParameterName=" + object.name);
        line(std::string("ObjectType=") + (object.code == ObjectCode::array ? "0x8" : "0x9"));
        line("SubNumber=" + std::to_string(std::distance(first, end)));
        for (auto value = first; value != end; ++value) {
            const std::uint8_t subindex = value->first.second;
            line("\n[" + section + "sub" + plain_hex({subindex}).substr(subindex < 0x10 ? 1 : 0) + "]");
            write_entry(index, subindex, value->second, profile_entry(index, subindex).name);
        }
    }

    void write_entry(std::uint16_t index, std::uint8_t subindex, const ObjectBytes& bytes,
                     const std::string& name) {
        const ProfileEntry entry = profile_entry(index, subindex);
        const auto type = static_cast<std::uint16_t>(type_of(entry, bytes));
        line("ParameterName=" + name);
        line("ObjectType=0x7");
        line("DataType=" + index_text(type));
        line(std::string("AccessType=") + object_access_name(entry.access));
        line("PDOMapping=0");
    }

    const std::map<Place, ObjectBytes>* values_;
    std::set<std::uint16_t> indexes_;
    std::string text_;
};

// What the node receives in its PDOs, by what has been read of their mappings.
std::set<Place> received_in_pdos(const std::map<Place, ObjectBytes>& values) {
    std::set<Place> result;
    for (auto value = values.lower_bound({0x1600, 0}); value != values.end() && value->first.first < 0x1800;
         ++value) {
        if (value->first.second != 0) {
            const std::uint64_t word = little_endian(value->second);
            result.emplace(static_cast<std::uint16_t>(word >> 16), static_cast<std::uint8_t>(word >> 8));
        }
    }
    return result;
}

// Gives an entry a value: what depends on the node's number goes on to do so, and identifiers are hexadecimal.
std::string set_value(DeviceDescription& description, const Entry& entry, const ObjectBytes& bytes) {
    if (object_text_has_node_id(entry.default_text) && entry.default_value(description.node_id()) == bytes) {
        return description.set_value(entry.index, entry.subindex, entry.default_text);
    }
    if (entry.type == ObjectDataType::unsigned32 && entry.index <= last_profile_index) {
        return description.set_value(entry.index, entry.subindex,
                                     "0x" + plain_hex({bytes.rbegin(), bytes.rend()}));
    }
    return description.set_value(entry.index, entry.subindex, bytes);
}

// Puts what has been read into the description. Returns how many values are left out because PDOs carry them.
unsigned int take_over(DeviceDescription& description, const std::map<Place, ObjectBytes>& values) {
    const std::set<Place> received = received_in_pdos(values);
    unsigned int left_out = 0;
    for (const DeviceDescription::Object& object : description.objects()) {
        for (const Entry& entry : object.entries) {
            description.set_value(entry.index, entry.subindex, std::string_view());
        }
    }
    for (const auto& [place, bytes] : values) {
        const Entry& entry = *description.entry(place.first, place.second);
        if (entry.writable() &&
            (received.count(place) != 0 || entry.access == ObjectAccess::read_write_output)) {
            ++left_out;
            continue;
        }
        if (bytes.empty()) {
            continue;
        }
        std::string reason = odd_size(entry_form(&entry), bytes);
        if (reason.empty()) {
            reason = set_value(description, entry, bytes);
        }
        if (!reason.empty()) {
            tell(address_text(place.first, place.second) + ": the node's value " + reason +
                 ", and is left out of the DCF");
        }
    }
    return left_out;
}

// Ends the command when the node is not what a description says. Only reads.
void check_identity(const Session& session, SdoTransfers& transfers, const DeviceDescription& description) {
    ConfigurationOptions options;
    options.dry_run = true;
    throw_unless_done(set_up_node(session, transfers, description, {}, options), transfers);
}

}  // namespace

ExitStatus dump_node(const Session& session, unsigned int node, const std::string& file) {
    const Descriptions descriptions(session.options.eds);
    const DeviceDescription* described = descriptions.of(node);
    SdoTransfers transfers(session, node, SdoMode::segmented);  // which every node knows
    std::optional<ResultFile> result;
    if (!file.empty()) {
        result.emplace(file, session.output);
    }
    const std::string name = "node " + std::to_string(node);
    Dump dump(session, transfers);
    DeviceDescription description;
    try {
        if (described != nullptr) {
            description = *described;
            tell_errors(description);
            check_identity(session, transfers, description);
            dump.read_described(description);
        } else {
            tell("without a description (--eds) " + name +
                 " is asked for the communication profile, 0x1000 to 0x1FFF, alone");
            dump.read_profile();
        }
    } catch (const Interrupted&) {
        session.output.hurry();
        session.output.flush();
        tell(name + ": " + std::to_string(dump.values().size()) + " values read; no DCF is made");
        throw;
    }
    if (described == nullptr && !description.parse(ProfileWriter(dump.values()).text(), "")) {
        throw Failure(ExitStatus::refused, name + " has told nothing of which a DCF could be made");
    }
    set_node(description, node);
    const unsigned int left_out = take_over(description, dump.values());
    const std::string text = dcf_text(description, file);
    if (result) {
        result->write(text);
    } else if (!session.output.json()) {
        session.output.bytes(text);
    }
    session.output.flush();
    tell(name + ": " + std::to_string(dump.values().size()) + " values read" +
         (left_out > 0 ? "; " + std::to_string(left_out) +
                             " that it receives in PDOs are no settings, and are left out of the DCF"
                       : std::string()));
    tell_domains(node, dump.domains());
    if (dump.refused() > 0) {
        throw Failure(ExitStatus::refused, name + " has refused " + std::to_string(dump.refused()) +
                                               " entries, which the DCF lacks");
    }
    return ExitStatus::done;
}

}  // namespace nodevik_tool

#include "tools/sdocommand.h"

#include <optional>

#include "tools/objects.h"
#include "tools/resultfile.h"
#include "tools/sdotransfers.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr std::uint32_t abort_write_only = 0x06010001;  // CiA 301, 7.2.4.3.17
constexpr std::uint32_t abort_no_subindex = 0x06090011;

// What the command line says about one entry of an object, and how its value is shown.
class Entries {
public:
    Entries(const SdoArguments& arguments, const DeviceDescription* description)
        : index_(0), description_(description), asked_(parse_form(arguments.type)) {
        const ObjectAddress address = parse_address(arguments.object, description);
        index_ = address.index;
        named_ = address.subindex;
        object_ = description != nullptr ? description->object(index_) : nullptr;
    }

    std::uint16_t index() const { return index_; }
    // The subindex that is named, by a number or because there is no other.
    std::optional<std::uint8_t> only_subindex() const {
        return !named_ && object_ != nullptr && object_->is_single() ? std::optional<std::uint8_t>(0)
                                                                     : named_;
    }
    // The object of the description, or null.
    const DeviceDescription::Object* object() const { return object_; }
    const DeviceDescription::Entry* entry(std::uint8_t subindex) const {
        return description_ != nullptr ? description_->entry(index_, subindex) : nullptr;
    }
    const ValueForm& asked() const { return asked_; }
    ValueForm form(std::uint8_t subindex) const {
        return asked_.kind != ValueForm::Kind::unknown ? asked_ : entry_form(entry(subindex));
    }

private:
    std::uint16_t index_;
    std::optional<std::uint8_t> named_;
    const DeviceDescription* description_;
    const DeviceDescription::Object* object_ = nullptr;
    ValueForm asked_;
};

nlohmann::ordered_json result_object(unsigned int node, const Entries& entries, std::uint8_t subindex,
                                     const ObjectBytes& bytes) {
    const DeviceDescription::Entry* entry = entries.entry(subindex);
    return entry_json(node, entries.index(), subindex, entries.form(subindex), bytes,
                      entry != nullptr ? entry->full_name() : std::string());
}

// Tells when something else is shown than the node has: a number is cut to its type. Fewer bytes are a number too.
void tell_odd_size(const Entries& entries, std::uint8_t subindex, const ObjectBytes& bytes) {
    const ValueForm form = entries.form(subindex);
    const bool is_number = object_is_integer(form.type) && bytes.size() <= object_size(form.type);
    if (const std::string odd = odd_size(form, bytes); !odd.empty() && !is_number) {
        tell(address_text(entries.index(), subindex) + ": the node's value " + odd +
             "; --type hex shows all of it");
    }
}

void show(Output& output, unsigned int node, const Entries& entries, std::uint8_t subindex,
          const ObjectBytes& bytes) {
    const ValueForm form = entries.form(subindex);
    tell_odd_size(entries, subindex, bytes);
    if (output.json()) {
        output.object(result_object(node, entries, subindex, bytes));
    } else if (form.kind == ValueForm::Kind::raw) {
        output.bytes(value_text(form, bytes));
    } else {
        std::string line = address_text(entries.index(), subindex) + "  " + value_text(form, bytes);
        if (const DeviceDescription::Entry* entry = entries.entry(subindex)) {
            line += "  " + printable(entry->full_name());
        }
        output.line(line);
    }
    output.flush();
}

// What a file gets of a value: the bytes, or with --type what that type writes.
std::string file_text(const Entries& entries, const ObjectBytes& bytes) {
    if (entries.asked().kind == ValueForm::Kind::unknown || entries.asked().kind == ValueForm::Kind::raw) {
        return {bytes.begin(), bytes.end()};
    }
    return value_text(entries.asked(), bytes) + "\n";
}

// The subindices that a description has of an object.
std::vector<std::uint8_t> described_subindices(const DeviceDescription::Object& object) {
    std::vector<std::uint8_t> result;
    for (const DeviceDescription::Entry& entry : object.entries) {
        if (entry.readable()) {
            result.push_back(entry.subindex);
        }
    }
    return result;
}

// Whether the answer for subindex 1 shows that there is one.
bool has_subindex(const SdoResult& first) {
    return first.ok() || first.abort_code == abort_write_only;
}

// Keeps the last refusal of several to end with, and tells those before it.
void add_refusal(std::optional<Failure>& last, const Failure& refusal) {
    if (last) {
        tell(last->what());
    }
    last = refusal;
}

// Reads an object that no description has: its subindices too, when the node has any.
ExitStatus read_unknown_object(const Session& session, SdoTransfers& transfers, const Entries& entries,
                               unsigned int node) {
    ObjectBytes count;
    const SdoResult zero = transfers.read(entries.index(), 0, count);
    if (!zero.ok()) {
        throw transfers.failure(zero);
    }
    show(session.output, node, entries, 0, count);
    const unsigned int highest = count.size() == 1 ? count.front() : 0;
    std::optional<Failure> refusal;
    for (unsigned int subindex = 1; subindex <= highest; ++subindex) {
        ObjectBytes bytes;
        const auto narrow = static_cast<std::uint8_t>(subindex);
        const SdoResult result = transfers.read(entries.index(), narrow, bytes);
        if (result.ok()) {
            show(session.output, node, entries, narrow, bytes);
        } else if (result.outcome != SdoOutcome::aborted_by_node) {
            throw transfers.failure(result);
        } else if (subindex == 1 && !has_subindex(result)) {
            break;  // one value, which happens to be a small number
        } else if (result.abort_code != abort_no_subindex) {
            add_refusal(refusal, transfers.failure(result));
        }
    }
    if (refusal) {
        throw Failure(*refusal);
    }
    return ExitStatus::done;
}

ExitStatus read_described_object(const Session& session, SdoTransfers& transfers, const Entries& entries,
                                 unsigned int node) {
    std::optional<Failure> refusal;
    for (const std::uint8_t subindex : described_subindices(*entries.object())) {
        ObjectBytes bytes;
        const SdoResult result = transfers.read(entries.index(), subindex, bytes);
        if (result.ok()) {
            show(session.output, node, entries, subindex, bytes);
        } else if (result.outcome != SdoOutcome::aborted_by_node) {
            throw transfers.failure(result);
        } else {
            add_refusal(refusal, transfers.failure(result));
        }
    }
    if (refusal) {
        throw Failure(*refusal);
    }
    return ExitStatus::done;
}

// What is to be written.
ObjectBytes value_to_write(const SdoArguments& arguments, const Entries& entries, std::uint8_t subindex) {
    if (arguments.file.empty()) {
        const ValueForm form = entries.form(subindex);
        if (form.kind == ValueForm::Kind::unknown) {
            throw Failure(ExitStatus::usage,
                          "the type of the value is not known; name it with --type, such as "
                          "--type u16, or a description with --eds");
        }
        return parse_value(form, entries.entry(subindex), arguments.value, arguments.node);
    }
    std::string content = file_content(arguments.file);
    const ValueForm::Kind kind = entries.asked().kind;
    if (kind == ValueForm::Kind::unknown || kind == ValueForm::Kind::raw) {
        return {content.begin(), content.end()};
    }
    if (!content.empty() && content.back() == '\n') {
        content.pop_back();
    }
    try {
        return parse_value(entries.asked(), nullptr, content, arguments.node);
    } catch (const Failure& failure) {
        throw Failure(ExitStatus::bad_file, arguments.file + ": " + failure.what());
    }
}

}  // namespace

ExitStatus read_objects(const Session& session, const SdoArguments& arguments) {
    const Descriptions descriptions(session.options.eds);
    const Entries entries(arguments, descriptions.of(arguments.node));
    const std::optional<std::uint8_t> subindex =
        arguments.file.empty() ? entries.only_subindex() : entries.only_subindex().value_or(0);
    if (!arguments.file.empty() && !entries.only_subindex() && entries.object() != nullptr) {
        throw Failure(ExitStatus::usage, "'" + arguments.object +
                                             "' has several entries; --out takes one, such as " +
                                             address_text(entries.index(), 1));
    }
    SdoTransfers transfers(session, arguments.node, arguments.mode);
    std::optional<ResultFile> file;
    if (!arguments.file.empty()) {
        file.emplace(arguments.file, session.output);
    }
    if (!subindex) {
        return entries.object() != nullptr
                   ? read_described_object(session, transfers, entries, arguments.node)
                   : read_unknown_object(session, transfers, entries, arguments.node);
    }
    ObjectBytes bytes;
    const SdoResult result = transfers.read(entries.index(), *subindex, bytes);
    if (!result.ok()) {
        throw transfers.failure(result);
    }
    if (file) {
        if (entries.asked().kind != ValueForm::Kind::unknown) {
            tell_odd_size(entries, *subindex, bytes);
        }
        file->write(file_text(entries, bytes));
    } else {
        show(session.output, arguments.node, entries, *subindex, bytes);
    }
    return ExitStatus::done;
}

ExitStatus write_object(const Session& session, const SdoArguments& arguments) {
    const Descriptions descriptions(session.options.eds);
    const Entries entries(arguments, descriptions.of(arguments.node));
    if (!entries.only_subindex() && entries.object() != nullptr) {
        throw Failure(ExitStatus::usage, "'" + arguments.object +
                                             "' has several entries; name one, such as " +
                                             address_text(entries.index(), 1));
    }
    const std::uint8_t subindex = entries.only_subindex().value_or(0);
    const ObjectBytes bytes = value_to_write(arguments, entries, subindex);
    SdoTransfers transfers(session, arguments.node, arguments.mode);
    const SdoResult result = transfers.write(entries.index(), subindex, bytes);
    if (!result.ok()) {
        throw transfers.failure(result);
    }
    if (session.output.json()) {
        session.output.object(result_object(arguments.node, entries, subindex, bytes));
        session.output.flush();
    }
    return ExitStatus::done;
}

}  // namespace nodevik_tool

#include "tools/configurecommand.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "tools/nodesetup.h"
#include "tools/objects.h"
#include "tools/resultfile.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

using Entry = DeviceDescription::Entry;

constexpr std::uint32_t not_written_on_download = 1;  // ObjFlags

// Whether an error of the file is about a value that the node is to have: one that was lost, or may be another one.
bool spoils_a_value(const DeviceDescription& description, const DescriptionFinding& finding) {
    if (finding.severity != DescriptionFinding::Severity::error) {
        return false;
    }
    std::string words = finding.section + "/" + finding.key;
    std::transform(words.begin(), words.end(), words.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    const std::string_view section = std::string_view(words).substr(0, finding.section.size());
    if (section.rfind("devicecom", 0) == 0 || words.find("value/") != std::string::npos ||
        words.find("/parametervalue") != std::string::npos) {
        return true;
    }
    char* end = nullptr;
    const unsigned long index = std::strtoul(finding.section.c_str(), &end, 16);
    const auto* object = end == finding.section.c_str() || index > 0xFFFF
                             ? nullptr
                             : description.object(static_cast<std::uint16_t>(index));
    return object != nullptr && std::any_of(object->entries.begin(), object->entries.end(),
                                            [](const Entry& entry) { return !entry.parameter_text.empty(); });
}

// Whether the value of an entry is the content of a file.
bool is_downloaded(const Entry& entry) {
    return (entry.is_domain || entry.type == ObjectDataType::domain) && !entry.download_file.empty() &&
           entry.writable() && (entry.flags & not_written_on_download) == 0;
}

// The values of domains that stand in files of their own, beside the DCF.
std::vector<ConfigurationValue> downloaded_values(const DeviceDescription& description) {
    std::vector<ConfigurationValue> values;
    for (const DeviceDescription::Object& object : description.objects()) {
        for (const Entry& entry : object.entries) {
            if (!is_downloaded(entry)) {
                continue;
            }
            const std::string address = address_text(entry.index, entry.subindex);
            if (!entry.parameter_text.empty()) {
                throw Failure(
                    ExitStatus::bad_file,
                    description.file() + ": " + address +
                        " has both a ParameterValue and a DownloadFile; nothing is sent before this "
                        "is mended");
            }
            const auto place = std::filesystem::path(description.file()).parent_path() / entry.download_file;
            const std::string content = file_content(place);
            if (content.empty()) {
                throw Failure(ExitStatus::bad_file, place.string() + ", the value of " + address +
                                                        ", is empty; nothing is sent before this is mended");
            }
            values.push_back({entry.index, entry.subindex, {content.begin(), content.end()}});
        }
    }
    return values;
}

// The values of the file for the node. Nothing is sent of a file that is not to be trusted in them.
std::vector<ConfigurationValue> values_of(const DeviceDescription& description,
                                          const ConfigureArguments& arguments) {
    for (const DescriptionFinding& finding : description.findings()) {
        if (spoils_a_value(description, finding)) {
            throw Failure(ExitStatus::bad_file, finding.text() + "; nothing is sent before this is mended");
        }
    }
    if (description.node_id() != 0 && description.node_id() != arguments.node) {
        const std::string node = std::to_string(arguments.node);
        throw Failure(ExitStatus::usage, arguments.file + " is for node " +
                                             std::to_string(description.node_id()) + ", not for " + node +
                                             "; 'nodevik eds dcf " + arguments.file + " " + node +
                                             "' makes one for it");
    }
    std::vector<ConfigurationValue> values = configured_values(description, arguments.node);
    const std::vector<ConfigurationValue> downloaded = downloaded_values(description);
    for (const ConfigurationValue& value : values) {
        const Entry& entry = *description.entry(value.index, value.subindex);
        if (const std::string reason = entry.out_of_limits(value.bytes, arguments.node); !reason.empty()) {
            throw Failure(ExitStatus::bad_file, arguments.file + ": " +
                                                    address_text(value.index, value.subindex) +
                                                    ": the value '" + entry.value_text() + "' " + reason);
        }
    }
    values.insert(values.end(), downloaded.begin(), downloaded.end());
    if (values.empty() && !arguments.restore && !arguments.store) {
        throw Failure(ExitStatus::bad_file,
                      arguments.file +
                          " has no value for a node (ParameterValue); 'nodevik eds dcf' makes "
                          "a DCF with values");
    }
    return values;
}

Colour colour_of(ConfigurationResult result) {
    switch (result) {
        case ConfigurationResult::refused:
            return Colour::bad;
        case ConfigurationResult::written:
            return Colour::good;
        case ConfigurationResult::would_write:
            return Colour::notable;
        default:
            return Colour::plain;
    }
}

// A value as people read it: a number in hexadecimal where the file has it so, as COB-IDs and mapped objects are.
std::string shown_value(const Entry& entry, const ObjectBytes& bytes) {
    if (is_downloaded(entry)) {
        return std::to_string(bytes.size()) + " bytes of " + printable(entry.download_file);
    }
    const bool is_number = object_is_integer(entry.type) && !object_is_signed(entry.type);
    const std::string& text = entry.value_text();
    if (!is_number || text.find_first_of("xX") == std::string::npos) {
        return value_text(entry_form(&entry), bytes);
    }
    return "0x" + plain_hex({bytes.rbegin(), bytes.rend()});
}

void show_text(Output& output, const DeviceDescription& description, const ConfigurationItem& item) {
    constexpr int width = 11;  // of the longest result
    const Entry* entry = description.entry(item.index, item.subindex);
    std::array<char, 16> address{};
    std::array<char, 16> result{};
    std::snprintf(address.data(), address.size(), "%-10s", address_text(item.index, item.subindex).c_str());
    std::snprintf(result.data(), result.size(), "%-*s", width, configuration_result_name(item.result));
    std::string line = std::string(address.data()) + "  " +
                       output.paint(result.data(), colour_of(item.result)) + "  " +
                       shown_value(*entry, item.bytes) + "  " + printable(entry->full_name());
    if (item.result == ConfigurationResult::refused) {
        line += ": " + printable(refusal_text(item));
    }
    output.line(line);
}

// "node 5: 3 written, 12 same".
std::string summary(const ConfigurationReport& report, const ConfigureArguments& arguments) {
    std::string text;
    for (const ConfigurationResult result :
         {ConfigurationResult::written, ConfigurationResult::would_write, ConfigurationResult::same,
          ConfigurationResult::refused, ConfigurationResult::not_reached}) {
        const auto count =
            std::count_if(report.items.begin(), report.items.end(),
                          [result](const ConfigurationItem& item) { return item.result == result; });
        if (count > 0) {
            text +=
                (text.empty() ? "" : ", ") + std::to_string(count) + " " + configuration_result_name(result);
        }
    }
    text = "node " + std::to_string(report.node) + ": " + (text.empty() ? "no value to write" : text);
    text += report.restored ? ", restored" : "";
    text += report.stored ? ", stored" : "";
    return text + (arguments.dry_run ? "; nothing was written" : "");
}

}  // namespace

ExitStatus configure_node(const Session& session, const ConfigureArguments& arguments) {
    const DeviceDescription description = load_description(arguments.file);
    const std::vector<ConfigurationValue> values = values_of(description, arguments);
    tell_errors(description);
    ConfigurationOptions options;
    options.dry_run = arguments.dry_run;
    options.store = arguments.store;
    options.restore = arguments.restore;
    SdoTransfers transfers(session, arguments.node);
    const NodeSetup setup = set_up_node(session, transfers, description, values, options);
    for (const ConfigurationItem& item : setup.report.items) {
        if (session.output.json()) {
            session.output.object(item_json(item));
        } else {
            show_text(session.output, description, item);
        }
    }
    tell_changed_pdos(setup);
    if (setup.trouble) {
        session.output.hurry();
    }
    session.output.flush();
    tell(summary(setup.report, arguments));
    throw_unless_done(setup, transfers);
    return ExitStatus::done;
}

}  // namespace nodevik_tool

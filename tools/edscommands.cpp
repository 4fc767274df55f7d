#include "tools/edscommands.h"

#include <array>
#include <cstdio>
#include <optional>

#include "tools/dcffile.h"
#include "tools/objects.h"
#include "tools/resultfile.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

using Entry = DeviceDescription::Entry;

const char* severity_word(DescriptionFinding::Severity severity) {
    switch (severity) {
        case DescriptionFinding::Severity::error:
            return "error";
        case DescriptionFinding::Severity::warning:
            return "warning";
        default:
            return "note";
    }
}

void show_json(Output& output, const Entry& entry, unsigned int node) {
    nlohmann::ordered_json object{
        {"index", index_text(entry.index)},
        {"sub", entry.subindex},
        {"name", entry.full_name()},
        {"type", object_type_short_name(entry.type)},
        {"access", object_access_name(entry.access)},
        {"default", described_json(entry, entry.default_value(node), entry.default_text)},
        {"low", described_json(entry, entry.low(node), entry.low_text)},
        {"high", described_json(entry, entry.high(node), entry.high_text)},
        {"pdo", entry.pdo_mapping}};
    if (!entry.parameter_text.empty()) {
        object["value"] = described_json(entry, entry.value(node), entry.parameter_text);
    }
    output.object(object);
}

void show_text(Output& output, const Entry& entry) {
    std::array<char, 48> head{};
    std::snprintf(head.data(), head.size(), "%-10s  %-6s  %-7s",
                  address_text(entry.index, entry.subindex).c_str(), object_type_short_name(entry.type),
                  object_access_name(entry.access));
    std::string line = entry.full_name();
    if (!entry.value_text().empty()) {
        line += " = " + entry.value_text();
    }
    if (!entry.low_text.empty() || !entry.high_text.empty()) {
        line += " [" + entry.low_text + " to " + entry.high_text + "]";
    }
    output.line(std::string(head.data()) + "  " + printable(line) + (entry.pdo_mapping ? ", PDO" : ""));
}

// Gives an entry the value that a word of the command line wants.
void set_value(DeviceDescription& description, const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
        throw Failure(ExitStatus::usage, "'" + word +
                                             "' is no value for an object; right is OBJECT=VALUE, such as "
                                             "0x1017=500");
    }
    const std::string name = word.substr(0, equals);
    const ObjectAddress address = parse_address(name, &description);
    const DeviceDescription::Object* object = description.object(address.index);
    if (!address.subindex && object != nullptr && !object->is_single()) {
        throw Failure(ExitStatus::usage, "'" + name + "' has several entries; name one, such as " +
                                             address_text(address.index, 1));
    }
    const std::uint8_t subindex = address.subindex.value_or(0);
    if (description.entry(address.index, subindex) == nullptr) {
        throw Failure(ExitStatus::usage,
                      description.file() + " has no object " + name + errors_hint(description));
    }
    const std::string value = word.substr(equals + 1);
    if (const std::string reason = description.set_value(address.index, subindex, value); !reason.empty()) {
        throw Failure(ExitStatus::usage, name + ": the value '" + value + "' " + reason);
    }
}

}  // namespace

ExitStatus check_description(Output& output, const std::string& file) {
    DeviceDescription description;
    read_description(description, file);
    unsigned int errors = 0;
    for (const DescriptionFinding& finding : description.findings()) {
        errors += finding.severity == DescriptionFinding::Severity::error ? 1 : 0;
        if (output.json()) {
            output.object({{"file", finding.file},
                           {"line", finding.line},
                           {"section", finding.section},
                           {"key", finding.key},
                           {"severity", severity_word(finding.severity)},
                           {"reason", finding.reason}});
        } else {
            output.line(std::string(severity_word(finding.severity)) + ": " + printable(finding.text()));
        }
    }
    output.flush();
    if (errors > 0) {
        throw Failure(ExitStatus::bad_file, file + " has errors: " + std::to_string(errors));
    }
    return ExitStatus::done;
}

ExitStatus show_description(Output& output, const std::string& file, const std::string& object) {
    const DeviceDescription description = load_description(file);
    std::optional<ObjectAddress> wanted;
    if (!object.empty()) {
        wanted = parse_address(object, &description);
    }
    bool is_found = false;
    for (const DeviceDescription::Object& one : description.objects()) {
        for (const Entry& entry : one.entries) {
            if (wanted && (entry.index != wanted->index ||
                           wanted->subindex.value_or(entry.subindex) != entry.subindex)) {
                continue;
            }
            is_found = true;
            if (output.json()) {
                show_json(output, entry, description.node_id());
            } else {
                show_text(output, entry);
            }
        }
    }
    if (!is_found) {
        throw Failure(ExitStatus::usage, file + " has no object " + object + errors_hint(description));
    }
    output.flush();
    return ExitStatus::done;
}

ExitStatus make_dcf(Output& output, const DcfArguments& arguments) {
    DeviceDescription description = load_description(arguments.file);
    tell_errors(description);
    set_node(description, arguments.node);
    for (const std::string& word : arguments.values) {
        set_value(description, word);
    }
    const std::string text = dcf_text(description, arguments.out);
    if (!arguments.out.empty()) {
        ResultFile(arguments.out, output).write(text);
    } else if (!output.json()) {
        output.bytes(text);
    }
    if (output.json()) {
        for (const DeviceDescription::Object& object : description.objects()) {
            for (const Entry& entry : object.entries) {
                if (!entry.parameter_text.empty()) {
                    show_json(output, entry, arguments.node);
                }
            }
        }
    }
    output.flush();
    return ExitStatus::done;
}

}  // namespace nodevik_tool

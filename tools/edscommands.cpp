#include "tools/edscommands.h"

#include <array>
#include <cstdio>
#include <optional>

#include "tools/objects.h"

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

// A value of an entry: by its type, as it stands when that is not known without a node's number, null without one.
nlohmann::ordered_json value_or_text(const Entry& entry, const std::optional<ObjectBytes>& bytes,
                                     const std::string& text) {
    if (bytes) {
        return value_json(entry_form(&entry), *bytes);
    }
    return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

void show_json(Output& output, const Entry& entry, unsigned int node) {
    std::array<char, 8> index{};
    std::snprintf(index.data(), index.size(), "0x%04X", static_cast<unsigned int>(entry.index));
    nlohmann::ordered_json object{
        {"index", index.data()},
        {"sub", entry.subindex},
        {"name", entry.full_name()},
        {"type", object_type_short_name(entry.type)},
        {"access", object_access_name(entry.access)},
        {"default", value_or_text(entry, entry.default_value(node), entry.default_text)},
        {"low", value_or_text(entry, entry.low(node), entry.low_text)},
        {"high", value_or_text(entry, entry.high(node), entry.high_text)},
        {"pdo", entry.pdo_mapping}};
    if (!entry.parameter_text.empty()) {
        object["value"] = value_or_text(entry, entry.value(node), entry.parameter_text);
    }
    output.object(object);
}

void show_text(Output& output, const Entry& entry) {
    std::array<char, 48> head{};
    std::snprintf(head.data(), head.size(), "%-10s  %-6s  %-7s",
                  address_text(entry.index, entry.subindex).c_str(), object_type_short_name(entry.type),
                  object_access_name(entry.access));
    std::string line = head.data() + ("  " + entry.full_name());
    if (!entry.value_text().empty()) {
        line += " = " + entry.value_text();
    }
    if (!entry.low_text.empty() || !entry.high_text.empty()) {
        line += " [" + entry.low_text + " to " + entry.high_text + "]";
    }
    output.line(line + (entry.pdo_mapping ? ", PDO" : ""));
}

}  // namespace

ExitStatus check_description(Output& output, const std::string& file) {
    DeviceDescription description;
    description.load(file);
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
            output.line(std::string(severity_word(finding.severity)) + ": " + finding.text());
        }
    }
    output.flush();
    if (errors > 0) {
        throw Failure(ExitStatus::bad_file, file + " has errors: " + std::to_string(errors));
    }
    return ExitStatus::done;
}

ExitStatus show_description(Output& output, const std::string& file, const std::string& object) {
    const Descriptions descriptions({"1=" + file});
    const DeviceDescription& description = *descriptions.of(1);
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
        throw Failure(ExitStatus::usage, file + " has no object " + object);
    }
    output.flush();
    return ExitStatus::done;
}

}  // namespace nodevik_tool

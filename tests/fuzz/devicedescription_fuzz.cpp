// Device descriptions: any text is read, and what is left of it is used in every way. The DCF that is made of it says the
// same once more.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "nodevik/nodes/devicedescription.h"
#include "nodevik/nodes/devicepdo.h"
#include "nodevik/nodes/nodeconfiguration.h"

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void use_entry(DeviceDescription& description, const DeviceDescription::Entry& entry) {
    const auto value = entry.value(5);
    if (value) {
        // What it is written as is the same value; a REAL that is no number has many patterns.
        const ObjectParse again = parse_object(entry.type, entry.format(*value), 5);
        require(again.bytes.has_value() || value->empty() || entry.type == ObjectDataType::visible_string ||
                entry.type == ObjectDataType::unicode_string);
        description.set_value(entry.index, entry.subindex, *value);
    }
    entry.parse("$NODEID+0x180", 127);
    entry.low(127);
    entry.high(1);
    require(!entry.full_name().empty() || entry.name.empty());
    description.entries_named(entry.full_name());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    DeviceDescription description;
    const bool usable = description.parse(text, "fuzz.eds");
    require(usable == !description.objects().empty());
    for (const auto& finding : description.findings()) {
        require(!finding.text().empty() && !finding.reason.empty());
    }

    DeviceDescription again;
    require(again.parse(description.dcf({}), "fuzz.dcf") == usable);
    require(again.entry_count() == description.entry_count());
    for (const auto& object : description.objects()) {
        for (const auto& entry : object.entries) {
            const auto* other = again.entry(entry.index, entry.subindex);
            require(other != nullptr && other->value_text() == entry.value_text() &&
                    other->type == entry.type);
        }
    }

    FrameNames names;
    names.add_node(5, description);
    for (const DescribedPdo& pdo : described_pdos(description, 5)) {
        PDO filled;
        if (pdo.fill(filled).empty()) {
            names.names(filled.get_cobid(), 8, data == nullptr ? filled.PDOdata : filled.get_address(0));
        }
    }
    for (const auto& value : configured_values(description, 5)) {
        require(description.entry(value.index, value.subindex) != nullptr);
    }
    std::size_t used = 0;  // of the thousands that a short text may stand for
    for (const auto& object : again.objects()) {
        for (const auto& entry : object.entries) {
            if (++used < 100) {
                use_entry(description, entry);
            }
        }
    }
    description.dcf({"new.dcf", "11-21-2026", "10:00PM", "fuzz"});
    return 0;
}

#include "tools/edsdiff.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "tools/objects.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

using Json = nlohmann::ordered_json;
using Entry = DeviceDescription::Entry;
using Object = DeviceDescription::Object;

// Something that a file says. Two of the same thing differ when both their texts and their values do.
struct Fact {
    const char* what;  // the word for it
    Json value;        // null when the file does not say it
    std::string text;  // as people read it; empty when the file does not say it
};

// All that a file says of one thing, in an order that depends on nothing.
using Facts = std::vector<Fact>;

Fact text_fact(const char* what, const std::string& text) {
    return {what, text.empty() ? Json() : Json(text), text};
}

Fact number_fact(const char* what, std::uint64_t number) {
    return {what, number, std::to_string(number)};
}

Fact number_fact(const char* what, const std::optional<std::uint32_t>& number) {
    return number ? number_fact(what, std::uint64_t{*number}) : Fact{what, nullptr, {}};
}

Fact flag_fact(const char* what, bool flag) {
    return {what, flag, flag ? "yes" : "no"};
}

const char* code_word(ObjectCode code) {
    switch (code) {
        case ObjectCode::null:
            return "null";
        case ObjectCode::domain:
            return "domain";
        case ObjectCode::deftype:
            return "deftype";
        case ObjectCode::defstruct:
            return "defstruct";
        case ObjectCode::array:
            return "array";
        case ObjectCode::record:
            return "record";
        default:
            return "variable";
    }
}

Facts device_facts(const DeviceDescription& description) {
    const DeviceDescription::DeviceInfo& info = description.device_info();
    std::string rates;
    for (const unsigned int rate : info.baud_rates_kbit) {
        rates += (rates.empty() ? "" : " ") + std::to_string(rate);
    }
    std::string dummies;
    for (unsigned int type = 1; type <= 7; ++type) {
        dummies += description.has_dummy(type) ? (dummies.empty() ? "" : " ") + std::to_string(type) : "";
    }
    return {text_fact("VendorName", info.vendor_name),
            number_fact("VendorNumber", info.vendor_number),
            text_fact("ProductName", info.product_name),
            number_fact("ProductNumber", info.product_number),
            number_fact("RevisionNumber", info.revision_number),
            text_fact("OrderCode", info.order_code),
            text_fact("BaudRate", rates),
            flag_fact("SimpleBootUpMaster", info.simple_boot_up_master),
            flag_fact("SimpleBootUpSlave", info.simple_boot_up_slave),
            flag_fact("DynamicChannelsSupported", info.dynamic_channels),
            flag_fact("GroupMessaging", info.group_messaging),
            flag_fact("LSS_Supported", info.lss),
            number_fact("Granularity", std::uint64_t{info.granularity}),
            number_fact("NrOfRXPDO", std::uint64_t{info.receive_pdos}),
            number_fact("NrOfTXPDO", std::uint64_t{info.transmit_pdos}),
            text_fact("Dummy", dummies)};
}

Facts commissioning_facts(const DeviceDescription& description) {
    const DeviceDescription::Commissioning& commissioning = description.commissioning();
    return {number_fact("NodeID", std::uint64_t{commissioning.node_id}),
            text_fact("NodeName", commissioning.node_name),
            number_fact("Baudrate", std::uint64_t{commissioning.baud_rate_kbit}),
            number_fact("NetNumber", std::uint64_t{commissioning.net_number}),
            text_fact("NetworkName", commissioning.network_name),
            flag_fact("CANopenManager", commissioning.canopen_manager),
            number_fact("LSS_SerialNumber", commissioning.lss_serial_number)};
}

Facts object_facts(const Object& object) {
    // A single object's name is that of its entry.
    return {text_fact("kind", code_word(object.code)),
            text_fact("name", object.is_single() ? std::string() : object.name)};
}

Facts entry_facts(const Entry& entry, unsigned int node) {
    const auto value_fact = [&entry](const char* what, const std::optional<ObjectBytes>& bytes,
                                     const std::string& text) {
        return Fact{what, described_json(entry, bytes, text), text};
    };
    return {text_fact("name", entry.name),
            text_fact("type", object_type_short_name(entry.type)),
            text_fact("access", object_access_name(entry.access)),
            value_fact("default", entry.default_value(node), entry.default_text),
            value_fact("low", entry.low(node), entry.low_text),
            value_fact("high", entry.high(node), entry.high_text),
            flag_fact("pdo", entry.pdo_mapping),
            value_fact("value", entry.parameter_text.empty() ? std::nullopt : entry.value(node),
                       entry.parameter_text),
            number_fact("flags", std::uint64_t{entry.flags}),
            text_fact("denotation", entry.denotation),
            text_fact("upload_file", entry.upload_file),
            text_fact("download_file", entry.download_file)};
}

// Compares two files and tells what differs.
class Comparison {
public:
    Comparison(Output& output, const DeviceDescription& left, const DeviceDescription& right)
        : output_(&output), left_(&left), right_(&right) {}

    // Whether the files are the same.
    bool run() {
        compare_facts(device_facts(*left_), device_facts(*right_), section("DeviceInfo"));
        compare_facts(commissioning_facts(*left_), commissioning_facts(*right_),
                      section("DeviceComissioning"));
        walk(
            left_->objects(), right_->objects(), [](const Object& object) { return object.index; },
            [this](const Object* left, const Object* right) { compare_objects(left, right); });
        return is_same_;
    }

private:
    // What a difference is about.
    struct Place {
        std::string words;  // ahead of it in a line
        Json keys;          // ahead of it in an object
        std::string name;   // behind it in a line
    };

    static Place section(const char* name) { return {name, {{"section", name}}, {}}; }

    static Place place_of(const Object& object) {
        const std::string index = index_text(object.index);
        return {index, {{"index", index}, {"name", object.name}}, object.name};
    }

    static Place place_of(const Entry& entry) {
        return {address_text(entry.index, entry.subindex),
                {{"index", index_text(entry.index)}, {"sub", entry.subindex}, {"name", entry.full_name()}},
                entry.full_name()};
    }

    // Calls a function for what has the same key in two sorted lists, with null for the one that lacks it.
    template <typename List, typename Key, typename Take>
    static void walk(const List& left, const List& right, Key key, Take take) {
        auto l = left.begin();
        auto r = right.begin();
        while (l != left.end() || r != right.end()) {
            const bool has_left = l != left.end() && (r == right.end() || key(*l) <= key(*r));
            const bool has_right = r != right.end() && (l == left.end() || key(*r) <= key(*l));
            take(has_left ? &*l++ : nullptr, has_right ? &*r++ : nullptr);
        }
    }

    void compare_objects(const Object* left, const Object* right) {
        static const std::vector<Entry> none;
        if (left != nullptr && right != nullptr) {
            compare_facts(object_facts(*left), object_facts(*right), place_of(*left));
        } else if ((left != nullptr ? left : right)->entries.empty()) {
            tell_missing(place_of(*(left != nullptr ? left : right)), left != nullptr);
        }
        walk(
            left != nullptr ? left->entries : none, right != nullptr ? right->entries : none,
            [](const Entry& entry) { return entry.subindex; },
            [this](const Entry* l, const Entry* r) { compare_entries(l, r); });
    }

    void compare_entries(const Entry* left, const Entry* right) {
        if (left != nullptr && right != nullptr) {
            compare_facts(entry_facts(*left, left_->node_id()), entry_facts(*right, right_->node_id()),
                          place_of(*left));
        } else {
            tell_missing(place_of(*(left != nullptr ? left : right)), left != nullptr);
        }
    }

    void compare_facts(const Facts& left, const Facts& right, const Place& place) {
        for (std::size_t i = 0; i < left.size(); ++i) {
            if (left[i].text != right[i].text && left[i].value != right[i].value) {
                tell_difference(place, left[i], right[i]);
            }
        }
    }

    void tell_missing(const Place& place, bool is_left) {
        is_same_ = false;
        if (output_->json()) {
            Json object = place.keys;
            object["what"] = "entry";
            object["a"] = is_left;
            object["b"] = !is_left;
            output_->object(object);
            return;
        }
        tell_line(place, "only in " + (is_left ? left_ : right_)->file());
    }

    void tell_difference(const Place& place, const Fact& left, const Fact& right) {
        is_same_ = false;
        if (output_->json()) {
            Json object = place.keys;
            object["what"] = left.what;
            object["a"] = left.value;
            object["b"] = right.value;
            output_->object(object);
            return;
        }
        const auto shown = [](const std::string& text) { return text.empty() ? "none" : printable(text); };
        tell_line(place, left.what + (" " + shown(left.text)) + " -> " + shown(right.text));
    }

    void tell_line(const Place& place, const std::string& difference) {
        constexpr std::size_t column = 10;  // as wide as most addresses
        std::string line = place.words;
        line.resize(std::max(line.size(), column), ' ');
        line += "  " + difference;
        output_->line(place.name.empty() ? line : line + "  " + printable(place.name));
    }

    Output* output_;
    const DeviceDescription* left_;
    const DeviceDescription* right_;
    bool is_same_ = true;
};

}  // namespace

ExitStatus diff_descriptions(Output& output, const std::string& left, const std::string& right) {
    const DeviceDescription one = load_description(left);
    const DeviceDescription other = load_description(right);
    for (const DeviceDescription* description : {&one, &other}) {
        tell_errors(*description);
    }
    const bool is_same = Comparison(output, one, other).run();
    output.flush();
    return is_same ? ExitStatus::done : ExitStatus::refused;
}

}  // namespace nodevik_tool

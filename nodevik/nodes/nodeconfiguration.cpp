#include "nodevik/nodes/nodeconfiguration.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>

#include "nodevik/codetexts.h"
#include "nodevik/nodes/edstext.h"
#include "nodevik/util/assertion.h"
#include "nodevik/util/monotonicclock.h"

namespace {

constexpr std::uint32_t pdo_off = 0x80000000;
constexpr std::uint32_t write_only = 0x06010001;
constexpr std::uint32_t does_not_exist = 0x06020000;
constexpr std::uint32_t no_subindex = 0x06090011;
constexpr std::uint64_t retry_ns = 5000000;

/// Room for what is read only to be compared: what is longer differs from all that was asked for.
constexpr std::size_t least_room = 256;

std::uint32_t number_of(const ObjectBytes& bytes) {
    std::uint32_t number = 0;
    for (std::size_t i = std::min<std::size_t>(bytes.size(), 4); i > 0; --i) {
        number = number << 8 | bytes[i - 1];
    }
    return number;
}

ObjectBytes bytes_of(std::uint32_t number, std::size_t size) {
    ObjectBytes bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(number);
        number >>= 8;
    }
    return bytes;
}

/// The communication object of the PDO that an index belongs to; 0 when it belongs to none.
std::uint16_t pdo_of(std::uint16_t index) {
    const bool is_pdo = (index >= 0x1400 && index < 0x1C00);
    return is_pdo ? static_cast<std::uint16_t>(index & ~0x0200) : std::uint16_t{0};
}

bool is_mapping(std::uint16_t index) {
    return (index & 0x0200) != 0;
}

/// Objects that are not PDOs are written in this order, and within it by index. 0x1006 is refused by some nodes before
/// 0x1019; the heartbeat would go on at a pace that is not yet the plant's.
int rank_of(std::uint16_t index) {
    switch (index) {
        case 0x1006:
            return 1;
        case 0x1016:
        case 0x1017:
            return 2;
        case 0x1020:
            return 3;
        default:
            return 0;
    }
}

std::string words_of(std::uint32_t abort_code) {
    const char* text = sdo_abort_text(abort_code);
    return text != nullptr ? text : "abort code 0x" + eds::hexadecimal(abort_code, 8);
}

std::string object_text(std::uint16_t index, unsigned int subindex) {
    return "0x" + eds::hexadecimal(index, 4) + ":" + std::to_string(subindex);
}

}  // namespace

const char* configuration_result_name(ConfigurationResult result) {
    constexpr std::array<const char*, 5> names = {"not-reached", "same", "written", "would-write", "refused"};
    return names.at(static_cast<std::size_t>(result));
}

std::vector<ConfigurationValue> configured_values(const DeviceDescription& description,
                                                  unsigned int node_id) {
    std::vector<ConfigurationValue> values;
    for (const auto& object : description.objects()) {
        for (const auto& entry : object.entries) {
            if (entry.parameter_text.empty() || !entry.writable() || (entry.flags & 1) != 0) {
                continue;
            }
            if (auto bytes = entry.value(node_id)) {
                values.push_back({entry.index, entry.subindex, std::move(*bytes)});
            }
        }
    }
    return values;
}

ObjectBytes concise_configuration(const std::vector<ConfigurationValue>& values) {
    ObjectBytes concise = bytes_of(static_cast<std::uint32_t>(values.size()), 4);
    const auto append = [&](const ObjectBytes& bytes) {
        concise.insert(concise.end(), bytes.begin(), bytes.end());
    };
    for (const ConfigurationValue& value : values) {
        append(bytes_of(value.index, 2));
        append({value.subindex});
        append(bytes_of(static_cast<std::uint32_t>(value.bytes.size()), 4));
        append(value.bytes);
    }
    return concise;
}

/// The configuration of one node: what comes next is told by who asked for the transfer under way.
class NodeConfiguration::Job {
public:
    Job(NodeConfiguration& owner, unsigned int node, const DeviceDescription& description,
        const std::vector<ConfigurationValue>& values, const ConfigurationOptions& options,
        Callback callback);

    void begin() {
        check_identity(0);
        is_starting_ = false;
    }
    void process(std::uint64_t now_ns);
    void boot_up();
    std::uint64_t deadline() const { return deadline_; }
    void cancel();

    ConfigurationReport report;
    Callback callback;

private:
    using Next = void (Job::*)();

    struct Check {
        std::uint16_t index;
        std::uint8_t subindex;
        std::uint32_t expected;
        std::uint32_t mask;
        const char* name;
    };

    /// A step of setting up a PDO.
    struct Write {
        std::uint16_t index;
        std::uint8_t subindex;
        ObjectBytes bytes;
    };
    using Place = std::pair<std::uint16_t, std::uint8_t>;

    // Transfers. The next step is called when one has ended well or was refused; all else ends the configuration.
    void read(std::uint16_t index, std::uint8_t subindex, std::size_t wanted_size, Next next);
    void write(std::uint16_t index, std::uint8_t subindex, ObjectBytes bytes, Next next, bool slow = false);
    void launch();
    void ended(const SdoResult& result);
    bool was_refused() const { return !result_.ok(); }
    bool is_lost() const;

    void add_checks(const DeviceDescription& description);
    void check_identity(std::size_t number);
    void identity_read();
    void restore();
    void restore_answered();
    void begin_objects();
    void next_unit();

    void object_read();
    void write_object();
    void object_written();
    void object_read_back();

    void begin_pdo();
    void read_pdo();
    void pdo_part_read();
    void compare_pdo();
    void plan_pdo();
    void write_pdo();
    void pdo_part_written();
    void put_back();
    void put_back_next();
    void put_back_answered();
    void pdo_read_back();
    void pdo_part_read_back();
    void end_pdo(std::size_t refused_item, std::uint32_t code, std::string reason);
    std::vector<Write> old_pdo() const;
    const ObjectBytes* known(std::uint16_t index, std::uint8_t subindex) const;
    ConfigurationItem* find(std::uint16_t index, std::uint8_t subindex);
    ObjectBytes wanted_or_known(std::uint16_t index, std::uint8_t subindex);

    void refuse(ConfigurationItem& item, std::uint32_t code, std::string reason);
    bool is_wanted(const ConfigurationItem& item, const ObjectBytes& bytes) const;
    void store();
    void store_answered();
    void finish(ConfigurationOutcome outcome, std::string reason, std::uint32_t code = 0);

    NodeConfiguration& owner_;
    ConfigurationOptions options_;
    std::vector<Check> checks_;
    std::size_t check_ = 0;
    std::map<Place, ObjectDataType> types_;
    std::vector<std::vector<std::size_t>> units_;  // items that are done together: a PDO's, or one
    std::size_t unit_ = 0;

    SdoObject object_;
    ObjectBytes data_;  // of the transfer under way or the last one
    SdoResult result_;
    Next next_ = nullptr;
    bool is_read_ = false;
    bool is_slow_ = false;
    bool waits_for_node_ = false;  // somebody else's transfer is under way
    bool waits_for_boot_up_ = false;
    bool is_starting_ = true;  // within start(), where no callback is called
    bool is_over_ = false;     // and waits for process() to tell it
    bool can_read_ = true;     // the object of the unit
    std::uint64_t deadline_ = no_deadline;

    std::uint16_t pdo_ = 0;  // communication object
    std::vector<Place> to_read_;
    std::size_t part_ = 0;
    std::map<Place, ObjectBytes> known_;
    std::vector<Write> plan_;
    bool putting_back_ = false;
};

NodeConfiguration::Job::Job(NodeConfiguration& owner, unsigned int node, const DeviceDescription& description,
                            const std::vector<ConfigurationValue>& values,
                            const ConfigurationOptions& options, Callback when_done)
    : callback(std::move(when_done)), owner_(owner), options_(options) {
    report.node = node;
    object_.node = node;
    std::map<Place, std::size_t> places;
    for (const ConfigurationValue& value : values) {
        if (value.index == 0x1010 || value.index == 0x1011) {
            continue;
        }
        const auto [place, is_new] = places.try_emplace({value.index, value.subindex}, report.items.size());
        if (is_new) {
            report.items.push_back({value.index, value.subindex, value.bytes, {}, 0, {}});
        } else {
            report.items[place->second].bytes = value.bytes;
        }
        const auto* entry = description.entry(value.index, value.subindex);
        types_[place->first] = entry == nullptr ? ObjectDataType::none : entry->type;
    }
    // PDOs first, each as one; then the others.
    std::map<std::uint16_t, std::vector<std::size_t>> pdos;
    std::vector<std::tuple<int, Place, std::size_t>> others;
    for (const auto& [place, item] : places) {
        if (pdo_of(place.first) != 0) {
            pdos[pdo_of(place.first)].push_back(item);
        } else {
            others.emplace_back(rank_of(place.first), place, item);
        }
    }
    for (auto& [index, items] : pdos) {
        units_.push_back(std::move(items));
    }
    std::sort(others.begin(), others.end());
    for (const auto& other : others) {
        units_.push_back({std::get<2>(other)});
    }
    if (options_.check_identity) {
        add_checks(description);
    }
}

// Transfers.

void NodeConfiguration::Job::read(std::uint16_t index, std::uint8_t subindex, std::size_t wanted_size,
                                  Next next) {
    object_.index = index;
    object_.subindex = subindex;
    is_read_ = true;
    is_slow_ = false;
    next_ = next;
    data_.assign(std::max(least_room, wanted_size + 1), 0);
    launch();
}

void NodeConfiguration::Job::write(std::uint16_t index, std::uint8_t subindex, ObjectBytes bytes, Next next,
                                   bool slow) {
    object_.index = index;
    object_.subindex = subindex;
    is_read_ = false;
    is_slow_ = slow;
    next_ = next;
    data_ = std::move(bytes);
    launch();
}

/// Starts the transfer, now or when the node is free.
void NodeConfiguration::Job::launch() {
    SdoOptions options;
    options.timeout_ms = options_.timeout_ms;
    // What is short is asked for in the way that every node knows.
    options.mode = data_.size() <= least_room ? SdoMode::segmented : SdoMode::automatic;
    options.slow_timeout_ms = is_slow_ ? options_.slow_ms : 0;
    const auto when_ended = [this](const SdoResult& result) { ended(result); };
    SdoClient& sdo = *owner_.sdo_;
    const int started = is_read_ ? sdo.start_read(object_, data_.data(), data_.size(), when_ended, options)
                                 : sdo.start_write(object_, data_.data(), data_.size(), when_ended, options);
    waits_for_node_ = started != 0;
    deadline_ = waits_for_node_ ? monotonic_ns() + retry_ns : no_deadline;
}

void NodeConfiguration::Job::ended(const SdoResult& result) {
    result_ = result;
    if (is_read_) {
        data_.resize(result.ok() ? static_cast<std::size_t>(result.bytes) : 0);
    }
    if (result.outcome == SdoOutcome::cancelled) {
        finish(ConfigurationOutcome::cancelled, "cancelled");
    } else if (is_lost() && !putting_back_) {
        const bool in_pdo = !plan_.empty() && part_ > 0;
        if (in_pdo && !is_read_) {
            put_back();
            return;
        }
        finish(ConfigurationOutcome::no_answer,
               object_text(object_.index, object_.subindex) + ": " + result.words());
    } else {
        (this->*next_)();
    }
}

/// The node did not answer, or the driver took nothing.
bool NodeConfiguration::Job::is_lost() const {
    return result_.outcome == SdoOutcome::timed_out || result_.outcome == SdoOutcome::driver_failed;
}

void NodeConfiguration::Job::process(std::uint64_t now_ns) {
    if (now_ns < deadline_) {
        return;
    }
    if (is_over_) {
        owner_.finish(report.node);  // destroys this
    } else if (waits_for_node_) {
        launch();
    } else if (waits_for_boot_up_) {
        finish(ConfigurationOutcome::no_answer, "no boot-up after the reset");
    }
}

void NodeConfiguration::Job::cancel() {
    if (waits_for_node_ || waits_for_boot_up_ || is_over_) {
        finish(ConfigurationOutcome::cancelled, "cancelled");
    } else {
        owner_.sdo_->cancel(report.node);
    }
}

// Who the node is.

void NodeConfiguration::Job::add_checks(const DeviceDescription& description) {
    const auto value = [&](std::uint16_t index, std::uint8_t subindex, std::uint32_t otherwise) {
        const auto* entry = description.entry(index, subindex);
        const auto bytes = entry == nullptr ? std::nullopt : entry->value(report.node);
        const std::uint32_t number = bytes ? number_of(*bytes) : 0;
        return number != 0 ? number : otherwise;
    };
    const auto add = [&](std::uint16_t index, std::uint8_t subindex, std::uint32_t expected,
                         std::uint32_t mask, const char* name) {
        if (expected != 0) {
            checks_.push_back({index, subindex, expected, mask, name});
        }
    };
    const auto& info = description.device_info();
    add(0x1000, 0, value(0x1000, 0, 0), 0xFFFFFFFF, "device type");
    add(0x1018, 1, value(0x1018, 1, info.vendor_number.value_or(0)), 0xFFFFFFFF, "vendor");
    add(0x1018, 2, value(0x1018, 2, info.product_number.value_or(0)), 0xFFFFFFFF, "product");
    // The lower half of a revision changes without a change of behaviour (CiA 301, 7.5.2.18).
    add(0x1018, 3, value(0x1018, 3, info.revision_number.value_or(0)), 0xFFFF0000, "revision");
    add(0x1018, 4, description.commissioning().lss_serial_number.value_or(0), 0xFFFFFFFF, "serial number");
}

void NodeConfiguration::Job::check_identity(std::size_t number) {
    check_ = number;
    if (check_ == checks_.size()) {
        restore();
        return;
    }
    read(checks_[check_].index, checks_[check_].subindex, 4, &Job::identity_read);
}

void NodeConfiguration::Job::identity_read() {
    const Check& check = checks_[check_];
    if (was_refused()) {
        finish(ConfigurationOutcome::wrong_identity,
               std::string(check.name) + " cannot be read: " + words_of(result_.abort_code),
               result_.abort_code);
        return;
    }
    const std::uint32_t found = number_of(data_);
    if ((found & check.mask) != (check.expected & check.mask)) {
        finish(ConfigurationOutcome::wrong_identity, std::string(check.name) + " is 0x" +
                                                         eds::hexadecimal(found, 8) + ", the file has 0x" +
                                                         eds::hexadecimal(check.expected, 8));
        return;
    }
    check_identity(check_ + 1);
}

// Restoring and storing.

void NodeConfiguration::Job::restore() {
    if (!options_.restore || options_.dry_run) {
        begin_objects();
        return;
    }
    write(0x1011, 1, {'l', 'o', 'a', 'd'}, &Job::restore_answered, true);
}

void NodeConfiguration::Job::restore_answered() {
    if (was_refused()) {
        finish(ConfigurationOutcome::refused, "restoring is refused: " + words_of(result_.abort_code),
               result_.abort_code);
        return;
    }
    waits_for_boot_up_ = true;
    deadline_ = monotonic_ns() + std::uint64_t{1000000} * options_.boot_up_ms;
    // Two bytes of data; the UDP driver sends all eight.
    std::array<unsigned char, 8> reset_node = {0x81, static_cast<unsigned char>(report.node)};
    owner_.driver_->write(0, 2, reset_node.data(), 0);
}

void NodeConfiguration::Job::boot_up() {
    if (waits_for_boot_up_) {
        waits_for_boot_up_ = false;
        deadline_ = no_deadline;
        report.restored = true;
        begin_objects();
    }
}

void NodeConfiguration::Job::store() {
    const bool all_well =
        std::none_of(report.items.begin(), report.items.end(), [](const ConfigurationItem& item) {
            return item.result == ConfigurationResult::refused ||
                   item.result == ConfigurationResult::not_reached;
        });
    if (!all_well) {
        finish(ConfigurationOutcome::refused, options_.store
                                                  ? "not every object could be set: nothing is stored"
                                                  : "not every object could be set");
    } else if (options_.store && !options_.dry_run) {
        write(0x1010, 1, {'s', 'a', 'v', 'e'}, &Job::store_answered, true);
    } else {
        finish(ConfigurationOutcome::done, {});
    }
}

void NodeConfiguration::Job::store_answered() {
    if (was_refused()) {
        finish(ConfigurationOutcome::refused, "storing is refused: " + words_of(result_.abort_code),
               result_.abort_code);
        return;
    }
    report.stored = true;
    finish(ConfigurationOutcome::done, {});
}

void NodeConfiguration::Job::finish(ConfigurationOutcome outcome, std::string reason, std::uint32_t code) {
    report.outcome = outcome;
    report.reason = std::move(reason);
    report.abort_code = code;
    if (is_starting_) {
        is_over_ = true;
        deadline_ = 0;
        return;
    }
    owner_.finish(report.node);  // destroys this
}

// Objects that are no PDO's.

void NodeConfiguration::Job::begin_objects() {
    unit_ = std::numeric_limits<std::size_t>::max();
    next_unit();
}

void NodeConfiguration::Job::next_unit() {
    ++unit_;
    plan_.clear();
    if (unit_ == units_.size()) {
        store();
        return;
    }
    const ConfigurationItem& item = report.items[units_[unit_].front()];
    if (pdo_of(item.index) != 0) {
        begin_pdo();
        return;
    }
    can_read_ = true;
    read(item.index, item.subindex, item.bytes.size(), &Job::object_read);
}

void NodeConfiguration::Job::object_read() {
    ConfigurationItem& item = report.items[units_[unit_].front()];
    const bool aborted = result_.outcome == SdoOutcome::aborted_by_node;
    if (aborted && (result_.abort_code == does_not_exist || result_.abort_code == no_subindex)) {
        refuse(item, result_.abort_code, words_of(result_.abort_code));
        next_unit();
        return;
    }
    can_read_ = !aborted || result_.abort_code != write_only;
    if (result_.ok() && is_wanted(item, data_)) {
        item.result = ConfigurationResult::same;
        next_unit();
    } else if (options_.dry_run) {
        item.result = ConfigurationResult::would_write;
        next_unit();
    } else {
        write(item.index, item.subindex, item.bytes, &Job::object_written);
    }
}

void NodeConfiguration::Job::object_written() {
    ConfigurationItem& item = report.items[units_[unit_].front()];
    if (was_refused()) {
        refuse(item, result_.abort_code, words_of(result_.abort_code));
        next_unit();
    } else if (!can_read_) {
        item.result = ConfigurationResult::written;
        next_unit();
    } else {
        read(item.index, item.subindex, item.bytes.size(), &Job::object_read_back);
    }
}

void NodeConfiguration::Job::object_read_back() {
    ConfigurationItem& item = report.items[units_[unit_].front()];
    if (result_.ok() && is_wanted(item, data_)) {
        item.result = ConfigurationResult::written;
    } else {
        refuse(item, result_.abort_code, "reads otherwise after it was written");
    }
    next_unit();
}

void NodeConfiguration::Job::refuse(ConfigurationItem& item, std::uint32_t code, std::string reason) {
    item.result = ConfigurationResult::refused;
    item.abort_code = code;
    item.reason = std::move(reason);
}

/// Compares what a node has with what it is to have. Nodes fill strings up with zero bytes.
bool NodeConfiguration::Job::is_wanted(const ConfigurationItem& item, const ObjectBytes& bytes) const {
    const auto type = types_.find({item.index, item.subindex});
    const bool is_text = type != types_.end() && type->second == ObjectDataType::visible_string;
    return bytes == item.bytes ||
           (is_text && format_object(type->second, bytes) == format_object(type->second, item.bytes));
}

// PDOs.

const ObjectBytes* NodeConfiguration::Job::known(std::uint16_t index, std::uint8_t subindex) const {
    const auto found = known_.find({index, subindex});
    return found == known_.end() ? nullptr : &found->second;
}

ConfigurationItem* NodeConfiguration::Job::find(std::uint16_t index, std::uint8_t subindex) {
    for (const std::size_t number : units_[unit_]) {
        ConfigurationItem& item = report.items[number];
        if (item.index == index && item.subindex == subindex) {
            return &item;
        }
    }
    return nullptr;
}

ObjectBytes NodeConfiguration::Job::wanted_or_known(std::uint16_t index, std::uint8_t subindex) {
    const ConfigurationItem* item = find(index, subindex);
    const ObjectBytes* has = known(index, subindex);
    return item != nullptr ? item->bytes : has != nullptr ? *has : ObjectBytes{};
}

void NodeConfiguration::Job::begin_pdo() {
    pdo_ = pdo_of(report.items[units_[unit_].front()].index);
    known_.clear();
    to_read_ = {{pdo_, std::uint8_t{1}}};
    const auto mapping = static_cast<std::uint16_t>(pdo_ | 0x0200);
    const auto also = [&](Place place) {
        if (std::find(to_read_.begin(), to_read_.end(), place) == to_read_.end()) {
            to_read_.push_back(place);
        }
    };
    for (const std::size_t number : units_[unit_]) {
        if (is_mapping(report.items[number].index)) {
            also({mapping, std::uint8_t{0}});
        }
    }
    for (const std::size_t number : units_[unit_]) {
        also({report.items[number].index, report.items[number].subindex});
    }
    part_ = 0;
    read_pdo();
}

void NodeConfiguration::Job::read_pdo() {
    if (part_ == to_read_.size()) {
        compare_pdo();
        return;
    }
    read(to_read_[part_].first, to_read_[part_].second, 8, &Job::pdo_part_read);
}

void NodeConfiguration::Job::pdo_part_read() {
    const Place place = to_read_[part_];
    if (was_refused()) {
        // An entry behind the last mapped one may not exist yet.
        const bool may_be_missing =
            is_mapping(place.first) && place.second > 0 && result_.outcome == SdoOutcome::aborted_by_node;
        if (!may_be_missing) {
            plan_.clear();
            ConfigurationItem* item = find(place.first, place.second);
            end_pdo(item == nullptr ? units_[unit_].front()
                                    : static_cast<std::size_t>(item - report.items.data()),
                    result_.abort_code, words_of(result_.abort_code));
            return;
        }
    } else {
        known_[place] = data_;
        if (is_mapping(place.first) && place.second == 0) {
            const unsigned int count = std::min(number_of(data_), 64U);
            for (unsigned int subindex = 1; subindex <= count; ++subindex) {
                const Place entry = {place.first, static_cast<std::uint8_t>(subindex)};
                if (std::find(to_read_.begin(), to_read_.end(), entry) == to_read_.end()) {
                    to_read_.push_back(entry);
                }
            }
        }
    }
    ++part_;
    read_pdo();
}

void NodeConfiguration::Job::compare_pdo() {
    const std::uint32_t count = number_of(wanted_or_known(static_cast<std::uint16_t>(pdo_ | 0x0200), 0));
    bool differs = false;
    for (const std::size_t number : units_[unit_]) {
        ConfigurationItem& item = report.items[number];
        const ObjectBytes* has = known(item.index, item.subindex);
        const bool is_unused = is_mapping(item.index) && item.subindex > count && number_of(item.bytes) == 0;
        const bool same = is_unused || (has != nullptr && number_of(*has) == number_of(item.bytes));
        item.result = same               ? ConfigurationResult::same
                      : options_.dry_run ? ConfigurationResult::would_write
                                         : ConfigurationResult::not_reached;
        differs = differs || !same;
    }
    if (!differs || options_.dry_run) {
        next_unit();
        return;
    }
    plan_pdo();
    part_ = 0;
    write_pdo();
}

/// CiA 301, 7.5.2.36 and .38: off, parameters, no mapped object, the mapping, their number, on.
void NodeConfiguration::Job::plan_pdo() {
    plan_.clear();
    const auto mapping = static_cast<std::uint16_t>(pdo_ | 0x0200);
    const std::uint32_t cob_id = number_of(*known(pdo_, 1));
    if ((cob_id & pdo_off) == 0) {
        plan_.push_back({pdo_, 1, bytes_of(cob_id | pdo_off, 4)});
    }
    bool maps = false;
    for (const std::size_t number : units_[unit_]) {
        const ConfigurationItem& item = report.items[number];
        const bool differs = item.result == ConfigurationResult::not_reached;
        if (differs && !is_mapping(item.index) && item.subindex != 1) {
            plan_.push_back({item.index, item.subindex, item.bytes});
        }
        maps = maps || (differs && is_mapping(item.index));
    }
    if (maps) {
        const std::uint32_t count = std::min(number_of(wanted_or_known(mapping, 0)), 64U);
        plan_.push_back({mapping, 0, {0}});
        for (unsigned int subindex = 1; subindex <= 64; ++subindex) {
            const auto sub = static_cast<std::uint8_t>(subindex);
            const ConfigurationItem* item = find(mapping, sub);
            if (subindex <= count || (item != nullptr && item->result == ConfigurationResult::not_reached)) {
                plan_.push_back({mapping, sub, bytes_of(number_of(wanted_or_known(mapping, sub)), 4)});
            }
        }
        plan_.push_back({mapping, 0, bytes_of(count, 1)});
    }
    plan_.push_back({pdo_, 1, wanted_or_known(pdo_, 1)});
}

void NodeConfiguration::Job::write_pdo() {
    if (part_ == plan_.size()) {
        part_ = 0;
        pdo_read_back();
        return;
    }
    const Write& step = plan_[part_];
    ++part_;
    write(step.index, step.subindex, step.bytes, &Job::pdo_part_written);
}

void NodeConfiguration::Job::pdo_part_written() {
    if (!was_refused()) {
        write_pdo();
        return;
    }
    put_back();
}

/// The step of the plan that was under way failed: tells it of the object concerned, and undoes the steps before.
void NodeConfiguration::Job::put_back() {
    const Write failed = plan_[part_ - 1];
    const bool nothing_done = part_ == 1 && !is_lost();
    ConfigurationItem* item = find(failed.index, failed.subindex);
    const auto is_open = [](const ConfigurationItem& i) {
        return i.result == ConfigurationResult::not_reached;
    };
    if (item == nullptr || !is_open(*item)) {
        for (const std::size_t number : units_[unit_]) {
            if (is_open(report.items[number])) {
                item = &report.items[number];
                break;
            }
        }
    }
    if (item != nullptr && !is_lost()) {
        refuse(*item, result_.abort_code,
               object_text(failed.index, failed.subindex) + ": " + words_of(result_.abort_code));
    }
    if (nothing_done) {
        next_unit();
        return;
    }
    plan_ = old_pdo();
    part_ = 0;
    putting_back_ = true;
    put_back_next();
}

/// What undoes the steps of the plan up to the one that failed, which may have been done if its answer was lost.
std::vector<NodeConfiguration::Job::Write> NodeConfiguration::Job::old_pdo() const {
    const auto mapping = static_cast<std::uint16_t>(pdo_ | 0x0200);
    const std::size_t done = is_lost() ? part_ : part_ - 1;
    std::vector<Write> steps;
    std::vector<Write> entries;
    bool mapped = false;
    for (std::size_t i = 0; i < done; ++i) {
        const Write& step = plan_[i];
        const ObjectBytes* old = known(step.index, step.subindex);
        mapped = mapped || is_mapping(step.index);
        if (old != nullptr && step.subindex > (is_mapping(step.index) ? 0 : 1)) {
            (is_mapping(step.index) ? entries : steps).push_back({step.index, step.subindex, *old});
        }
    }
    if (mapped) {
        steps.push_back({mapping, 0, {0}});
        steps.insert(steps.end(), entries.begin(), entries.end());
        steps.push_back({mapping, 0, *known(mapping, 0)});
    }
    steps.push_back({pdo_, 1, *known(pdo_, 1)});
    return steps;
}

void NodeConfiguration::Job::put_back_next() {
    if (part_ == plan_.size()) {
        putting_back_ = false;
        next_unit();
        return;
    }
    const Write& step = plan_[part_];
    ++part_;
    write(step.index, step.subindex, step.bytes, &Job::put_back_answered);
}

void NodeConfiguration::Job::put_back_answered() {
    if (is_lost()) {
        report.put_back_failed = true;
        finish(ConfigurationOutcome::no_answer, object_text(object_.index, object_.subindex) + ": " +
                                                    result_.words() + "; the PDO is not put back");
        return;
    }
    // Behind the last mapped object there is nothing that a node would have to keep.
    const bool is_unused =
        is_mapping(object_.index) && object_.subindex > number_of(*known(object_.index, 0));
    report.put_back_failed = report.put_back_failed || (was_refused() && !is_unused);
    put_back_next();
}

void NodeConfiguration::Job::pdo_read_back() {
    while (part_ < units_[unit_].size() &&
           report.items[units_[unit_][part_]].result != ConfigurationResult::not_reached) {
        ++part_;
    }
    if (part_ == units_[unit_].size()) {
        next_unit();
        return;
    }
    plan_.clear();
    const ConfigurationItem& item = report.items[units_[unit_][part_]];
    read(item.index, item.subindex, item.bytes.size(), &Job::pdo_part_read_back);
}

void NodeConfiguration::Job::pdo_part_read_back() {
    ConfigurationItem& item = report.items[units_[unit_][part_]];
    if (result_.ok() && number_of(data_) == number_of(item.bytes)) {
        item.result = ConfigurationResult::written;
    } else {
        refuse(item, result_.abort_code, "reads otherwise after it was written");
    }
    ++part_;
    pdo_read_back();
}

void NodeConfiguration::Job::end_pdo(std::size_t refused_item, std::uint32_t code, std::string reason) {
    refuse(report.items[refused_item], code, std::move(reason));
    next_unit();
}

// All of them.

NodeConfiguration::NodeConfiguration(ObservedDriver& driver, SdoClient& sdo) : driver_(&driver), sdo_(&sdo) {
    NODEVIK_ASSERT("nodevik/nodes/nodeconfiguration", driver.add_observer(*this) == 0);
}

NodeConfiguration::~NodeConfiguration() {
    driver_->remove_observer(*this);
    for (auto& [node, job] : jobs_) {
        job->callback = nullptr;
    }
    while (!jobs_.empty()) {
        jobs_.begin()->second->cancel();
    }
}

int NodeConfiguration::start(unsigned int node, const DeviceDescription& description,
                             const std::vector<ConfigurationValue>& values,
                             const ConfigurationOptions& options, Callback callback) {
    if (node < 1 || node > 127 || busy(node)) {
        return -1;
    }
    auto& job = jobs_[node];
    job = std::make_unique<Job>(*this, node, description, values, options, std::move(callback));
    job->begin();
    return 0;
}

void NodeConfiguration::cancel(unsigned int node) {
    const auto job = jobs_.find(node);
    if (job != jobs_.end()) {
        job->second->cancel();
    }
}

void NodeConfiguration::process(std::uint64_t now_ns) {
    // A job that ends is taken out, and its callback may take out and put in others.
    for (auto job = jobs_.begin(); job != jobs_.end();) {
        const unsigned int node = job->first;
        job->second->process(now_ns);
        job = jobs_.upper_bound(node);
    }
}

std::uint64_t NodeConfiguration::next_deadline() const {
    std::uint64_t deadline = no_deadline;
    for (const auto& [node, job] : jobs_) {
        deadline = std::min(deadline, job->deadline());
    }
    return deadline;
}

void NodeConfiguration::frame_passed(const ObservedFrame& frame) {
    const bool is_boot_up = frame.direction == ObservedFrame::Direction::received && !frame.remote &&
                            !frame.extended && !frame.error && (frame.identifier & ~0x7FU) == 0x700 &&
                            frame.length == 1 && frame.data[0] == 0;
    const auto job = is_boot_up ? jobs_.find(frame.identifier & 0x7F) : jobs_.end();
    if (job != jobs_.end()) {
        job->second->boot_up();
    }
}

/// Takes a job out and tells its end.
void NodeConfiguration::finish(unsigned int node) {
    const auto found = jobs_.find(node);
    const std::unique_ptr<Job> job = std::move(found->second);
    jobs_.erase(found);
    if (job->callback) {
        job->callback(job->report);
    }
}

#include "tools/plot_view/framerecording.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

namespace plot {

namespace {

using nlohmann::json;

constexpr std::size_t most_bytes = 8;  // in a CAN frame

// What a frame's line tells.
struct Frame {
    double time = 0;
    std::string bus;
    std::string identifier;
    int node = 0;
    std::vector<std::uint8_t> data;
    std::vector<std::pair<std::string, double>> objects;  // names and values
};

std::string text_of(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::optional<double> number_of(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return std::nullopt;
    }
    if (found->is_boolean()) {
        return found->get<bool>() ? 1 : 0;
    }
    return found->is_number() ? std::optional(found->get<double>()) : std::nullopt;
}

// "2a01" as bytes; none if the text is something else.
std::optional<std::vector<std::uint8_t>> bytes_of(const std::string& text) {
    if (text.size() % 2 != 0 || text.size() / 2 > most_bytes) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* const begin = text.data() + 2 * i;
        const auto [end, error] = std::from_chars(begin, begin + 2, bytes[i], 16);
        if (error != std::errc() || end != begin + 2) {
            return std::nullopt;
        }
    }
    return bytes;
}

std::vector<std::pair<std::string, double>> objects_of(const json& frame) {
    std::vector<std::pair<std::string, double>> result;
    const auto list = frame.find("objects");
    if (list == frame.end() || !list->is_array()) {
        return result;
    }
    for (const json& object : *list) {
        if (object.is_object()) {
            const std::string name = text_of(object, "name");
            if (const auto value = number_of(object, "value"); value && !name.empty()) {
                result.emplace_back(name, *value);
            }
        }
    }
    return result;
}

std::optional<Frame> frame_of(std::string_view line) {
    const json object = json::parse(line, nullptr, false);
    if (!object.is_object()) {
        return std::nullopt;
    }
    const auto time = number_of(object, "time");
    const auto data = bytes_of(text_of(object, "data"));
    Frame frame;
    frame.identifier = text_of(object, "id");
    if (!time || !std::isfinite(*time) || !data || frame.identifier.empty()) {
        return std::nullopt;
    }
    frame.time = *time;
    frame.bus = text_of(object, "bus");
    if (number_of(object, "error").value_or(0) != 0) {
        frame.identifier = "error";  // its number says what kind, its bytes the details
        return frame;
    }
    frame.node = static_cast<int>(std::clamp(number_of(object, "node").value_or(0), 0.0, 127.0));
    frame.data = *data;
    frame.objects = objects_of(object);
    return frame;
}

// All that is known of an identifier of a bus.
struct Identifier {
    std::array<Series, most_bytes> bytes;
    Series count;
    bool is_named = false;  // objects in it have names
};

bool changes(const Series& series) {
    const auto extent = series.extent(0, series.size());
    return extent && extent->low < extent->high;
}

// Collects the curves, frame by frame.
class FrameCurves {
public:
    void take(const Frame& frame) {
        buses_.insert(frame.bus);
        Identifier& identifier = identifiers_[{frame.bus, frame.identifier}];
        identifier.count.append(frame.time, static_cast<double>(identifier.count.size() + 1));
        for (std::size_t i = 0; i < frame.data.size(); ++i) {
            identifier.bytes[i].append(frame.time, frame.data[i]);
        }
        for (const auto& [name, value] : frame.objects) {
            identifier.is_named = true;
            objects_[{frame.bus, frame.node, name}].append(frame.time, value);
        }
    }

    // The curves in their order, with their names, the first ones shown.
    std::vector<Series> finish() {
        std::vector<Series> series;
        const auto add = [&series](Series& one, const std::string& name) {
            one.name = name;
            one.shown = false;
            series.push_back(std::move(one));
        };
        for (auto& [key, object] : objects_) {
            const auto& [bus, node, name] = key;
            add(object, of_bus(bus) + (node != 0 ? std::to_string(node) + " " : "") + name);
        }
        for (auto& [key, identifier] : identifiers_) {
            for (std::size_t i = 0; i < most_bytes && !identifier.is_named; ++i) {
                if (changes(identifier.bytes[i])) {
                    add(identifier.bytes[i], of_bus(key.first) + key.second + " byte " + std::to_string(i));
                }
            }
        }
        const std::size_t values = series.size();
        for (auto& [key, identifier] : identifiers_) {
            add(identifier.count, of_bus(key.first) + key.second + " frames");
        }
        const std::size_t shown = std::min(values == 0 ? series.size() : values, shown_curves);
        std::for_each_n(series.begin(), shown, [](Series& one) { one.shown = true; });
        return series;
    }

private:
    // Names the bus where there are several.
    std::string of_bus(const std::string& bus) const { return buses_.size() > 1 ? bus + " " : std::string(); }

    std::set<std::string> buses_;
    std::map<std::pair<std::string, std::string>, Identifier> identifiers_;
    std::map<std::tuple<std::string, int, std::string>, Series> objects_;
};

}  // namespace

Recording read_frames(std::string_view text) {
    Recording recording;
    FrameCurves curves;
    PassedLines foreign;
    std::size_t frames = 0;
    for (Lines lines(text); lines.next();) {
        if (lines.line().find_first_not_of(" \t") == std::string_view::npos) {
            continue;
        }
        if (const auto frame = frame_of(lines.line())) {
            recording.data.axis = frames == 0 ? axis_of(frame->time) : recording.data.axis;
            curves.take(*frame);
            ++frames;
        } else {
            foreign.add(lines.number());
        }
    }
    if (frames == 0) {
        throw BadFile("holds no frames as 'nodevik --json monitor' writes them");
    }
    recording.data.series = curves.finish();
    if (const std::string sentence = foreign.sentence("no frame"); !sentence.empty()) {
        recording.notes.push_back(sentence);
    }
    return recording;
}

}  // namespace plot

#include "tools/framepresenter.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <string_view>

#include "program/numbers.h"
#include "tools/clocktime.h"
#include "tools/failure.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr std::int64_t highest_identifier = 0x1FFFFFFF;
constexpr std::uint64_t microseconds = 1'000'000;
constexpr double kilo = 1000;
constexpr double percent = 100;

std::set<std::string> parse_kinds(const std::string& text) {
    std::set<std::string> result;
    std::istringstream words(text);
    const auto& known = frame_kinds();
    for (std::string word; std::getline(words, word, ',');) {
        if (std::find(known.begin(), known.end(), word) == known.end()) {
            throw Failure(
                ExitStatus::usage,
                "'" + word +
                    "' is no kind; right are nmt, sync, emcy, time, tpdo1 to tpdo4, rpdo1 to rpdo4, "
                    "sdo-answer, sdo-request, heartbeat, guard, lss and other");
        }
        result.insert(word);
    }
    return result;
}

std::string identifier_text(const ShownFrame& frame, const char* narrow, const char* wide) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), frame.extended || frame.error ? wide : narrow, frame.identifier);
    return text.data();
}

std::string data_text(const ShownFrame& frame, const char* pattern) {
    std::string text;
    for (unsigned int i = 0; i < frame.length && !frame.remote; ++i) {
        std::array<char, 8> byte{};
        std::snprintf(byte.data(), byte.size(), pattern, static_cast<unsigned int>(frame.data[i]));
        text += byte.data();
    }
    return text;
}

// Whether a description can have something about a frame.
// @param segment  of a block transfer, 0 when it is none
bool has_objects(const ShownFrame& frame, unsigned int segment) {
    return !frame.extended && !frame.error && !frame.remote && segment == 0;
}

// What kinds look like on a terminal; the others are plain.
constexpr std::array<std::pair<std::string_view, Colour>, 8> kind_colours{{{"emcy", Colour::bad},
                                                                           {"nmt", Colour::notable},
                                                                           {"lss", Colour::notable},
                                                                           {"heartbeat", Colour::good},
                                                                           {"guard", Colour::good},
                                                                           {"sdo-answer", Colour::asked},
                                                                           {"sdo-request", Colour::asked},
                                                                           {"sync", Colour::faint}}};

Colour colour_of(const ShownFrame& frame, const FrameKind& kind) {
    if (frame.error) {
        return Colour::bad;
    }
    for (const auto& [word, colour] : kind_colours) {
        if (kind.word == word) {
            return colour;
        }
    }
    return Colour::plain;
}

}  // namespace

std::pair<unsigned int, unsigned int> parse_identifiers(const std::string& text) {
    if (text.empty()) {
        return {0, UINT32_MAX};
    }
    const std::size_t dash = text.find('-');
    const auto low = program::whole_number(text.substr(0, dash), 0, highest_identifier);
    const auto high =
        dash == std::string::npos ? low : program::whole_number(text.substr(dash + 1), 0, highest_identifier);
    if (!low || !high || *low > *high) {
        throw Failure(
            ExitStatus::usage,
            "--id takes an identifier or a range, such as 0x185 or 0x180-0x1FF, not '" + text + "'");
    }
    return {static_cast<unsigned int>(*low), static_cast<unsigned int>(*high)};
}

FramePresenter::FramePresenter(const Session& session, const FrameOptions& options)
    : output_(&session.output),
      options_(options),
      descriptions_(session.options.eds),
      kinds_(parse_kinds(options.kinds)),
      identifiers_(parse_identifiers(options.identifiers)) {
    for (unsigned int node = 1; node <= program::highest_node; ++node) {
        if (const DeviceDescription* description = descriptions_.of(node)) {
            names_.add_node(node, *description);
        }
    }
}

bool FramePresenter::is_wanted(const ShownFrame& frame, const FrameKind& kind) const {
    if (frame.error) {
        return true;  // what is wrong with the bus concerns every reader
    }
    return (kinds_.empty() || kinds_.count(kind.word) != 0) && frame.identifier >= identifiers_.first &&
           frame.identifier <= identifiers_.second;
}

void FramePresenter::show(const ShownFrame& frame) {
    const FrameKind kind = kind_of(frame);
    const unsigned int segment = blocks_.take(frame, kind);
    if (is_complete() || !is_wanted(frame, kind)) {
        return;
    }
    first_us_ = shown_ == 0 ? frame.time_us : first_us_;
    last_us_ = frame.time_us;
    ++shown_;
    bits_ += frame_bits(frame);
    if (options_.statistics) {
        Identifier& identifier = statistics_[{frame.extended || frame.error, frame.identifier}];
        identifier.kind = kind;
        ++identifier.frames;
    } else if (output_->json()) {
        show_json(frame, kind, segment);
    } else {
        show_text(frame, kind, segment);
    }
}

nlohmann::ordered_json FramePresenter::objects_json(const ShownFrame& frame) const {
    auto list = nlohmann::ordered_json::array();
    for (const FrameObject& object : names_.objects(frame.identifier, frame.length, frame.data.data())) {
        nlohmann::ordered_json one{
            {"index", index_text(object.index)}, {"sub", object.subindex}, {"name", object.name}};
        if (object.entry != nullptr) {
            one["type"] = entry_form(object.entry).name();
        }
        if (object.value) {
            one["value"] = value_json(entry_form(object.entry), *object.value);
        }
        list.push_back(one);
    }
    return list;
}

void FramePresenter::show_json(const ShownFrame& frame, const FrameKind& kind, unsigned int segment) {
    nlohmann::ordered_json object{{"time", json_time(frame.time_us)},
                                  {"bus", frame.name.data()},
                                  {"id", identifier_text(frame, "0x%03X", "0x%08X")},
                                  {"length", frame.length},
                                  {"data", data_text(frame, "%02x")},
                                  {"kind", kind.word}};
    if (kind.node != 0) {
        object["node"] = kind.node;
    }
    if (frame.remote) {
        object["remote"] = true;
    }
    if (frame.extended) {
        object["extended"] = true;
    }
    if (frame.error) {
        object["error"] = true;
    }
    if (has_objects(frame, segment)) {
        if (auto objects = objects_json(frame); !objects.empty()) {
            object["objects"] = std::move(objects);
        }
    }
    output_->object(object);
}

void FramePresenter::show_text(const ShownFrame& frame, const FrameKind& kind, unsigned int segment) {
    if (options_.raw) {
        if (!frame.error) {
            std::array<char, longest_log_line> line{};
            output_->bytes({line.data(), format_log_line(frame, line)});
        }
        return;
    }
    std::array<char, 100> head{};
    const std::string data = frame.remote ? " remote" : data_text(frame, " %02X");
    std::snprintf(head.data(), head.size(), "%s  %s  %8s  %u %-24s", clock_text(frame.time_us).c_str(),
                  frame.name.data(), identifier_text(frame, "%03X", "%08X").c_str(), frame.length,
                  data.c_str());
    std::string line = head.data();
    std::string meaning = segment == 0 ? frame_words(frame) : segment_words(frame, segment);
    if (has_objects(frame, segment)) {
        if (const std::string names = names_.names(frame.identifier, frame.length, frame.data.data());
            !names.empty()) {
            meaning += (meaning.empty() ? "" : "  ") + printable(names);
        }
    }
    if (meaning.empty()) {
        line.erase(line.find_last_not_of(' ') + 1);
    } else {
        line += "  " + output_->paint(meaning, colour_of(frame, kind));
    }
    output_->line(line);
}

void FramePresenter::show_statistics(double seconds) {
    for (const auto& [key, identifier] : statistics_) {
        ShownFrame frame;
        frame.extended = key.first;
        frame.identifier = key.second;
        const double rate = seconds > 0 ? static_cast<double>(identifier.frames) / seconds : 0;
        if (output_->json()) {
            nlohmann::ordered_json object{{"id", identifier_text(frame, "0x%03X", "0x%08X")},
                                          {"kind", identifier.kind.word},
                                          {"frames", identifier.frames},
                                          {"rate", rate}};
            if (identifier.kind.node != 0) {
                object["node"] = identifier.kind.node;
            }
            output_->object(object);
            continue;
        }
        std::array<char, 120> line{};
        const std::string node = identifier.kind.node != 0 ? " " + std::to_string(identifier.kind.node) : "";
        std::snprintf(line.data(), line.size(), "%8s  %10llu frames  %8.1f frames/s  %s%s",
                      identifier_text(frame, "%03X", "%08X").c_str(),
                      static_cast<unsigned long long>(identifier.frames), rate, identifier.kind.word.c_str(),
                      node.c_str());
        output_->line(line.data());
    }
}

std::string FramePresenter::summary(double seconds) const {
    std::array<char, 160> text{};
    const auto count = static_cast<unsigned long long>(shown_);
    if (seconds <= 0) {
        std::snprintf(text.data(), text.size(), "%llu frames", count);
        return text.data();
    }
    const double bits = static_cast<double>(bits_) / seconds;  // a second
    const int length =
        std::snprintf(text.data(), text.size(), "%llu frames in %.1f s, %.1f frames/s, %.1f kbit/s", count,
                      seconds, static_cast<double>(shown_) / seconds, bits / kilo);
    if (bit_rate_ != 0) {
        const auto end = static_cast<std::size_t>(length);
        std::snprintf(&text[end], text.size() - end, " (%.1f %% of %g kbit/s)", bits * percent / bit_rate_,
                      bit_rate_ / kilo);
    }
    return text.data();
}

double FramePresenter::span() const {
    return static_cast<double>(std::max(last_us_, first_us_) - first_us_) / static_cast<double>(microseconds);
}

}  // namespace nodevik_tool

#include "tools/nodescommand.h"

#include <algorithm>
#include <array>
#include <functional>

#include "nodevik/util/monotonicclock.h"
#include "program/numbers.h"
#include "tools/bus.h"
#include "tools/clocktime.h"
#include "tools/heartbeatwatch.h"
#include "tools/nodewords.h"
#include "tools/table.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr double usual_seconds = 2;
constexpr double nanoseconds_per_second = 1e9;
constexpr std::uint64_t nanoseconds_per_microsecond = 1000;
constexpr std::uint64_t redraw_ns = 250'000'000;

// What is known of a node, in JSON.
void add_node(nlohmann::ordered_json& object, const HeartbeatWatch& watch, unsigned int number,
              std::string_view state) {
    const NodeStatus& status = watch.node(number);
    const std::uint64_t silence_us = (monotonic_ns() - status.heard_ns) / nanoseconds_per_microsecond;
    const auto heartbeat = watch.heartbeat_ms(number);
    const NodeEmergency* emergency = status.emergency(0);
    object["node"] = number;
    object["state"] = state;
    object["heard"] = json_time(clock_us() - silence_us);
    object["heartbeat_ms"] = heartbeat ? nlohmann::ordered_json(*heartbeat) : nullptr;
    object["guarded"] = watch.is_guarded(number);
    object["boot_ups"] = status.boot_ups;
    object["emergencies"] = status.emergencies;
    object["trouble"] = status.in_trouble;
    object["emergency"] = emergency != nullptr ? emergency_json(*emergency) : nullptr;
}

// All nodes that were heard.
Table table_of(const HeartbeatWatch& watch) {
    Table table({{"NODE", true},
                 {"STATE"},
                 {"HEARD", true},
                 {"HEARTBEAT", true},
                 {"BOOT-UPS", true},
                 {"EMERGENCIES", true},
                 {"LAST"}});
    for (unsigned int number = 1; number <= program::highest_node; ++number) {
        const NodeStatus& status = watch.node(number);
        if (status.heard_ns == 0) {
            continue;
        }
        const std::string word(state_word(status));
        const auto heartbeat = watch.heartbeat_ms(number);
        std::string heartbeat_text = watch.is_guarded(number) ? "guarded" : "-";
        if (heartbeat) {
            heartbeat_text = std::to_string(*heartbeat) + " ms";
        }
        const NodeEmergency* emergency = status.emergency(0);
        const Colour trouble = status.in_trouble ? Colour::bad : Colour::plain;
        table.add({{std::to_string(number)},
                   {word, state_colour(word)},
                   {duration_text(monotonic_ns() - status.heard_ns)},
                   {heartbeat_text},
                   {std::to_string(status.boot_ups)},
                   {std::to_string(status.emergencies), trouble},
                   {emergency != nullptr ? emergency_words(*emergency) : "", trouble}});
    }
    return table;
}

// Tells what happens to nodes, a line each.
class Reporter final : public NodeListener {
public:
    Reporter(Output& output, HeartbeatWatch& watch) : output_(&output), watch_(&watch) {
        watch_->set_listener(this);
    }
    ~Reporter() { watch_->set_listener(nullptr); }
    Reporter(const Reporter&) = delete;
    Reporter& operator=(const Reporter&) = delete;

    // Tells of the nodes that were heard for the first time, and told no state.
    void look_for_new_nodes() {
        for (unsigned int number = 1; number <= program::highest_node; ++number) {
            if (watch_->node(number).heard_ns != 0 && !is_known_[number]) {
                report(number, "heard", state_word(watch_->node(number)), "heard");
            }
        }
    }

    void state_changed(unsigned int node, NodeState /*before*/, NodeState now) override {
        if (now != NodeState::boot_up && now != NodeState::unknown) {  // told by booted() and lost()
            report(node, "state", state_word(now), std::string(state_word(now)));
        }
    }
    void lost(unsigned int node) override { report(node, "lost", "lost", "lost"); }
    void booted(unsigned int node) override { report(node, "boot-up", "boot-up", "boot-up"); }
    void emergency(unsigned int node, const NodeEmergency& emergency) override {
        report(node, "emergency", state_word(watch_->node(node)), "emergency " + emergency_words(emergency));
    }
    void emergency_over(unsigned int node, const NodeEmergency& emergency) override {
        report(node, "emergency-over", state_word(watch_->node(node)),
               "emergency over: " + emergency_words(emergency));
    }

private:
    void report(unsigned int number, const char* event, std::string_view state, const std::string& words) {
        is_known_[number] = true;
        const std::uint64_t now_us = clock_us();
        if (output_->json()) {
            nlohmann::ordered_json object{{"time", json_time(now_us)}, {"event", event}};
            add_node(object, *watch_, number, state);
            output_->object(object);
            return;
        }
        const bool is_trouble = words.rfind("emergency ", 0) == 0;
        output_->line(clock_text(now_us) + "  node " + std::to_string(number) + "  " +
                      output_->paint(words, is_trouble ? Colour::bad : state_colour(state)));
    }

    Output* output_;
    HeartbeatWatch* watch_;
    std::array<bool, program::highest_node + 1> is_known_{};
};

// Reads the bus until a time, doing something each time that something may have happened.
void listen(const Session& session, Bus& bus, HeartbeatWatch& watch, std::uint64_t end_ns,
            const std::function<std::uint64_t(std::uint64_t now_ns)>& look) {
    for (std::uint64_t now = monotonic_ns(); now < end_ns; now = monotonic_ns()) {
        bus.read(std::min({end_ns, watch.next_deadline(now), look(now)}), &session.output);
        watch.process(monotonic_ns());
    }
}

void tell_if_nobody(const HeartbeatWatch& watch, std::uint64_t begin_ns) {
    for (unsigned int number = 1; number <= program::highest_node; ++number) {
        if (watch.node(number).heard_ns != 0) {
            return;
        }
    }
    tell("no node was heard within " + duration_text(monotonic_ns() - begin_ns) +
         "; one that sends nothing by itself answers 'nodevik scan'");
}

// Does a thing at the end, also when that comes by a signal or by the bus.
template <typename Work, typename End>
void with_end(Output& output, const Work& work, const End& end) {
    try {
        work();
    } catch (const Interrupted&) {
        output.hurry();
        end();
        throw;
    } catch (const Failure& failure) {
        if (failure.status() == ExitStatus::no_bus) {
            end();
        }
        throw;
    }
    end();
}

}  // namespace

ExitStatus show_nodes(const Session& session, const NodesArguments& arguments) {
    Output& output = session.output;
    Bus bus(session.options.bus, session.reports, session.interrupts, Bus::Use::listen);
    HeartbeatWatch watch(bus.driver());
    const std::uint64_t begin = monotonic_ns();
    const double seconds = arguments.seconds > 0 || arguments.watch ? arguments.seconds : usual_seconds;
    const std::uint64_t end =
        seconds > 0 ? begin + static_cast<std::uint64_t>(seconds * nanoseconds_per_second) : no_deadline;
    if (!arguments.watch) {
        with_end(
            output, [&] { listen(session, bus, watch, end, [](std::uint64_t) { return no_deadline; }); },
            [&] {
                if (output.json()) {
                    for (unsigned int number = 1; number <= program::highest_node; ++number) {
                        if (watch.node(number).heard_ns != 0) {
                            nlohmann::ordered_json object;
                            add_node(object, watch, number, state_word(watch.node(number)));
                            output.object(object);
                        }
                    }
                } else {
                    table_of(watch).show(output);
                }
                output.flush();
                tell_if_nobody(watch, begin);
            });
    } else if (Screen::is_possible(output)) {
        Screen screen(output);
        const auto draw = [&] { screen.draw(table_of(watch).lines(output, true, screen.width())); };
        std::uint64_t next = 0;
        with_end(
            output,
            [&] {
                listen(session, bus, watch, end, [&](std::uint64_t now) {
                    if (now >= next) {
                        draw();
                        output.flush();
                        next = now + redraw_ns;
                    }
                    return next;
                });
            },
            [&] {
                draw();
                output.flush();
            });
    } else {
        Reporter reporter(output, watch);
        with_end(
            output,
            [&] {
                listen(session, bus, watch, end, [&](std::uint64_t) {
                    reporter.look_for_new_nodes();
                    output.flush();
                    return no_deadline;
                });
            },
            [&] { output.flush(); });
    }
    return ExitStatus::done;
}

}  // namespace nodevik_tool

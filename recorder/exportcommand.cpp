#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "program/failure.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/cyclerows.h"
#include "recorder/readthrough.h"
#include "recorder/resultstream.h"

namespace vehicle_recorder {

namespace {

struct ExportOptions {
    std::string file;
    std::string out;  // empty: standard output
    bool csv = false;
    bool json = false;
};

int export_cycles(const ExportOptions& options) {
    RecordingReader reader(options.file);
    const Interrupts interrupts;
    refuse_to_overwrite(options.file, options.out);
    ResultStream output(options.out, interrupts);
    std::uint64_t rows = 0;
    bool has_frames = false;
    CycleBuilder builder([&](const Cycle& cycle) {
        if (options.json) {
            output.add((rows == 0 ? "[\n" : ",\n") + json_row(cycle, reader.header()));
        } else {
            output.add((rows == 0 ? csv_head() : "") + csv_row(cycle, reader.header()));
        }
        ++rows;
        has_frames = has_frames || cycle.number > 0;
    });
    read_through(reader, interrupts, !output.is_terminal(), [&builder](const Entry& entry) {
        builder.add(entry);
        return true;
    });
    builder.finish();
    demand_frames(reader, has_frames);
    output.add(options.json ? "\n]\n" : "");
    output.finish();
    return static_cast<int>(program::ExitStatus::done);
}

}  // namespace

void add_export_command(CLI::App& app, Action& action) {
    CLI::App& command = add_command(app, "export", "Write a row for each cycle of a recording",
                                    "vehicle-recorder export drive.recording --csv --out drive.csv");
    const auto options = std::make_shared<ExportOptions>();
    add_recording_option(command, options->file);
    add_result_option(command, "--out", options->out, "Write into a file instead of to standard output");
    CLI::Option_group& format = *command.add_option_group("Format", "One of them");
    format.add_flag("--csv", options->csv, "Commas between the values, the columns' names in the first line");
    format.add_flag("--json", options->json, "An array of objects, one a line");
    format.require_option(1);
    command.callback([&action, options] { action = [options] { return export_cycles(*options); }; });
}

}  // namespace vehicle_recorder

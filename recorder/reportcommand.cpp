#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/reportbuilder.h"
#include "recorder/reportpages.h"
#include "recorder/resultstream.h"

namespace vehicle_recorder {

namespace {

struct ReportOptions {
    std::string file;
    std::string html;  // empty: the text page on standard output
};

int report(const ReportOptions& options) {
    refuse_to_overwrite(options.file, options.html);
    const Interrupts interrupts;
    const Report report = read_report(options.file, interrupts);
    const Phrasing phrasing(language_of_environment());
    ResultStream output(options.html, interrupts);
    output.add(options.html.empty() ? text_page(report, phrasing) : html_page(report, phrasing));
    output.finish();
    return static_cast<int>(program::ExitStatus::done);
}

}  // namespace

void add_report_command(CLI::App& app, Action& action) {
    CLI::App& command = add_command(app, "report", "Tell on one page what a recording comes down to",
                                    "vehicle-recorder report --html drive.html drive.recording");
    const auto options = std::make_shared<ReportOptions>();
    add_recording_option(command, options->file);
    add_result_option(command, "--html", options->html,
                      "Write a page for a browser and paper instead of text");
    command.callback([&action, options] { action = [options] { return report(*options); }; });
}

}  // namespace vehicle_recorder

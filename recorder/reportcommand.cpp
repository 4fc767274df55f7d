#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "program/failure.h"
#include "program/progress.h"
#include "recorder/commands.h"
#include "recorder/reportbuilder.h"
#include "recorder/reportpages.h"
#include "recorder/wholefile.h"

namespace vehicle_recorder {

namespace {

struct ReportOptions {
    std::string file;
    std::string html;  // empty: the text page on standard output
};

void print_page(const std::string& page) {
    if (std::fwrite(page.data(), 1, page.size(), stdout) != page.size() || std::fflush(stdout) != 0) {
        throw program::Failure(program::ExitStatus::bad_file, "standard output cannot be written");
    }
}

int report(const ReportOptions& options) {
    program::Progress progress(true);
    const Report report = read_report(
        options.file, [&progress](std::uint64_t done, std::uint64_t total) { progress.update(done, total); });
    progress.clear();
    const Phrasing phrasing(language_of_environment());
    if (options.html.empty()) {
        print_page(text_page(report, phrasing));
    } else {
        write_whole_file(options.html, html_page(report, phrasing));
    }
    return static_cast<int>(program::ExitStatus::done);
}

}  // namespace

void add_report_command(CLI::App& app, Action& action) {
    CLI::App& command = add_command(app, "report", "Tell on one page what a recording comes down to",
                                    "vehicle-recorder report --html drive.html drive.recording");
    const auto options = std::make_shared<ReportOptions>();
    command.add_option("FILE", options->file, "The recording")->required();
    command.add_option("--html", options->html, "Write a page for a browser and paper instead of text")
        ->type_name("OUT");
    command.callback([&action, options] { action = [options] { return report(*options); }; });
}

}  // namespace vehicle_recorder

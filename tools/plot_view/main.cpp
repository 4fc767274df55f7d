// Shows curves over time in a window: of a plotting feed, of a table, or of a recording of frames.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <QApplication>
#include <QTimer>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "program/exitstatus.h"
#include "program/numbers.h"
#include "program/standardoptions.h"
#include "tools/plot_view/plotwindow.h"

namespace {

using program::ExitStatus;

constexpr double shortest_step = 1e-9;
constexpr double longest_step = 1e6;

struct Options {
    std::string file;
    std::optional<unsigned> port;
    double step_s = 0;
    std::string picture;
};

ExitStatus tell(ExitStatus status, const std::string& what) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what.c_str());
    return status;
}

// Reads the command line; a status if the program ends with it.
std::optional<ExitStatus> read_command_line(int argc, char** argv, Options& options) {
    CLI::App app("Shows curves over time: of a plotting feed, of a table (CSV), or of a recording of frames.",
                 "nodevik-plot");
    app.set_version_flag("--version", std::string(), "Print the version and end");
    CLI::Option* const file =
        app.add_option("FILE", options.file, "A table, or what 'nodevik --json monitor' has written");
    CLI::Option* const port =
        app.add_option_function<std::string>(
               "--port",
               [&](const std::string& text) {
                   const auto number = program::whole_number(text, 0, program::highest_port);
                   if (!number) {
                       throw CLI::ValidationError("--port",
                                                  "takes a whole number from 0 to 65535, not '" + text + "'");
                   }
                   options.port = static_cast<unsigned>(*number);
               },
               "Receive a plotting feed on this UDP port, 0: any that is free")
            ->type_name("PORT")
            ->excludes(file);
    app.add_option("--step", options.step_s, "Seconds from one sample of the feed to the next: shows times")
        ->type_name("SECONDS")
        ->check([&](const std::string& text) {
            double step = 0;
            const bool is_number = CLI::detail::lexical_cast(text, step);
            const bool is_right = is_number && step >= shortest_step && step <= longest_step;
            return is_right ? std::string() : "takes seconds from 1e-9 to 1e6, not '" + text + "'";
        })
        ->needs(port);
    app.add_option("--picture", options.picture,
                   "Save a picture of the file, or of the feed when it stops, and end")
        ->type_name("PNG");
    app.footer(
        "Exit status: 0 done, 2 wrong usage, 4 the port cannot be used, 5 a file is bad or cannot be "
        "written.\n"
        "Example:\n  nodevik-plot drive.csv");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return ExitStatus::done;
    } catch (const CLI::CallForVersion&) {
        program::print_version();
        return ExitStatus::done;
    } catch (const CLI::ParseError& error) {
        return tell(ExitStatus::usage, std::string(error.what()) + "; see --help");
    }
    if (!options.picture.empty() && options.file.empty() && !options.port) {
        return tell(ExitStatus::usage, "--picture needs a file or a port; see --help");
    }
    return std::nullopt;
}

// Whether a text is a number, as the port was given in earlier versions.
bool is_port(const std::string& text) {
    return program::whole_number(text, 0, program::highest_port).has_value();
}

// Reads the file that is to be shown; a status if it cannot be.
std::optional<ExitStatus> read_file(const std::string& path, plot::Recording& recording) {
    try {
        recording = plot::read_recording(path);
    } catch (const plot::BadFile& failure) {
        const bool is_hinted = is_port(path) && access(path.c_str(), F_OK) != 0;
        return tell(ExitStatus::bad_file,
                    path + ": " + failure.what() + (is_hinted ? "; a port is given as --port " + path : ""));
    }
    const std::string head = path + ": ";
    for (const std::string& note : recording.notes) {
        tell(ExitStatus::done, std::string(head).append(note));
    }
    return std::nullopt;
}

void save_and_end(plot::PlotWindow& window, const std::string& path) {
    const QString reason = window.save_picture(QString::fromStdString(path));
    const ExitStatus status =
        reason.isEmpty() ? ExitStatus::done : tell(ExitStatus::bad_file, path + ": " + reason.toStdString());
    QApplication::exit(static_cast<int>(status));
}

// Shows the window until it is closed, or until its picture is saved.
int show(char** argv, const Options& options, plot::Recording recording) {
    int argc = 1;  // what the toolkit takes from a command line it also takes from the environment
    const QApplication application(argc, argv);
    plot::PlotWindow window;
    if (options.port) {
        const QString reason = window.listen(static_cast<quint16>(*options.port), options.step_s);
        if (!reason.isEmpty()) {
            return static_cast<int>(tell(ExitStatus::no_bus, reason.toStdString()));
        }
        std::printf("port %u\n", static_cast<unsigned>(window.port()));
        std::fflush(stdout);
    } else if (!options.file.empty()) {
        window.show_recording(std::move(recording), QString::fromStdString(options.file));
    }
    window.show();
    if (!options.picture.empty() && options.port) {
        QObject::connect(&window, &plot::PlotWindow::feedStopped, &window,
                         [&] { save_and_end(window, options.picture); });
    } else if (!options.picture.empty()) {
        QTimer::singleShot(0, &window, [&] { save_and_end(window, options.picture); });
    }
    return QApplication::exec();
}

int run(int argc, char** argv) {
    Options options;
    if (const auto status = read_command_line(argc, argv, options)) {
        return static_cast<int>(*status);
    }
    plot::Recording recording;
    if (!options.file.empty()) {
        if (const auto status = read_file(options.file, recording)) {
            return static_cast<int>(*status);
        }
    }
    return show(argv, options, std::move(recording));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {  // a file that memory has no room for
        return static_cast<int>(tell(ExitStatus::bad_file, failure.what()));
    }
}

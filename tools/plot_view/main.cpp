// Shows the curves of a plotting feed, such as plot_feed's, in a window.
//
//     nodevik-plot [--picture FILE] PORT
//     nodevik-plot --version
//
// Receives batches of plotting messages by UDP on PORT (0: a free one, which it prints). With --picture it
// saves the window's picture to FILE when the feed stops the client, and ends.

#include <QApplication>
#include <QCommandLineParser>
#include <QSocketNotifier>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string>

#include "nodevik/util/udpserver.h"
#include "program/numbers.h"
#include "program/standardoptions.h"
#include "tools/plot_view/curveview.h"

namespace {

constexpr const char* version_option = "--version";
constexpr int longest_datagram = 65535;

unsigned local_port(const udpserver& endpoint) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(endpoint.server_socket(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// Hands every waiting datagram to the view.
void receive(udpserver& endpoint, CurveView& view) {
    std::array<std::uint8_t, longest_datagram> datagram;
    auto* const room = reinterpret_cast<char*>(datagram.data());
    int size = 0;
    while ((size = endpoint.server_receive(longest_datagram, room)) > 0) {
        view.take(std::span(datagram).first(static_cast<std::size_t>(size)));
    }
}

void describe(QCommandLineParser& parser, const QList<QCommandLineOption>& options) {
    parser.setApplicationDescription(QStringLiteral("Draws the curves of a plotting feed."));
    parser.addHelpOption();
    parser.addOptions(options);
    parser.addPositionalArgument(QStringLiteral("port"), QStringLiteral("UDP port to receive on, 0: any"));
}

// Shows the window until it is closed, or until the feed stops when a picture is wanted.
int draw(udpserver& endpoint, const std::optional<QString>& picture) {
    CurveView view;
    view.resize(view.sizeHint());
    view.setWindowTitle(QStringLiteral("nodevik-plot"));
    view.show();
    QSocketNotifier notifier(endpoint.server_socket(), QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &view, [&] {
        receive(endpoint, view);
        if (picture && view.model().stopped()) {
            const bool saved = view.grab().save(*picture);
            if (!saved) {
                std::fprintf(stderr, "%s: cannot save the picture\n", program_invocation_short_name);
            }
            QApplication::exit(saved ? 0 : 1);
        }
    });
    return QApplication::exec();
}

int refuse(const char* reason) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, reason);
    return program::usage_status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], version_option) == 0) {  // answered without a display too
        program::print_version();
        return 0;
    }
    const QApplication application(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption picture(QStringLiteral("picture"),
                                     QStringLiteral("Save a picture to <file> when the feed stops, and end."),
                                     QStringLiteral("file"));
    const QCommandLineOption version(QLatin1String(version_option).mid(2),
                                     QStringLiteral("Displays the version."));
    describe(parser, {picture, version});
    if (!parser.parse(QApplication::arguments())) {
        return refuse(qPrintable(parser.errorText()));
    }
    if (parser.isSet(version)) {
        program::print_version();
        return 0;
    }
    parser.process(application);  // answers the questions for help
    const std::string text = parser.positionalArguments().value(0).toStdString();
    const auto port = program::whole_number(text, 0, program::highest_port);
    if (!port || parser.positionalArguments().size() != 1) {
        return refuse("give one UDP port, 0 to 65535");
    }

    udpserver endpoint;
    if (endpoint.start_server(static_cast<unsigned>(*port), nullptr) != 0) {
        return 1;
    }
    std::printf("port %u\n", local_port(endpoint));
    std::fflush(stdout);
    return draw(endpoint, parser.isSet(picture) ? std::optional(parser.value(picture)) : std::nullopt);
}

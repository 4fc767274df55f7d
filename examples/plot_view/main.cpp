// Shows the curves of a plotting feed, such as plot_feed's, in a window.
//
//     plot_view [--picture FILE] PORT
//     plot_view --version
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
#include <span>

#include "examples/plot_view/curveview.h"
#include "nodevik/util/udpserver.h"
#include "program/standardoptions.h"

namespace {

constexpr int usage_status = 2;
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

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], version_option) == 0) {  // answered without a display too
        program::print_version();
        return 0;
    }
    const QApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Draws the curves of a plotting feed."));
    parser.addHelpOption();
    const QCommandLineOption picture(QStringLiteral("picture"),
                                     QStringLiteral("Save a picture to <file> when the feed stops, and end."),
                                     QStringLiteral("file"));
    parser.addOption(picture);
    const QCommandLineOption version(QLatin1String(version_option).mid(2),
                                     QStringLiteral("Displays the version."));
    parser.addOption(version);
    parser.addPositionalArgument(QStringLiteral("port"), QStringLiteral("UDP port to receive on, 0: any"));
    if (!parser.parse(QApplication::arguments())) {
        std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, qPrintable(parser.errorText()));
        return usage_status;
    }
    if (parser.isSet(version)) {
        program::print_version();
        return 0;
    }
    parser.process(application);  // answers the questions for help
    bool valid = false;
    const unsigned port = parser.positionalArguments().value(0).toUShort(&valid);
    if (!valid || parser.positionalArguments().size() != 1) {
        std::fprintf(stderr, "%s: give one UDP port, 0 to 65535\n", program_invocation_short_name);
        return usage_status;
    }

    udpserver endpoint;
    if (endpoint.start_server(port, nullptr) != 0) {
        return 1;
    }
    std::printf("port %u\n", local_port(endpoint));
    std::fflush(stdout);

    CurveView view;
    view.resize(view.sizeHint());
    view.setWindowTitle(QStringLiteral("plot_view"));
    view.show();
    QSocketNotifier notifier(endpoint.server_socket(), QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &view, [&] {
        receive(endpoint, view);
        if (parser.isSet(picture) && view.model().stopped()) {
            const bool saved = view.grab().save(parser.value(picture));
            if (!saved) {
                std::fprintf(stderr, "%s: cannot save the picture\n", program_invocation_short_name);
            }
            QApplication::exit(saved ? 0 : 1);
        }
    });
    return QApplication::exec();
}

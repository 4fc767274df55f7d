// Shows the plotting messages: feeds a plotting client, such as nodevik-plot, with two curves by UDP.
//
//     plot_feed PORT [SAMPLES [SAMPLES_PER_SECOND]]
//
// The first datagram clears the client and sets the curves up, each of the next ones carries 20 sample
// positions, and the last one stops the client, so that its picture stays.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "nodevik/arch.h"
#include "nodevik/util/clientfunctions.h"
#include "nodevik/util/udpserver.h"

namespace {

constexpr const char* usage = "usage: plot_feed PORT [SAMPLES [SAMPLES_PER_SECOND]]";
constexpr unsigned samples_per_batch = 20;  // of three records each: 60 of the 89 that fit
constexpr int shown_samples = 400;

enum Table { sine, triangle };

// A whole number from 1 to `highest`, or 0.
unsigned positive(std::string_view text, unsigned highest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number <= highest ? number : 0;
}

void send(udpserver& endpoint, CClientFunctions& batch) {
    endpoint.client_send(batch.getmessagesize(), reinterpret_cast<char*>(batch.getmessage()));
    batch.resetmessage();
}

void add_setup(CClientFunctions& batch) {
    batch.addmsg_stop(0);
    batch.addmsg_stopdraw(true);  // one drawing when all is set
    batch.addmsg_resetsamples();
    batch.addmsg_samplepos(0);
    batch.addmsg_range(shown_samples);
    batch.addmsg_name(sine, "speed");
    batch.addmsg_color(sine, BRIGHT_GREEN, 2);
    batch.addmsg_scale(sine, 40.0, 50);  // from -1 .. 1 to 10 .. 90
    batch.addmsg_name(triangle, "bucket cylinder pressure");
    batch.addmsg_color(triangle, BRIGHT_BROWN, 1);
    batch.addmsg_scale(triangle, 0.4, -50);  // from -100 .. 100 to -90 .. -10
    batch.addmsg_stopdraw(false);
}

double sine_at(unsigned position) {
    return std::sin(static_cast<double>(position) * 2.0 * 3.14159265358979 / 200.0);
}

// From -100 up to 100 and down again, in 160 samples.
double triangle_at(unsigned position) {
    const double phase = static_cast<double>(position % 160) / 80.0;
    return 200.0 * (phase < 1.0 ? phase : 2.0 - phase) - 100.0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::puts(usage);
        return 0;
    }
    const unsigned port = argc > 1 ? positive(argv[1], 65535) : 0;
    const unsigned samples = argc > 2 ? positive(argv[2], 100'000'000) : 2000;
    const unsigned rate = argc > 3 ? positive(argv[3], 100'000) : 200;
    if (argc > 4 || port == 0 || samples == 0 || rate == 0) {
        std::fprintf(stderr, "%s\n", usage);
        return 2;
    }

    udpserver endpoint;
    endpoint.open(nullptr);
    endpoint.set_client_destination_address(127, 0, 0, 1, port);
    CClientFunctions batch;
    batch.resetmessage();
    add_setup(batch);
    send(endpoint, batch);
    for (unsigned position = 0; position < samples;) {
        const unsigned end = std::min(samples, position + samples_per_batch);
        u_sleep(static_cast<unsigned>(1'000'000ULL * (end - position) / rate));
        for (; position < end; ++position) {
            batch.addmsg_data(sine, sine_at(position));
            batch.addmsg_data(triangle, triangle_at(position));
            batch.addmsg_nextsamplepos();
        }
        send(endpoint, batch);
    }
    batch.addmsg_stop(1);
    send(endpoint, batch);
    std::printf("%u samples sent\n", samples);
}

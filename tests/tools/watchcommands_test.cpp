// The commands that listen, and the one that reads a log: what they show, keep and tell, and that they send nothing.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tests/support/candatagram.h"
#include "tests/support/childprocess.h"
#include "tests/support/filecontent.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/pseudoterminal.h"
#include "tests/support/runningprogram.h"
#include "tests/support/temporaryfile.h"

namespace {

const std::string log_text =
    "(1763768400.000001) can0 705#05\n"
    "(1763768400.250000) can0 605#4018100100000000\n"
    "(1763768401.000000) can0 18DAF110#0102\n"
    "(1763768402.000001) can0 705#R\n";

// A log whose foreign lines are more than a pipe has room for.
std::string mostly_foreign_log() {
    std::string text = log_text;
    for (int line = 0; line < 20000; ++line) {
        text += "nonsense\n";
    }
    return text;
}

// A pipe whose reader is the test.
class Pipe {
public:
    Pipe() {
        if (pipe2(ends_, O_CLOEXEC) != 0) {
            std::perror("pipe2");
            std::abort();
        }
    }
    ~Pipe() {
        close(ends_[0]);
        close_writer();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int writer() const { return ends_[1]; }
    // Whether nothing more can be written, as long as nobody reads.
    bool is_full() const {
        pollfd entry{ends_[1], POLLOUT, 0};
        return poll(&entry, 1, 0) == 0;
    }
    void close_writer() {
        if (ends_[1] >= 0) {
            close(ends_[1]);
        }
        ends_[1] = -1;
    }
    // Reads so many lines, or as many as come.
    std::string read_lines(std::size_t count) const {
        std::string text;
        std::size_t lines = 0;
        char block[65536];
        ssize_t got = 0;
        while (lines < count && (got = read(ends_[0], block, sizeof block)) > 0) {
            text.append(block, static_cast<std::size_t>(got));
            lines += static_cast<std::size_t>(std::count(block, block + got, '\n'));
        }
        return text;
    }

private:
    int ends_[2];
};

// The number in front of a text; -1 when the text is not there.
long number_before(const std::string& text, const std::string& words) {
    const std::size_t at = text.find(words);
    const std::size_t begin = at == std::string::npos ? at : text.rfind(' ', at - 1);
    return begin == std::string::npos ? -1 : std::stol(text.substr(begin));
}

// nodevik with a bus over UDP whose other end is the test, both outputs in files.
class Listening {
public:
    explicit Listening(std::vector<std::string> words, int out = -1) {
        {
            const LoopbackSocket probe;
            port_ = probe.port();
        }
        words.insert(
            words.begin(),
            {NODEVIK, "--udp", "127.0.0.1:" + std::to_string(peer_.port()) + "," + std::to_string(port_)});
        program_ = std::make_unique<RunningProgram>(words, out);
    }

    // Waits until frames are received.
    bool is_ready() const {
        char port[8];
        std::snprintf(port, sizeof port, ":%04X ", port_);
        return eventually([&port] { return file_content("/proc/net/udp").find(port) != std::string::npos; });
    }
    void send(unsigned id, const std::string& data) const { peer_.send(port_, can_datagram(id, data)); }
    // Sends frames of four bytes that count from 0, no faster than they are taken from the kernel.
    bool send_counting(unsigned count) const {
        constexpr unsigned at_once = 100;
        for (unsigned i = 0; i < count; ++i) {
            send(0x185, counting(i));
            if (i % at_once == at_once - 1 && !has_taken_all()) {
                return false;
            }
        }
        return has_taken_all();
    }
    static std::string counting(unsigned number) {
        std::string bytes;
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            bytes += static_cast<char>(number >> shift);
        }
        return bytes;
    }
    // Waits until the kernel keeps no frame for the program.
    bool has_taken_all() const {
        char empty[32];
        std::snprintf(empty, sizeof empty, ":%04X 00000000:0000 07 ", port_);
        return eventually([&empty] {
            const std::string sockets = file_content("/proc/net/udp");
            const std::size_t at = sockets.find(empty);
            return at != std::string::npos &&
                   sockets.compare(at + std::string(empty).size(), 17, "00000000:00000000") == 0;
        });
    }
    // Stops the program, and waits until it has stopped.
    bool freeze() const {
        signal(SIGSTOP);
        return eventually([this] {
            const std::string status =
                file_content("/proc/" + std::to_string(program_->process()) + "/status");
            return status.find("State:\tT") != std::string::npos;
        });
    }
    void signal(int number) const { program_->signal(number); }
    // The exit status, once it has ended.
    int end() const { return program_->end(); }
    std::string out() const { return program_->out(); }
    std::string err() const { return program_->err(); }
    // Whether the program has sent nothing.
    bool was_silent() { return !peer_.receive(0).has_value(); }

private:
    LoopbackSocket peer_;
    unsigned port_ = 0;
    std::unique_ptr<RunningProgram> program_;
};

ChildResult decode(const std::string& file, const std::vector<std::string>& more) {
    std::vector<std::string> words{"/usr/bin/env", "TZ=UTC", NODEVIK, "decode", file};
    words.insert(words.end(), more.begin(), more.end());
    return run_program(words);
}

}  // namespace

TEST(Decode, ShowsALineForEachFrame) {
    const TemporaryFile log;
    log.write(log_text);
    const ChildResult result = decode(log.path(), {});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(
        result.out,
        "23:40:00.000001  can0       705  1  05                       heartbeat of node 5: Operational\n"
        "23:40:00.250000  can0       605  8  40 18 10 01 00 00 00 00  SDO request to node 5: read 0x1018:1\n"
        "23:40:01.000000  can0  18DAF110  2  01 02\n"
        "23:40:02.000001  can0       705  0  remote                   guarding request, node 5\n");
    EXPECT_EQ(result.err, "nodevik: 4 frames in 2.0 s, 2.0 frames/s, 0.2 kbit/s\n");
}

TEST(Decode, TellsFramesAsJson) {
    const TemporaryFile log;
    log.write(log_text);
    EXPECT_EQ(decode(log.path(), {"--json"}).out,
              "{\"time\":1763768400.000001,\"bus\":\"can0\",\"id\":\"0x705\",\"length\":1,\"data\":\"05\","
              "\"kind\":\"heartbeat\",\"node\":5}\n"
              "{\"time\":1763768400.25,\"bus\":\"can0\",\"id\":\"0x605\",\"length\":8,\"data\":"
              "\"4018100100000000\","
              "\"kind\":\"sdo-request\",\"node\":5}\n"
              "{\"time\":1763768401.0,\"bus\":\"can0\",\"id\":\"0x18DAF110\",\"length\":2,\"data\":\"0102\","
              "\"kind\":\"other\",\"extended\":true}\n"
              "{\"time\":1763768402.000001,\"bus\":\"can0\",\"id\":\"0x705\",\"length\":0,\"data\":\"\","
              "\"kind\":\"guard\",\"node\":5,\"remote\":true}\n");
}

TEST(Decode, GivesTheLogBackRaw) {
    const TemporaryFile log;
    log.write(log_text);
    EXPECT_EQ(decode(log.path(), {"--raw"}).out, log_text);
}

TEST(Decode, ShowsWhatIsWanted) {
    const TemporaryFile log;
    log.write(log_text);
    const auto raw = [&log](std::vector<std::string> more) {
        more.emplace_back("--raw");
        const std::string out = decode(log.path(), more).out;
        return std::count(out.begin(), out.end(), '\n');
    };
    EXPECT_EQ(raw({"--filter", "heartbeat,guard"}), 2);
    EXPECT_EQ(raw({"--filter", "other"}), 1);
    EXPECT_EQ(raw({"--id", "0x600-0x6FF"}), 1);
    EXPECT_EQ(raw({"--id", "0x705"}), 2);
    EXPECT_EQ(raw({"--count", "3"}), 3);
}

TEST(Decode, CountsTheFramesOfEachIdentifier) {
    const TemporaryFile log;
    log.write(log_text);
    EXPECT_EQ(decode(log.path(), {"--statistics", "--id", "0x705"}).out,
              "     705           2 frames       1.0 frames/s  guard 5\n");
    EXPECT_EQ(decode(log.path(), {"--statistics", "--json", "--filter", "heartbeat,sdo-request"}).out,
              "{\"id\":\"0x605\",\"kind\":\"sdo-request\",\"frames\":1,\"rate\":4.000016000064,\"node\":5}\n"
              "{\"id\":\"0x705\",\"kind\":\"heartbeat\",\"frames\":1,\"rate\":4.000016000064,\"node\":5}\n");
}

TEST(Decode, NamesTheObjectsOfADescription) {
    const TemporaryFile log;
    log.write("(1763768400.000001) can0 585#4318100201040000\n");
    const ChildResult result = decode(log.path(), {"--eds", EDS});
    EXPECT_NE(result.out.find("0x1018:2 is 01 04 00 00  Identity object/Product code=1025\n"),
              std::string::npos)
        << result.out;
}

TEST(Decode, TellsTheSegmentsOfABlockFromOtherFrames) {
    std::string text =
        "(1763768400.000000) can0 605#C6062000C5010000\n(1763768400.000000) can0 585#A40620007F000000\n";
    for (unsigned int number = 1; number <= 65; ++number) {
        char line[64];
        std::snprintf(line, sizeof line, "(1763768400.000000) can0 605#%02X18100100000000\n",
                      number == 65 ? number | 0x80 : number);
        text += line;
    }
    const TemporaryFile log;
    log.write(text);
    const std::string out = decode(log.path(), {"--id", "0x605", "--eds", EDS}).out;
    EXPECT_NE(out.find("SDO request to node 5: block segment 64, 18 10 01 00 00 00 00\n"), std::string::npos)
        << out;
    EXPECT_NE(out.find("SDO request to node 5: last block segment 65, 18 10 01 00 00 00 00\n"),
              std::string::npos)
        << out;
    const std::string json = decode(log.path(), {"--json", "--eds", EDS}).out;
    EXPECT_NE(json.find("Large domain"), std::string::npos) << json;
    EXPECT_EQ(json.find("Identity"), std::string::npos) << json;
}

TEST(Decode, HasColoursOnATerminalAlone) {
    const TemporaryFile log;
    log.write("(1763768400.000001) can0 085#0010010000000000\n(1763768400.000002) can0 185#01\n");
    const std::string emergency = "EMCY of node 5: 0x1000 Generic error, register 0x01";
    const auto shown = [&log](const std::vector<std::string>& environment, const std::string& option) {
        const PseudoTerminal terminal;
        std::vector<std::string> words{"/usr/bin/env"};
        words.insert(words.end(), environment.begin(), environment.end());
        words.insert(words.end(), {"TZ=UTC", NODEVIK, "decode", log.path(), "--count", "2"});
        if (!option.empty()) {
            words.push_back(option);
        }
        const ChildResult result = run_in_child([&words, &terminal] {
            dup2(open(terminal.path().c_str(), O_RDWR | O_NOCTTY), STDOUT_FILENO);
            std::vector<char*> arguments;
            for (std::string& word : words) {
                arguments.push_back(word.data());
            }
            arguments.push_back(nullptr);
            execv(arguments[0], arguments.data());
            _exit(99);
        });
        EXPECT_EQ(result.status, 0) << result.err;
        return terminal.receive(10000, 0);
    };
    const std::string head = "23:40:00.000001  can0       085  8  00 10 01 00 00 00 00 00  ";
    const std::string tail =
        "\r\n23:40:00.000002  can0       185  1  01                       TPDO1 of node 5\r\n";
    const std::string plain = head + emergency + tail;
    EXPECT_EQ(shown({"TERM=xterm", "NO_COLOR="}, ""), head + "\033[31m" + emergency + "\033[m" + tail);
    EXPECT_EQ(shown({"TERM=xterm", "NO_COLOR=1"}, ""), plain);
    EXPECT_EQ(shown({"TERM=dumb", "NO_COLOR="}, ""), plain);
    EXPECT_EQ(shown({"-u", "TERM", "NO_COLOR="}, ""), plain);
    for (const char* form : {"--json", "--raw", "--statistics"}) {
        const std::string text = shown({"TERM=xterm", "NO_COLOR="}, form);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
        EXPECT_EQ(text.find('\033'), std::string::npos) << text;
    }
    const ChildResult piped = run_program(
        {"/usr/bin/env", "TZ=UTC", "TERM=xterm", "NO_COLOR=", NODEVIK, "decode", log.path(), "--count", "1"});
    EXPECT_EQ(piped.out, head + emergency + "\n");
}

TEST(Decode, HasTheObjectsOfADescriptionInJsonToo) {
    const TemporaryFile log;
    log.write(
        "(1763768400.000001) can0 585#4318100201040000\n(1763768400.000002) can0 605#4018100200000000\n"
        "(1763768400.000003) can0 705#05\n");
    const ChildResult result = decode(log.path(), {"--eds", EDS, "--json"});
    const std::string object =
        "\"node\":5,\"objects\":[{\"index\":\"0x1018\",\"sub\":2,\"name\":\"Identity object/"
        "Product code\",\"type\":\"u32\"";
    EXPECT_NE(result.out.find("\"sdo-answer\"," + object + ",\"value\":1025}]}\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("\"sdo-request\"," + object + "}]}\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"heartbeat\",\"node\":5}\n"), std::string::npos) << result.out;
}

TEST(Decode, ShowsNoControlCharactersOfANode) {
    const TemporaryFile description;
    description.write(
        "[OptionalObjects]\nSupportedObjects=1\n1=0x1008\n"
        "[1008]\nParameterName=Name\nObjectType=7\nDataType=9\nAccessType=const\n");
    const TemporaryFile log;
    log.write("(1763768400.000001) can0 585#430810001B5B324A\n");
    const ChildResult result = decode(log.path(), {"--eds", description.path()});
    EXPECT_NE(result.out.find("Name=\\x1B[2J\n"), std::string::npos) << result.out;
}

TEST(Decode, TellsForeignLinesAndGoesOn) {
    const TemporaryFile log;
    log.write("nonsense\n" + log_text + "(1763768403.0000");
    const ChildResult result = decode(log.path(), {"--raw"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, log_text);
    EXPECT_NE(result.err.find("nodevik: " + log.path() + ":1: "), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("nodevik: " + log.path() + ":6: "), std::string::npos) << result.err;
}

TEST(Decode, TellsTenForeignLinesAheadOfTheFirstFrameAndHowManyMoreThereAre) {
    const TemporaryFile log;
    const auto told = [&log](unsigned int lines) {
        std::string text;
        for (unsigned int line = 1; line <= lines; ++line) {
            text +=
                "nodevik: " + log.path() + ":" + std::to_string(line) + ": no frame in candump's format\n";
        }
        return text;
    };
    std::string foreign;
    for (int line = 0; line < 12; ++line) {
        foreign += "nonsense\n";
    }
    log.write(foreign + log_text);
    const ChildResult mixed = decode(log.path(), {"--raw"});
    EXPECT_EQ(mixed.out, log_text);
    EXPECT_EQ(mixed.err.rfind(told(10) + "nodevik: 2 more such lines up to line 13\n", 0), 0U) << mixed.err;
    log.write(foreign);
    EXPECT_EQ(decode(log.path(), {}).err,
              told(10) + "nodevik: " + log.path() + " is no log: none of its lines is one of candump's\n");
    log.write(foreign + "(1763768400.000001) can0 20000004#0000000000000000\n");  // one of a log
    EXPECT_EQ(decode(log.path(), {}).err.rfind(told(10) + "nodevik: 2 more such lines up to line 13\n", 0),
              0U);
}

TEST(Decode, EndsAtASignalThoughNobodyReadsAnyOfItsOutputs) {
    const TemporaryFile log;
    log.write(mostly_foreign_log());
    Pipe results;
    RunningProgram decoding({"/bin/sh", "-c", "exec \"$0\" decode \"$1\" 2>&1", NODEVIK, log.path()},
                            results.writer());
    ASSERT_TRUE(eventually([&results] { return results.is_full(); }));
    decoding.signal(SIGINT);
    EXPECT_EQ(decoding.end(), 130);
}

TEST(Decode, TellsEachLineToAReaderThatIsSlow) {
    const TemporaryFile log;
    log.write(mostly_foreign_log());
    Pipe results;
    RunningProgram decoding({"/bin/sh", "-c", "exec \"$0\" decode \"$1\" --raw 2>&1", NODEVIK, log.path()},
                            results.writer());
    ASSERT_TRUE(eventually([&results] { return results.is_full(); }));
    results.close_writer();
    const std::string all = results.read_lines(SIZE_MAX);
    EXPECT_EQ(decoding.end(), 0);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 20005);
}

TEST(Decode, ReadsAPipeAsItComes) {
    const TemporaryFile place;
    const std::string fifo = place.path() + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const bool interrupted : {false, true}) {
        Listening decoding({"decode", fifo, "--raw"});
        const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(writer, 0);
        const std::string begun = log_text + "(1763768403.000000) can0 1";
        EXPECT_EQ(write(writer, begun.data(), begun.size()), static_cast<ssize_t>(begun.size()));
        EXPECT_TRUE(eventually([&decoding] { return decoding.out() == log_text; })) << decoding.out();
        if (interrupted) {
            decoding.signal(SIGINT);
            EXPECT_EQ(decoding.end(), 130);
            EXPECT_EQ(number_before(decoding.err(), " frames in 2.0 s"), 4) << decoding.err();
        } else {
            EXPECT_EQ(write(writer, "85#\n", 4), 4);
        }
        close(writer);
        if (!interrupted) {
            EXPECT_EQ(decoding.end(), 0);
            EXPECT_EQ(decoding.out(), begun + "85#\n");
        }
    }
    std::remove(fifo.c_str());
}

TEST(Decode, EndsAtASignalThoughNoLineIsAFrame) {
    Listening decoding({"decode", "/dev/urandom"});
    EXPECT_TRUE(
        eventually([&decoding] { return decoding.err().find("/dev/urandom:2: ") != std::string::npos; }));
    decoding.signal(SIGINT);
    EXPECT_EQ(decoding.end(), 130);
    EXPECT_NE(decoding.err().find("nodevik: 0 frames\n"), std::string::npos);
}

TEST(Decode, EndsWith5WithoutALogAnd2WithAWrongOption) {
    const ChildResult missing = decode("/no/such", {});
    EXPECT_EQ(missing.status, 5);
    EXPECT_EQ(missing.err, "nodevik: /no/such cannot be read: No such file or directory\n");
    const TemporaryFile log;
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{"--filter", "pdo"},
                                               {"--id", "x"},
                                               {"--id", "5-4"},
                                               {"--count", "0"},
                                               {"--raw", "--statistics"}}) {
        const ChildResult result = decode(log.path(), wrong);
        EXPECT_EQ(result.status, 2) << wrong.front();
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
}

TEST(Decode, EndsWith5WhenAFileIsNoLog) {
    const TemporaryFile file;
    file.write("[FileInfo]\nFileName=a.eds\n");
    const std::string& name = file.path();
    const ChildResult result = decode(name, {});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "nodevik: " + name + ":1: no frame in candump's format\nnodevik: " + name +
                              ":2: no frame in candump's format\nnodevik: " + name +
                              " is no log: none of its lines is one of candump's\n");
    file.write("");  // nothing has passed
    EXPECT_EQ(decode(name, {}).status, 0);
    file.write(log_text + "x\n");
    EXPECT_EQ(decode(name, {"--id", "0x7FF"}).status, 0);
}

TEST(Monitor, ShowsWhatPassesAndSendsNothing) {
    Listening monitor({"--json", "monitor", "--count", "2"});
    ASSERT_TRUE(monitor.is_ready());
    monitor.send(0x185, "\x01\x02");
    monitor.send(0x705, "\x05");
    EXPECT_EQ(monitor.end(), 0);
    const std::string out = monitor.out();
    EXPECT_NE(out.find(",\"bus\":\"udp\",\"id\":\"0x185\",\"length\":2,\"data\":\"0102\",\"kind\":\"tpdo1\","
                       "\"node\":5}\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
    EXPECT_EQ(monitor.err().rfind("nodevik: 2 frames in ", 0), 0U) << monitor.err();
    EXPECT_TRUE(monitor.was_silent());
}

TEST(Monitor, EndsAfterItsTime) {
    Listening monitor({"monitor", "--seconds", "0.01"});
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.out(), "");
    EXPECT_EQ(monitor.err().rfind("nodevik: 0 frames in ", 0), 0U) << monitor.err();
}

TEST(Monitor, EndsAtASignalWithItsSummary) {
    for (const char* form : {"--raw", "--statistics"}) {
        Listening monitor({"monitor", form});
        ASSERT_TRUE(monitor.is_ready());
        monitor.send(0x705, "\x05");
        // A frame that has been shown, or one that is still to be read: what has come is not told before the end.
        if (std::string(form) == "--raw") {
            EXPECT_TRUE(eventually([&monitor] { return !monitor.out().empty(); }));
        }
        monitor.signal(SIGINT);
        EXPECT_EQ(monitor.end(), 130);
        EXPECT_NE(monitor.err().find(" frames in "), std::string::npos) << monitor.err();
        EXPECT_TRUE(monitor.was_silent());
    }
}

TEST(Monitor, EndsQuietlyWhenItsReaderGoesWhileNothingPasses) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Listening monitor({"monitor"}, ends[1]);
    close(ends[1]);
    EXPECT_TRUE(monitor.is_ready());
    close(ends[0]);
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_EQ(monitor.err(), "");
}

TEST(Monitor, LosesNothingWhileNobodyReadsItsResults) {
    Pipe results;
    Listening monitor({"monitor", "--raw"}, results.writer());
    results.close_writer();
    ASSERT_TRUE(monitor.is_ready());
    constexpr unsigned frames = 30'000;
    EXPECT_TRUE(monitor.send_counting(frames)) << "frames stay in the kernel";
    const std::string lines = results.read_lines(frames);
    std::size_t at = 0;
    for (unsigned i = 0; i < frames; ++i) {
        char frame[24];
        std::snprintf(frame, sizeof frame, ") udp 185#%08X\n", i);
        at = lines.find(frame, at);
        ASSERT_NE(at, std::string::npos) << i;
    }
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.end(), 130);
    EXPECT_EQ(number_before(monitor.err(), " frames in "), frames) << monitor.err();
    EXPECT_EQ(monitor.err().find("lost"), std::string::npos) << monitor.err();
}

TEST(Monitor, TellsHowManyFramesTheKernelHadNoRoomFor) {
    Listening monitor({"monitor", "--statistics"});
    ASSERT_TRUE(monitor.is_ready());
    ASSERT_TRUE(monitor.freeze());
    constexpr unsigned frames = 40'000;
    for (unsigned i = 0; i < frames; ++i) {
        monitor.send(0x185, "\x01");
    }
    monitor.signal(SIGCONT);
    EXPECT_TRUE(monitor.has_taken_all());
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.end(), 130);
    const std::string err = monitor.err();
    const long lost = number_before(err, " frames were lost: the kernel had no room for them\n");
    EXPECT_GT(lost, 0) << err;
    // On a busy machine some had not been counted when the signal came.
    const long waited = std::max(0L, number_before(err, " frames were lost: they still waited"));
    EXPECT_EQ(number_before(err, " frames in ") + lost + waited, frames) << err;
}

TEST(Monitor, EndsAtASignalThoughNobodyReadsItsResults) {
    Pipe results;
    Listening monitor({"monitor"}, results.writer());
    results.close_writer();
    ASSERT_TRUE(monitor.is_ready());
    EXPECT_TRUE(monitor.send_counting(5000));
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.end(), 130);
    EXPECT_GT(number_before(monitor.err(), " frames in "), 0) << monitor.err();
}

TEST(Monitor, HasItsResultsThoughASecondSignalComesWhileTheyAreWritten) {
    Listening monitor({"monitor", "--statistics", "--json"});
    ASSERT_TRUE(monitor.is_ready());
    monitor.send(0x705, "\x05");
    ASSERT_TRUE(monitor.has_taken_all());
    for (const int signal : {SIGSTOP, SIGINT, SIGTERM, SIGCONT}) {
        monitor.signal(signal);  // both are there when it goes on
    }
    EXPECT_EQ(monitor.end(), 130);
    EXPECT_NE(monitor.out().find(R"("frames":1,)"), std::string::npos) << monitor.out();
}

TEST(Monitor, TellsNoLoadOfABusWithoutABitRate) {
    Listening monitor({"monitor", "--count", "1"});
    ASSERT_TRUE(monitor.is_ready());
    monitor.send(0x705, "\x05");
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_NE(monitor.err().find(" kbit/s\n"), std::string::npos) << monitor.err();
}

TEST(Monitor, EndsWith5WhenTheDiskBehindItsResultsIsFull) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    Listening monitor({"monitor"}, full);
    close(full);
    ASSERT_TRUE(monitor.is_ready());
    monitor.send(0x705, "\x05");
    EXPECT_EQ(monitor.end(), 5);
    EXPECT_EQ(monitor.err(), "nodevik: standard output takes nothing more: No space left on device\n");
}

TEST(Record, KeepsEveryFrameInItsOrder) {
    const TemporaryFile log;
    Listening record({"record", log.path()});
    ASSERT_TRUE(record.is_ready());
    constexpr int frames = 200;
    for (int i = 0; i < frames; ++i) {
        record.send(0x185, std::string(1, static_cast<char>(i)));
    }
    // Everything is in the file within a second.
    EXPECT_TRUE(eventually([&log] {
        const std::string text = log.content();
        return std::count(text.begin(), text.end(), '\n') == frames;
    }));
    record.signal(SIGTERM);
    EXPECT_EQ(record.end(), 130);
    EXPECT_EQ(record.out(), "");
    EXPECT_EQ(record.err(), "nodevik: 200 frames recorded in " + log.path() + "\n");
    EXPECT_TRUE(record.was_silent());
    const std::string text = log.content();
    std::size_t at = 0;
    for (int i = 0; i < frames; ++i) {
        char frame[40];
        std::snprintf(frame, sizeof frame, ") udp 185#%02X", static_cast<unsigned>(i));
        at = text.find(frame, at);
        ASSERT_NE(at, std::string::npos) << i;
    }
}

TEST(Record, EndsBeforeTheLogIsLongerThanItMayBe) {
    const TemporaryFile log;
    Listening record({"record", log.path(), "--max-size", "100"});
    ASSERT_TRUE(record.is_ready());
    for (int i = 0; i < 10; ++i) {
        record.send(0x185, "\x01");
    }
    EXPECT_EQ(record.end(), 0);
    const std::string text = log.content();
    EXPECT_LE(text.size(), 100U);
    EXPECT_GT(text.size(), 50U);
    EXPECT_EQ(text.back(), '\n');
}

TEST(Record, TellsItsEndAsJson) {
    const TemporaryFile log;
    Listening record({"--json", "record", log.path(), "--max-size", "100"});
    ASSERT_TRUE(record.is_ready());
    for (int i = 0; i < 4; ++i) {
        record.send(0x185, "\x01");
    }
    EXPECT_EQ(record.end(), 0);
    const std::string out = record.out();
    EXPECT_EQ(out.rfind(R"({"recorded":3,"lost":0,"seconds":)", 0), 0U) << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
}

TEST(Record, EndsWith5WhenTheLogCannotBeWritten) {
    Listening missing({"record", "/no/such", "--seconds", "0.01"});
    EXPECT_EQ(missing.end(), 5);
    EXPECT_EQ(missing.err(), "nodevik: /no/such cannot be written: No such file or directory\n");
}

TEST(Record, RefusesWhatIsNoFile) {
    const TemporaryFile place;
    const std::string fifo = place.path() + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& file : {fifo, std::string("/dev/stdout")}) {
        Listening record({"record", file});
        EXPECT_EQ(record.end(), 5);
        EXPECT_EQ(record.err(), "nodevik: " + file +
                                    " cannot be written: a recording is a file; 'nodevik monitor --raw' "
                                    "writes to standard output and into pipes\n");
    }
    std::remove(fifo.c_str());
}

TEST(Record, EndsWith5WhenTheDiskIsFull) {
    Listening record({"record", "/dev/full"});
    ASSERT_TRUE(record.is_ready());
    record.send(0x185, "\x01");
    EXPECT_TRUE(
        eventually([&record] { return record.err().find("takes nothing more") != std::string::npos; }));
    record.signal(SIGTERM);
    EXPECT_EQ(record.end(), 5);
    EXPECT_EQ(record.err(),
              "nodevik: /dev/full takes nothing more: No space left on device; recording goes on when there "
              "is room\n"
              "nodevik: 0 frames recorded in /dev/full\n"
              "nodevik: /dev/full lacks 1 frames, for which there was no room: No space left on device\n");
}

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/recorder/recordings.h"
#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

namespace fs = std::filesystem;

// Two frames that are answered, one that is not, and the neutral frame.
const std::string short_drive =
    recording_header +
    "0.000000 open\n"
    "0.000100 line 9600 8N1 none\n"
    "0.310000 > 00676e50\n"
    "+45000 < 70a0b0bda1b101a2b2e2a3b300a4b4c1a5b500a6b63fa7b7a0a8b842a9b9ddaaba23abbb00acbc\n"
    "0.520000 > 78672f51\n"
    "0.730000 > 78672f51\n"
    "+45000 < 6fa0b0fda1b101a2b2e1a3b300a4b4caa5b500a6b63fa7b7a0a8b842a9b9ddaaba23abbb00acbc\n"
    "0.940000 > 00676e50\n"
    "0.941000 close\n"
    "1.000000 note the program ended with status 0\n"
    "1.000100 end\n";

ChildResult report(std::vector<std::string> arguments, const char* language = "C.UTF-8") {
    setenv("LC_ALL", language, 1);
    arguments.insert(arguments.begin(), {VEHICLE_RECORDER, "report"});
    return run_program(arguments);
}

// What the text page tells below its verdict, of a drive in a file of this name.
std::string without_file_name(std::string page, const std::string& path) {
    const std::string name = fs::path(path).filename().string();
    const std::size_t place = page.find(name);
    return place == std::string::npos ? page : page.replace(place, name.size(), "NAME");
}

}  // namespace

TEST(ReportCommand, PrintsOnePageInEnglish) {
    const TemporaryFile file;
    file.write(short_drive);
    const ChildResult result = report({file.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(without_file_name(result.out, file.path()), R"(Recording of the vehicle's line
Sunday 22 November 2026, 03:25:03 to 03:25:04

Worth a look. 4 frames were sent. Unanswered: 1 (25.0 %). The last frame brought
the vehicle to rest.

At a glance
  Duration         1.00 s
  Frames sent      4
  Replies          2  (100 % faultless)
  Unanswered       1  (25.0 %)
  Late             0
  Short            0
  Garbled          0
  Longest silence  420.0 ms  (from 03:25:03)
  Cycle time       210.0 ms  (210.0 … 210.0 ms)
  Top speed        1,342 rpm
  Lowest voltage   481
  Capacity         63 Ah  (at first 63 Ah)

Over time
                                                               Lowest Highest
  Speed (rpm)                      ▁               █            1,280   1,342
  Throttle                       ▁       █        █       ▁         0     120
  Direction                      ▁       ▁        ▁       ▁       103     103
  Bucket                         █       ▁        ▁       █        47     110
  Motor on                       ▁       █        █       ▁         0       1
  Voltage                          █               ▁              481     482
  Current                          ▁               █              193     202
  Capacity (Ah)                    ▁               ▁               63      63
  Cycle time (ms)                        ▁        ▁       ▁       210     210
  Reply delay (ms)                 ▁               ▁               45      45

Cycle time
Shortest 210.0 ms, median 210.0 ms, 95 % 210.0 ms, 99 % 210.0 ms,
longest 210.0 ms, mean 210.0 ms, standard deviation 0.00 ms

Reply delay
Shortest 45.00 ms, median 45.00 ms, 95 % 45.00 ms, 99 % 45.00 ms,
longest 45.00 ms, mean 45.00 ms, standard deviation 0.00 ms

Openings and closings
      0.000000  03:25:03.123  opened, 9600 8N1
      0.941000  03:25:04.064  closed, 4 frames, 2 replies;
                left the vehicle: at rest

Faults one by one
      0.520000  03:25:03.643  unanswered

Notes of the recorder
      1.000000  03:25:04.123  the program ended with status 0

About this recording
  File                    NAME
  Device                  /dev/ttyUSB0
  Recorded by             vehicle-recorder 2.1.0
  Bytes to the vehicle    16
  Bytes from the vehicle  78
)");
}

TEST(ReportCommand, PrintsOnePageInFinnish) {
    const TemporaryFile file;
    file.write(short_drive);
    const ChildResult result = report({file.path()}, "fi_FI.UTF-8");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(without_file_name(result.out, file.path()), R"(Ajoneuvon linjan tallenne
Sunnuntai 22.11.2026 klo 3.25.03–3.25.04

Huomioitavaa. Lähetettiin 4 viestiä. Vastaamatta jäi 1 (25,0 %). Viimeinen
viesti pysäytti ajoneuvon.

Yhdellä silmäyksellä
  Kesto                 1,00 s
  Lähetetyt viestit     4
  Vastaukset            2  (100 % virheettömiä)
  Vastaamatta           1  (25,0 %)
  Myöhässä              0
  Vajaita               0
  Virheellisiä          0
  Pisin hiljaisuus      420,0 ms  (alkaen 3.25.03)
  Lähetysväli           210,0 ms  (210,0 … 210,0 ms)
  Suurin kierrosnopeus  1 342 rpm
  Alin jännite          481
  Kapasiteetti          63 Ah  (alussa 63 Ah)

Ajan kuluessa
                                                               Pienin  Suurin
  Nopeus (rpm)                     ▁               █            1 280   1 342
  Kaasu                          ▁       █        █       ▁         0     120
  Suunta                         ▁       ▁        ▁       ▁       103     103
  Kauha                          █       ▁        ▁       █        47     110
  Moottori päällä                ▁       █        █       ▁         0       1
  Jännite                          █               ▁              481     482
  Virta                            ▁               █              193     202
  Kapasiteetti (Ah)                ▁               ▁               63      63
  Lähetysväli (ms)                       ▁        ▁       ▁       210     210
  Vastausviive (ms)                ▁               ▁               45      45

Lähetysväli
Lyhin 210,0 ms, mediaani 210,0 ms, 95 % 210,0 ms, 99 % 210,0 ms, pisin 210,0 ms,
keskiarvo 210,0 ms, keskihajonta 0,00 ms

Vastausviive
Lyhin 45,00 ms, mediaani 45,00 ms, 95 % 45,00 ms, 99 % 45,00 ms, pisin 45,00 ms,
keskiarvo 45,00 ms, keskihajonta 0,00 ms

Portin avaukset ja sulkemiset
      0.000000  3.25.03,123  avattu, 9600 8N1
      0.941000  3.25.04,064  suljettu, 4 viestiä, 2 vastausta;
                ajoneuvon tila: pysäytetty

Häiriöt yksitellen
      0.520000  3.25.03,643  ei vastausta

Tallentimen merkinnät
      1.000000  3.25.04,123  ohjelma päättyi, paluuarvo 0

Tietoja tallenteesta
  Tiedosto            NAME
  Laite               /dev/ttyUSB0
  Tallentanut         vehicle-recorder 2.1.0
  Tavuja ajoneuvolle  16
  Tavuja ajoneuvolta  78
)");
}

TEST(ReportCommand, WritesHtmlIntoAFileAndPrintsNothing) {
    const TemporaryFile file;
    file.write(short_drive);
    const TemporaryFile page;
    const ChildResult result = report({file.path(), "--html", page.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    const std::string html = page.content();
    EXPECT_TRUE(html.starts_with("<!DOCTYPE html>\n<html lang=\"en\">"));
    EXPECT_TRUE(html.ends_with("</html>\n"));
    EXPECT_EQ(report({file.path(), "--html", page.path()}, "fi_FI.UTF-8").status, 0);
    EXPECT_NE(page.content().find("<html lang=\"fi\">"), std::string::npos);
}

TEST(ReportCommand, TakesNamesOutOfARecordingAsText) {
    const TemporaryFile file;
    file.write(recording_header +
               "0.000000 open\n0.100000 note <script>alert('x')</script> & more\n0.200000 end\n");
    const TemporaryFile page;
    ASSERT_EQ(report({file.path(), "--html", page.path()}).status, 0);
    const std::string html = page.content();
    EXPECT_EQ(html.find("<script"), std::string::npos);
    EXPECT_NE(html.find("&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt; &amp; more"), std::string::npos);
}

TEST(ReportCommand, ReportsARecordingWithoutFrames) {
    const TemporaryFile file;
    file.write(recording_header + "0.000000 end\n");
    const ChildResult text = report({file.path()});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("The port was never opened."), std::string::npos) << text.out;
    const TemporaryFile page;
    EXPECT_EQ(report({file.path(), "--html", page.path()}).status, 0);
    EXPECT_NE(page.content().find("The port was never opened."), std::string::npos);
}

TEST(ReportCommand, RefusesWhatIsNoRecordingWithOneLine) {
    struct Case {
        std::string content;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"", " is no recording of vehicle-recorder\n"},
        {"garbage\n", " is no recording of vehicle-recorder\n"},
        {"# vehicle-recorder recording 2\n",
         " is a recording of a newer format than this program reads: '# vehicle-recorder recording 2'\n"},
        {recording_header + "2.000000 open\n1.000000 close\n", ": the time runs backwards in line 6\n"}};
    for (const Case& one : cases) {
        const TemporaryFile file;
        file.write(one.content);
        const std::string page = file.path() + ".html";
        const ChildResult result = report({file.path(), "--html", page});
        EXPECT_EQ(result.status, 5);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "vehicle-recorder: " + file.path() + one.message);
        EXPECT_FALSE(fs::exists(page));
    }
    const ChildResult result = report({"/nonexistent"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "vehicle-recorder: /nonexistent cannot be read: No such file or directory\n");
}

TEST(ReportCommand, LeavesAnOldPageWhenTheRecordingIsNone) {
    const TemporaryFile file;
    file.write("garbage\n");
    const TemporaryFile page;
    page.write("the old page");
    EXPECT_EQ(report({file.path(), "--html", page.path()}).status, 5);
    EXPECT_EQ(page.content(), "the old page");
}

TEST(ReportCommand, TellsWhenTheResultCannotBeWritten) {
    const TemporaryFile file;
    file.write(short_drive);
    const ChildResult full =
        run_program({"sh", "-c", "exec \"$0\" report \"$1\" >/dev/full", VEHICLE_RECORDER, file.path()});
    EXPECT_EQ(full.status, 5);
    EXPECT_EQ(full.err, "vehicle-recorder: standard output cannot be written: No space left on device\n");
    const ChildResult nowhere = report({file.path(), "--html", "/nonexistent/page.html"});
    EXPECT_EQ(nowhere.status, 5);
    EXPECT_EQ(nowhere.err,
              "vehicle-recorder: /nonexistent/page.html cannot be written: No such file or directory\n");
}

TEST(ReportCommand, WithoutAFileIsWrongUsage) {
    const ChildResult result = report({});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
}

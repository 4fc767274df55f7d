#include "recorder/verdict.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace vehicle_recorder;

namespace {

const Phrasing english(Language::english);
const Phrasing finnish(Language::finnish);

std::string readable(std::string text) {
    const std::string space = "\u00a0";
    for (std::size_t place = 0; (place = text.find(space, place)) != std::string::npos;) {
        text.replace(place, space.size(), " ");
    }
    return text;
}

std::string line_of(const Report& report, const Phrasing& phrasing = english) {
    return readable(verdict_on(report, phrasing).line);
}

std::vector<std::string> ending_of(const Report& report, const Phrasing& phrasing = english) {
    return verdict_on(report, phrasing).ending;
}

Grade grade_of(const Report& report) {
    return verdict_on(report, english).grade;
}

// A drive on which all went well.
Report good_drive() {
    Report report;
    report.header.wall_us = 1'795'310'703'123'456;
    report.header.utc_offset_min = 120;
    report.length_us = 60'000'000;
    report.frames = 1234;
    report.replies = 1234;
    report.good_replies = 1234;
    report.openings.add({});
    report.ending.whole = true;
    report.ending.rest = Rest::neutral;
    report.ending.program = {.known = true, .status = 0, .signal = {}};
    return report;
}

using Sentences = std::vector<std::string>;

}  // namespace

TEST(Verdict, TellsThatAllIsWell) {
    const Report report = good_drive();
    EXPECT_EQ(grade_of(report), Grade::good);
    EXPECT_EQ(line_of(report), "1,234 frames were sent. The vehicle answered in time, each time.");
    EXPECT_EQ(ending_of(report), Sentences{"The last frame brought the vehicle to rest."});
    EXPECT_EQ(line_of(report, finnish), "Lähetettiin 1 234 viestiä. Ajoneuvo vastasi ajoissa joka kerta.");
    EXPECT_EQ(ending_of(report, finnish), Sentences{"Viimeinen viesti pysäytti ajoneuvon."});
}

TEST(Verdict, SaysOneFrameAsOne) {
    Report report = good_drive();
    report.frames = report.replies = report.good_replies = 1;
    EXPECT_EQ(line_of(report), "1 frame was sent. The vehicle answered in time, each time.");
    EXPECT_EQ(line_of(report, finnish), "Lähetettiin 1 viesti. Ajoneuvo vastasi ajoissa joka kerta.");
}

TEST(Verdict, TellsFaultsAndOnlyThoseThatOccurred) {
    Report report = good_drive();
    report.faults.counts = {12, 0, 2, 0};
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(line_of(report), "1,234 frames were sent. Unanswered: 12 (1.0 %). Of the replies: 2 short.");
    report.faults.counts = {0, 3, 0, 1};
    EXPECT_EQ(line_of(report), "1,234 frames were sent. Of the replies: 3 late, 1 garbled.");
    EXPECT_EQ(line_of(report, finnish),
              "Lähetettiin 1 234 viestiä. Vastauksista myöhässä 3, virheellisiä 1.");
    report.faults.counts = {12, 3, 2, 1};
    EXPECT_EQ(line_of(report, finnish),
              "Lähetettiin 1 234 viestiä. Vastaamatta jäi 12 (1,0 %). Vastauksista myöhässä 3, vajaita 2, "
              "virheellisiä 1.");
}

TEST(Verdict, TellsAVehicleThatDoesNotAnswer) {
    Report report = good_drive();
    report.replies = report.good_replies = 0;
    report.faults.counts = {1234, 0, 0, 0};
    EXPECT_EQ(grade_of(report), Grade::trouble);
    EXPECT_EQ(line_of(report), "1,234 frames were sent. The vehicle did not answer at all.");
    EXPECT_EQ(line_of(report, finnish), "Lähetettiin 1 234 viestiä. Ajoneuvo ei vastannut lainkaan.");
}

TEST(Verdict, TellsARecordingWithoutFrames) {
    Report report = good_drive();
    report.frames = report.replies = 0;
    report.ending.rest = Rest::no_frame;
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(line_of(report), "The port was opened, but nothing was sent.");
    EXPECT_TRUE(ending_of(report).empty());
    report.openings = {};
    EXPECT_EQ(line_of(report), "The port was never opened.");
    EXPECT_EQ(line_of(report, finnish), "Porttia ei avattu.");
}

TEST(Verdict, TellsAVehicleThatWasLeftDriving) {
    Report report = good_drive();
    report.ending.rest = Rest::driving;
    report.ending.frame = {120, 103, 47, 'Q'};
    EXPECT_EQ(grade_of(report), Grade::trouble);
    EXPECT_EQ(ending_of(report),
              Sentences{"The last frame asked for throttle 120 with the motor on: the vehicle was "
                        "not brought to rest."});
    EXPECT_EQ(ending_of(report, finnish),
              Sentences{"Viimeinen viesti pyysi kaasua 120 moottori päällä: ajoneuvoa ei pysäytetty."});
    report.ending.rest = Rest::motor_on;
    EXPECT_EQ(grade_of(report), Grade::trouble);
    EXPECT_EQ(ending_of(report),
              Sentences{"The last frame left the motor switched on: the vehicle was not brought "
                        "to rest."});
}

TEST(Verdict, FindsAMotorThatIsOffInOrder) {
    Report report = good_drive();
    report.ending.rest = Rest::motor_off;
    EXPECT_EQ(grade_of(report), Grade::good);
    EXPECT_EQ(ending_of(report), Sentences{"The last frame had the motor switched off."});
}

TEST(Verdict, TellsThatTheRecorderStoppedTheVehicle) {
    Report report = good_drive();
    report.ending.sender = LastSender::recorder;
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(ending_of(report),
              Sentences{"The program was gone without stopping the vehicle: the recorder sent the "
                        "frame that brings it to rest."});
}

TEST(Verdict, TellsACrashFromAnEndFromOutside) {
    Report report = good_drive();
    report.ending.program = {.known = true, .status = {}, .signal = SIGSEGV};
    EXPECT_EQ(grade_of(report), Grade::trouble);
    EXPECT_EQ(ending_of(report)[1], "The program crashed (signal 11, SIGSEGV).");
    EXPECT_EQ(ending_of(report, finnish)[1], "Ohjelma kaatui (signaali 11, SIGSEGV).");
    report.ending.program.signal = SIGKILL;
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(ending_of(report)[1], "The program was ended from outside (signal 9, SIGKILL).");
    report.ending.program = {.known = true, .status = 3, .signal = {}};
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(ending_of(report)[1], "The program ended with status 3.");
}

TEST(Verdict, TellsWhenARecordingBreaksOff) {
    Report report = good_drive();
    report.ending.whole = false;
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(ending_of(report)[1],
              "The recording breaks off at 03:26:03: what happened after that is not known.");
    EXPECT_EQ(ending_of(report, finnish)[1],
              "Tallenne katkeaa kello 3.26.03: mitä sen jälkeen tapahtui, ei tiedetä.");
}

TEST(Verdict, TellsALineThatWentAway) {
    Report report = good_drive();
    report.ending.line_lost = true;
    EXPECT_EQ(grade_of(report), Grade::trouble);
    EXPECT_EQ(ending_of(report)[1], "The line went away: the cable or the adapter came off.");
}

TEST(Verdict, TellsWhatIsMissingInTheFile) {
    Report report = good_drive();
    report.ending.bytes_not_recorded = 1500;
    report.unread_lines = 2;
    report.first_unread_line = 17;
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(ending_of(report)[1], "Bytes that passed without being recorded: 1,500.");
    EXPECT_EQ(ending_of(report)[2], "Lines of the file that could not be read: 2, the first is line 17.");
}

TEST(Verdict, CallsWhatALastFrameLeftByItsName) {
    EXPECT_EQ(words_of(Rest::no_frame, 0, english), "no frame");
    EXPECT_EQ(words_of(Rest::neutral, 0, english), "at rest");
    EXPECT_EQ(words_of(Rest::motor_off, 5, english), "motor off");
    EXPECT_EQ(words_of(Rest::motor_on, 0, english), "motor on");
    EXPECT_EQ(words_of(Rest::driving, 120, english), "motor on, throttle 120");
    EXPECT_EQ(words_of(Rest::driving, 120, finnish), "moottori päällä, kaasu 120");
}

TEST(Verdict, IsRedWhereAClosingLeftTheMotorOn) {
    Report report = good_drive();
    report.left_on = {
        .count = 1,
        .first = {.opened_us = 0, .closed_us = 30'000'000, .rest = Rest::driving, .throttle = 210}};
    EXPECT_EQ(grade_of(report), Grade::trouble);
    EXPECT_EQ(
        ending_of(report),
        (Sentences{"At 03:25:33 the port was closed with the motor on and throttle 210: the vehicle was not "
                   "brought to rest.",
                   "The last frame brought the vehicle to rest."}));
    EXPECT_EQ(
        ending_of(report, finnish).front(),
        "Portti suljettiin kello 3.25.33, kun moottori oli päällä ja kaasu 210: ajoneuvoa ei pysäytetty.");
    report.left_on.first.rest = Rest::motor_on;
    EXPECT_EQ(ending_of(report).front(),
              "At 03:25:33 the port was closed with the motor on: the vehicle was not brought to rest.");
    report.left_on.count = 3;
    EXPECT_EQ(
        ending_of(report).front(),
        "The port was closed 3 times with the motor on, first at 03:25:33: the vehicle was not brought to "
        "rest.");
    EXPECT_EQ(
        ending_of(report, finnish).front(),
        "Portti suljettiin 3 kertaa moottorin ollessa päällä, ensimmäisen kerran kello 3.25.33: ajoneuvoa ei "
        "pysäytetty.");
}

TEST(Verdict, TellsOfALineThatCouldNotBeOpened) {
    Report report = good_drive();
    report.ending.line_refused = true;
    EXPECT_EQ(grade_of(report), Grade::look);
    EXPECT_EQ(ending_of(report).back(), "The line could not be opened when the program wanted it.");
    EXPECT_EQ(ending_of(report, finnish).back(), "Linjaa ei voitu avata, kun ohjelma yritti avata sen.");
}

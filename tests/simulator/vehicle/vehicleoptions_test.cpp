#include "simulator/vehicle/vehicleoptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

vehicle_simulator::ParsedVehicleOptions parse(const std::vector<const char*>& arguments) {
    return vehicle_simulator::parse_vehicle_options(arguments);
}

std::string error_of(const std::vector<const char*>& arguments) {
    return parse(arguments).error;
}

}  // namespace

TEST(VehicleOptions, DefaultToAHealthyLineAndAFullBattery) {
    const auto [options, error] = parse({});
    EXPECT_EQ(error, "");
    EXPECT_FALSE(options.help);
    EXPECT_EQ(options.log_file, "");
    EXPECT_FALSE(options.seed);
    EXPECT_EQ(options.capacity_ah, 100);
    EXPECT_FALSE(options.faults.mute);
    EXPECT_FALSE(options.faults.cut);
    EXPECT_EQ(options.faults.delay_ms, 0);
    EXPECT_EQ(options.faults.garbage, 0);
    EXPECT_EQ(options.faults.split, 1);
    EXPECT_EQ(options.faults.split_pause_ms, 5);
    EXPECT_EQ(options.faults.every, 1);
    EXPECT_FALSE(options.faults.hang_up);
}

TEST(VehicleOptions, AreAllTaken) {
    const auto [options, error] =
        parse({"--log", "file",    "--seed", "4294967295", "--capacity", "63",      "--mute", "--cut",
               "0",     "--delay", "60000",  "--garbage",  "1000",       "--split", "39",     "--split-pause",
               "7",     "--every", "2",      "--hang-up",  "9"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.log_file, "file");
    EXPECT_EQ(options.seed, 4294967295U);
    EXPECT_EQ(options.capacity_ah, 63);
    EXPECT_TRUE(options.faults.mute);
    EXPECT_EQ(options.faults.cut, 0);
    EXPECT_EQ(options.faults.delay_ms, 60000);
    EXPECT_EQ(options.faults.garbage, 1000);
    EXPECT_EQ(options.faults.split, 39);
    EXPECT_EQ(options.faults.split_pause_ms, 7);
    EXPECT_EQ(options.faults.every, 2);
    EXPECT_EQ(options.faults.hang_up, 9);
}

TEST(VehicleOptions, TakeTheValueBehindAnEqualsSignToo) {
    const auto [options, error] = parse({"--log=a=b", "--cut=3"});
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.log_file, "a=b");
    EXPECT_EQ(options.faults.cut, 3);
}

TEST(VehicleOptions, KnowHelp) {
    EXPECT_TRUE(parse({"--help"}).options.help);
    EXPECT_TRUE(parse({"-h"}).options.help);
}

TEST(VehicleOptions, NameWhatIsUnknown) {
    EXPECT_EQ(error_of({"--fast"}), "unknown option '--fast'");
    EXPECT_EQ(error_of({"file"}), "unknown option 'file'");
    EXPECT_EQ(error_of({"--mute=1"}), "unknown option '--mute=1'");
    EXPECT_EQ(error_of({""}), "unknown option ''");
}

TEST(VehicleOptions, MissAValue) {
    EXPECT_EQ(error_of({"--log"}), "--log needs a value");
    EXPECT_EQ(error_of({"--log="}), "--log needs the name of a file");
    EXPECT_EQ(error_of({"--mute", "--seed"}), "--seed needs a value");
}

TEST(VehicleOptions, RefuseWhatIsNoNumberInRange) {
    EXPECT_EQ(error_of({"--capacity", "101"}), "--capacity takes a whole number from 0 to 100, not '101'");
    EXPECT_EQ(error_of({"--cut", "40"}), "--cut takes a whole number from 0 to 39, not '40'");
    EXPECT_EQ(error_of({"--cut", "-1"}), "--cut takes a whole number from 0 to 39, not '-1'");
    EXPECT_EQ(error_of({"--split", "0"}), "--split takes a whole number from 1 to 39, not '0'");
    EXPECT_EQ(error_of({"--delay", "10ms"}), "--delay takes a whole number from 0 to 60000, not '10ms'");
    EXPECT_EQ(error_of({"--delay="}), "--delay takes a whole number from 0 to 60000, not ''");
    EXPECT_EQ(error_of({"--garbage", "1001"}), "--garbage takes a whole number from 0 to 1000, not '1001'");
    EXPECT_EQ(error_of({"--every", "0"}), "--every takes a whole number from 1 to 1000000000, not '0'");
    EXPECT_EQ(error_of({"--hang-up", "0"}), "--hang-up takes a whole number from 1 to 1000000000, not '0'");
    EXPECT_EQ(error_of({"--split-pause", "x"}),
              "--split-pause takes a whole number from 0 to 60000, not 'x'");
    EXPECT_EQ(error_of({"--seed", "4294967296"}),
              "--seed takes a whole number from 0 to 4294967295, not '4294967296'");
    EXPECT_EQ(error_of({"--seed", "99999999999999999999"}),
              "--seed takes a whole number from 0 to 4294967295, not '99999999999999999999'");
}

TEST(VehicleHelp, NamesEveryOption) {
    const std::string help = vehicle_simulator::vehicle_help();
    for (const char* option :
         {"--log FILE", "--seed N", "--capacity AH", "--help", "--mute", "--cut N", "--delay MS",
          "--garbage N", "--split N", "--split-pause MS", "--every N", "--hang-up N"}) {
        EXPECT_NE(help.find(option), std::string::npos) << option;
    }
}

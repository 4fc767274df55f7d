#include "recorder/texts.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace vehicle_recorder {
namespace {

Language language_with(const char* all, const char* messages, const char* lang) {
    setenv("LC_ALL", all, 1);
    setenv("LC_MESSAGES", messages, 1);
    setenv("LANG", lang, 1);
    return language_of_environment();
}

TEST(Language, IsFinnishWhereTheEnvironmentAsksForIt) {
    EXPECT_EQ(language_with("", "", "fi_FI.UTF-8"), Language::finnish);
    EXPECT_EQ(language_with("", "", "fi"), Language::finnish);
    EXPECT_EQ(language_with("", "", "fi.UTF-8"), Language::finnish);
    EXPECT_EQ(language_with("", "", "fil_PH.UTF-8"), Language::english);
    EXPECT_EQ(language_with("", "", "sv_FI.UTF-8"), Language::english);
    EXPECT_EQ(language_with("", "", ""), Language::english);
}

TEST(Language, FirstVariableThatIsSetDecides) {
    EXPECT_EQ(language_with("C", "fi_FI.UTF-8", "fi_FI.UTF-8"), Language::english);
    EXPECT_EQ(language_with("fi_FI.UTF-8", "C", "C"), Language::finnish);
    EXPECT_EQ(language_with("", "fi_FI.UTF-8", "C"), Language::finnish);
    EXPECT_EQ(language_with("", "en_GB.UTF-8", "fi_FI.UTF-8"), Language::english);
}

TEST(Phrase, IsInTheLanguage) {
    EXPECT_STREQ(phrases::throttle.in(Language::english), "throttle");
    EXPECT_STREQ(phrases::throttle.in(Language::finnish), "kaasu");
}

}  // namespace
}  // namespace vehicle_recorder

#include "recorder/notewords.h"

#include <gtest/gtest.h>

using vehicle_recorder::Language;
using vehicle_recorder::note_words;

TEST(NoteWords, AreFinnishForAFinn) {
    const auto finnish = [](const char* note) { return note_words(note, Language::finnish); };
    EXPECT_EQ(finnish("the program ended with status 3"), "ohjelma päättyi, paluuarvo 3");
    EXPECT_EQ(finnish("the program was ended by signal 11"), "ohjelman lopetti signaali 11");
    EXPECT_EQ(finnish("the program discarded what was not sent"),
              "ohjelma perui sen, mitä ei ollut vielä lähetetty");
    EXPECT_EQ(finnish("bytes not taken by the program 17"), "tavuja, joita ohjelma ei lukenut: 17");
    EXPECT_EQ(finnish("bytes not taken by the line 4"), "tavuja, joita linja ei ottanut vastaan: 4");
    EXPECT_EQ(finnish("bytes not recorded 1048576"), "tavuja, joita ei tallennettu: 1048576");
    EXPECT_EQ(finnish("neutral frame sent by the recorder"), "tallennin lähetti pysäyttävän viestin");
    EXPECT_EQ(finnish("the line takes no neutral frame"), "linja ei ottanut vastaan pysäyttävää viestiä");
    EXPECT_EQ(finnish("the process that carried the line was ended"), "linjaa välittänyt prosessi päättyi");
    EXPECT_EQ(finnish("the line /dev/ttyUSB0 is lost: Input/output error"),
              "linja /dev/ttyUSB0 katosi: Input/output error");
    EXPECT_EQ(finnish("/dev/ttyUSB0 cannot be opened: No such file or directory"),
              "laitetta /dev/ttyUSB0 ei voitu avata: No such file or directory");
}

TEST(NoteWords, StandAsTheyAreWhereTheyAreNotKnown) {
    for (const char* note : {"", "somebody's words", "the program ended", "the line is lost",
                             "the line takes no neutral frame, says somebody", "a * stays a *"}) {
        EXPECT_EQ(note_words(note, Language::finnish), note);
    }
}

TEST(NoteWords, StandAsTheyAreInEnglish) {
    for (const char* note :
         {"the program ended with status 3", "the line /dev/ttyUSB0 is lost: gone", "words"}) {
        EXPECT_EQ(note_words(note, Language::english), note);
    }
}

#include "recorder/html.h"

#include <gtest/gtest.h>

using vehicle_recorder::coordinate;
using vehicle_recorder::html_escaped;

TEST(HtmlEscaped, LeavesNothingThatMeansSomethingInHtml) {
    EXPECT_EQ(html_escaped("<a href=\"x\" id='y'> & </a>"),
              "&lt;a href=&quot;x&quot; id=&#39;y&#39;&gt; &amp; &lt;/a&gt;");
}

TEST(HtmlEscaped, KeepsLettersOfEveryLength) {
    EXPECT_EQ(html_escaped("Nopeus ä € 𝄞"), "Nopeus ä € 𝄞");
}

TEST(HtmlEscaped, ReplacesWhatIsNoCharacter) {
    EXPECT_EQ(html_escaped("a\x01\x7f\n"), "a\ufffd\ufffd\ufffd");
    EXPECT_EQ(html_escaped("\xff\x80x"), "\ufffd\ufffdx");
    EXPECT_EQ(html_escaped("\xc3"), "\ufffd");                      // cut within a letter
    EXPECT_EQ(html_escaped("\xc3<"), "\ufffd&lt;");                 // the next character is not swallowed
    EXPECT_EQ(html_escaped("\xc0\xbc"), "\ufffd\ufffd");            // "<" in more bytes than it needs
    EXPECT_EQ(html_escaped("\xe0\x80\xbc"), "\ufffd\ufffd\ufffd");  // the same
    EXPECT_EQ(html_escaped("\xed\xa0\x80"), "\ufffd\ufffd\ufffd");  // half of a surrogate pair
    EXPECT_EQ(html_escaped("\xf4\x90\x80\x80"), "\ufffd\ufffd\ufffd\ufffd");  // beyond Unicode
}

TEST(Coordinate, HasOneDecimalAtMost) {
    EXPECT_EQ(coordinate(12), "12");
    EXPECT_EQ(coordinate(12.04), "12");
    EXPECT_EQ(coordinate(12.06), "12.1");
    EXPECT_EQ(coordinate(-0.01), "0");
    EXPECT_EQ(coordinate(-3.25), "-3.3");
    EXPECT_EQ(coordinate(1000), "1000");
}

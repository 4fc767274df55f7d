#include "recorder/chart.h"
#include "recorder/html.h"
#include "recorder/notewords.h"
#include "recorder/reportfacts.h"
#include "recorder/reportpages.h"
#include "recorder/reportphrases.h"
#include "recorder/reportstyle.h"
#include "recorder/verdict.h"

namespace vehicle_recorder {

namespace {

namespace words = report_phrases;

// From this speed on the panel's own dial shows red.
constexpr double red_speed_rpm = 1500;

std::string element(const std::string& tag, const std::string& text) {
    return "<" + tag + ">" + html_escaped(text) + "</" + tag.substr(0, tag.find(' ')) + ">";
}

struct GradeLook {
    const char* style;
    const char* icon;  // what stands in a circle of radius 10 around 12, 12
};

GradeLook look_of(Grade grade) {
    switch (grade) {
        case Grade::good:
            return {"good", "M7 12.5l3.4 3.4L17 9"};
        case Grade::look:
            return {"look", "M12 6.5v7M12 17v.2"};
        case Grade::trouble:
            break;
    }
    return {"trouble", "M8 8l8 8M16 8l-8 8"};
}

/// Writes the page from its top to its end.
class Page {
public:
    Page(const Report& report, const Phrasing& phrasing)
        : report_(report), phrasing_(phrasing), charts_(report, phrasing) {}

    std::string text() {
        head();
        verdict();
        glance();
        curves();
        line();
        openings();
        faulty();
        notes();
        about();
        page_ += "</main>\n</body>\n</html>\n";
        return page_;
    }

private:
    std::string say(const Phrase& phrase) const { return phrasing_(phrase); }

    void heading(const std::string& text) { page_ += element("h2", text) + "\n"; }

    void head() {
        const std::string title = say(words::kind) + " " + phrasing_.date(report_.header) + " " +
                                  phrasing_.time_of_day(report_.header, 0);
        page_ += "<!DOCTYPE html>\n<html lang=\"" + say(words::html_language) +
                 "\">\n<head>\n<meta charset=\"utf-8\">\n"
                 "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n" +
                 element("title", title) + "\n<style>" + report_style +
                 "</style>\n</head>\n<body>\n<main>\n<header>\n" +
                 element("p class=\"kind\"", say(words::kind)) + "\n" +
                 element("h1", period_of(report_, phrasing_)) + "\n</header>\n";
    }

    void verdict() {
        const Verdict verdict = verdict_on(report_, phrasing_);
        const GradeLook look = look_of(verdict.grade);
        page_ += std::string("<section class=\"verdict ") + look.style +
                 "\">\n<svg viewBox=\"0 0 24 24\" aria-hidden=\"true\"><circle cx=\"12\" cy=\"12\" r=\"10\" "
                 "fill=\"none\" stroke=\"currentColor\" stroke-width=\"2\"/><path d=\"" +
                 look.icon +
                 "\" stroke=\"currentColor\" stroke-width=\"2.2\" stroke-linecap=\"round\" "
                 "stroke-linejoin=\"round\"/></svg>\n" +
                 element("h2", say(grade_phrase(verdict.grade))) + "\n" + element("p", verdict.line) + "\n";
        std::string ending;
        for (const std::string& sentence : verdict.ending) {
            ending += (ending.empty() ? "" : " ") + sentence;
        }
        page_ += (ending.empty() ? "" : element("p", ending) + "\n") + "</section>\n";
    }

    void glance() {
        heading(say(words::at_a_glance));
        page_ += "<dl class=\"tiles\">\n";
        for (const Fact& fact : main_facts(report_, phrasing_)) {
            page_ += std::string("<div") + (fact.wrong ? " class=\"wrong\"" : "") + ">" +
                     element("dt", fact.name) + "<dd>" + html_escaped(fact.value) + " " +
                     element("small", fact.note) + "</dd></div>\n";
        }
        page_ += "</dl>\n";
    }

    void curves() {
        if (report_.frames == 0) {
            return;
        }
        heading(say(words::over_time));
        page_ += "<p class=\"key\"><i></i>" + say(words::closed_area) + "</p>\n";
        CurveRow speed = row(words::speed_short, "rpm", report_.speed, 1);
        speed.mark = red_speed_rpm;
        speed.mark_name = say(words::red_speed);
        speed.limit = true;
        speed.tall = true;
        page_ += charts_.curves(say(words::speed), {speed}, nullptr, "");

        CurveRow throttle = row(words::throttle, "", report_.throttle, 1, CurveKind::steps);
        throttle.range = Extremes{0, 255};
        CurveRow direction = row(words::direction, "", report_.direction, 2, CurveKind::steps);
        direction.range = Extremes{35, 175};
        direction.mark = 103;
        direction.mark_name = say(words::straight);
        CurveRow bucket = row(words::bucket, "", report_.bucket, 3, CurveKind::steps);
        bucket.range = Extremes{47, 172};
        bucket.mark = 110;
        bucket.mark_name = say(words::at_rest);
        page_ += charts_.curves(say(words::set_points), {throttle, direction, bucket}, &report_.motor,
                                say(words::motor));

        page_ += charts_.curves(
            say(words::battery),
            {row(words::voltage, "", report_.voltage, 1), row(words::current, "", report_.current, 2),
             row(words::capacity, "Ah", report_.capacity, 3)},
            nullptr, "");
        page_ += element("p class=\"key\"", say(words::battery_units)) + "\n";
    }

    void line() {
        if (report_.faults.all() == 0 && report_.cycle.count() == 0 && report_.delay.count() == 0) {
            return;
        }
        heading(say(words::line));
        page_ += charts_.faults(say(words::faults));
        if (report_.cycle.count() > 0) {
            page_ += charts_.curves(
                say(words::cycle_and_delay),
                {row(words::cycle, "ms", report_.cycle_ms, 1), row(words::delay, "ms", report_.delay_ms, 4)},
                nullptr, "");
            page_ += "<div class=\"alone\">" +
                     charts_.spread(say(words::spread), say(words::spread_what), report_.cycle) + "</div>\n";
        }
        spread(say(words::cycle), report_.cycle);
        spread(say(words::delay), report_.delay);
    }

    void spread(const std::string& name, const Spread& durations) {
        const std::vector<Fact> facts = spread_facts(durations, phrasing_);
        if (facts.empty()) {
            return;
        }
        page_ += "<div class=\"card\">" + element("h3", name) + "<dl class=\"spread\">";
        for (const Fact& fact : facts) {
            page_ += "<div>" + element("dt", fact.name) + element("dd", fact.value) + "</div>";
        }
        page_ += "</dl></div>\n";
    }

    void openings() {
        if (report_.openings.count == 0) {
            return;
        }
        heading(say(words::openings));
        begin_table("stack", {{words::opened, false},
                              {words::closed, false},
                              {words::settings, true},
                              {words::frames, false},
                              {words::replies, false},
                              {words::left_with, true}});
        for (const Opening& opening : report_.openings.entries) {
            page_ += "<tr>" + named_cell("th scope=\"row\"", words::opened, moment(opening.opened_us)) +
                     named_cell("td", words::closed,
                                opening.closed_us ? moment(*opening.closed_us) : say(words::not_closed)) +
                     named_cell("td class=\"text\"", words::settings,
                                opening.settings.empty() ? "\u2013" : opening.settings) +
                     named_cell("td", words::frames, phrasing_.whole(opening.frames)) +
                     named_cell("td", words::replies, phrasing_.whole(opening.replies)) +
                     named_cell("td class=\"text\"", words::left_with,
                                words_of(opening.rest, opening.throttle, phrasing_)) +
                     "</tr>\n";
        }
        end_table(report_.openings.entries.size(), report_.openings.count);
    }

    void faulty() {
        if (report_.faulty.count == 0) {
            return;
        }
        heading(say(words::faulty));
        begin_table("", {{words::time_of_day, false}, {words::elapsed, false}, {words::what, true}});
        for (const FaultyReply& reply : report_.faulty.entries) {
            page_ += "<tr>" + element("th scope=\"row\"", moment(reply.time_us)) +
                     element("td", Phrasing::seconds(reply.time_us)) +
                     element("td class=\"text\"", words_of(reply, phrasing_)) + "</tr>\n";
        }
        end_table(report_.faulty.entries.size(), report_.faulty.count);
    }

    void notes() {
        if (report_.notes.count == 0) {
            return;
        }
        heading(say(words::notes));
        begin_table("", {{words::time_of_day, false}, {words::elapsed, false}, {words::what, true}});
        for (const Note& note : report_.notes.entries) {
            page_ += "<tr>" + element("th scope=\"row\"", moment(note.time_us)) +
                     element("td", Phrasing::seconds(note.time_us)) +
                     element("td class=\"text\"", note_words(note.text, phrasing_.language())) + "</tr>\n";
        }
        end_table(report_.notes.entries.size(), report_.notes.count);
    }

    void about() {
        heading(say(words::about));
        page_ += "<div class=\"card\"><dl class=\"facts\">";
        for (const Fact& fact : origin_facts(report_, phrasing_)) {
            page_ += element("dt", fact.name) + element("dd", fact.value);
        }
        page_ += "</dl></div>\n";
    }

    // A cell that tells its column's name where a narrow page shows each row as a block of its own.
    std::string named_cell(const std::string& tag, const Phrase& column, const std::string& text) const {
        return element(tag + " data-name=\"" + say(column) + "\"", text);
    }

    struct Column {
        Phrase name;
        bool is_text;
    };

    void begin_table(const std::string& style, const std::vector<Column>& columns) {
        page_ += "<div class=\"card list\"><table class=\"" + style + "\"><thead><tr>";
        for (const Column& column : columns) {
            page_ += element(column.is_text ? "th scope=\"col\" class=\"text\"" : "th scope=\"col\"",
                             say(column.name));
        }
        page_ += "</tr></thead><tbody>\n";
    }

    void end_table(std::size_t shown, std::uint64_t all) {
        page_ += "</tbody></table>";
        if (shown < all) {
            page_ += element("p class=\"more\"", first_of(shown, all, phrasing_));
        }
        page_ += "</div>\n";
    }

    std::string moment(std::int64_t time_us) const {
        return phrasing_.time_of_day(report_.header, time_us, 3);
    }

    CurveRow row(const Phrase& name, const std::string& unit, const Series& series, int colour,
                 CurveKind kind = CurveKind::line) const {
        CurveRow row;
        row.name = say(name);
        row.unit = unit;
        row.series = &series;
        row.colour = colour;
        row.kind = kind;
        return row;
    }

    const Report& report_;
    const Phrasing& phrasing_;
    Charts charts_;
    std::string page_;
};

}  // namespace

std::string html_page(const Report& report, const Phrasing& phrasing) {
    return Page(report, phrasing).text();
}

}  // namespace vehicle_recorder

/// @file
/// The words and headings of a report. Terms are those of the panel and its guides.

#ifndef RECORDER_REPORTPHRASES_H
#define RECORDER_REPORTPHRASES_H

#include "recorder/texts.h"

namespace vehicle_recorder::report_phrases {

inline constexpr Phrase html_language = {"en", "fi"};  // BCP 47
inline constexpr Phrase kind = {"Recording of the vehicle's line",
                                "Ajoneuvon linjan tallenne"};  // what this page is
inline constexpr Phrase unknown_start = {"Start unknown", "Alkuaika ei tiedossa"};
inline constexpr Phrase from_to = {"to", "–"};  // between two times of day
inline constexpr Phrase at_a_glance = {"At a glance", "Yhdellä silmäyksellä"};
inline constexpr Phrase duration = {"Duration", "Kesto"};
inline constexpr Phrase frames = {"Frames sent", "Lähetetyt viestit"};
inline constexpr Phrase replies = {"Replies", "Vastaukset"};
inline constexpr Phrase faultless = {"faultless", "virheettömiä"};
inline constexpr Phrase left_with = {"Left the vehicle", "Ajoneuvon tila"};
inline constexpr Phrase lost = {"Unanswered", "Vastaamatta"};
inline constexpr Phrase late = {"Late", "Myöhässä"};
inline constexpr Phrase cut = {"Short", "Vajaita"};
inline constexpr Phrase garbled = {"Garbled", "Virheellisiä"};
inline constexpr Phrase fault_lost = {"unanswered", "ei vastausta"};  // as a word in a table
inline constexpr Phrase fault_late = {"late", "myöhässä"};
inline constexpr Phrase fault_cut = {"short", "vajaa"};
inline constexpr Phrase fault_garbled = {"garbled", "virheellinen"};
inline constexpr Phrase silence = {"Longest silence", "Pisin hiljaisuus"};
inline constexpr Phrase cycle = {"Cycle time", "Lähetysväli"};
inline constexpr Phrase median = {"Median", "Mediaani"};
inline constexpr Phrase top_speed = {"Top speed", "Suurin kierrosnopeus"};
inline constexpr Phrase lowest_voltage = {"Lowest voltage", "Alin jännite"};
inline constexpr Phrase highest_current = {"Highest current", "Suurin virta"};
inline constexpr Phrase capacity = {"Capacity", "Kapasiteetti"};
inline constexpr Phrase voltage = {"Voltage", "Jännite"};
inline constexpr Phrase current = {"Current", "Virta"};
inline constexpr Phrase throttle = {"Throttle", "Kaasu"};
inline constexpr Phrase direction = {"Direction", "Suunta"};
inline constexpr Phrase bucket = {"Bucket", "Kauha"};
inline constexpr Phrase motor = {"Motor on", "Moottori päällä"};
inline constexpr Phrase speed = {"Motor speed", "Moottorin kierrosnopeus"};  // heading
inline constexpr Phrase speed_short = {"Speed", "Nopeus"};
inline constexpr Phrase straight = {"103 straight ahead", "103 suoraan"};
inline constexpr Phrase at_rest = {"110 at rest", "110 lepoasento"};
inline constexpr Phrase red_speed = {"red on the panel from 1,500", "paneelissa punaista alkaen 1\u00a0500"};
inline constexpr Phrase cycle_and_delay = {"Cycle time and reply delay", "Lähetysväli ja vastausviive"};
inline constexpr Phrase over_time = {"Over time", "Ajan kuluessa"};
inline constexpr Phrase set_points = {"Set-points", "Ohjearvot"};  // heading
inline constexpr Phrase battery = {"Battery", "Akku"};             // heading
inline constexpr Phrase battery_units = {
    "Voltage and current are the numbers that the panel shows; their unit is the vehicle's.",
    "Jännite ja virta ovat ne luvut, jotka ohjauspaneeli näyttää; niiden yksikkö on ajoneuvon oma."};
inline constexpr Phrase line = {"The line", "Linja"};                       // heading
inline constexpr Phrase faults = {"Faulty replies", "Vastausten häiriöt"};  // heading of a curve
inline constexpr Phrase delay = {"Reply delay", "Vastausviive"};
inline constexpr Phrase spread = {"Spread of the cycle time", "Lähetysvälin hajonta"};  // heading
inline constexpr Phrase spread_what = {"How often each time from one frame to the next occurred",
                                       "Kuinka usein kukin aika viestistä seuraavaan esiintyi"};
inline constexpr Phrase ending = {"How it ended", "Miten se päättyi"};                          // heading
inline constexpr Phrase openings = {"Openings and closings", "Portin avaukset ja sulkemiset"};  // heading
inline constexpr Phrase opened = {"Opened", "Avattu"};
inline constexpr Phrase closed = {"Closed", "Suljettu"};
inline constexpr Phrase settings = {"Line", "Linjan asetukset"};
inline constexpr Phrase not_closed = {"not closed", "ei suljettu"};
inline constexpr Phrase faulty = {"Faults one by one", "Häiriöt yksitellen"};  // heading
inline constexpr Phrase time_of_day = {"Time of day", "Kellonaika"};
inline constexpr Phrase elapsed = {"Seconds", "Sekuntia"};
inline constexpr Phrase what = {"What", "Mitä"};
inline constexpr Phrase bytes = {"Bytes", "Tavuja"};
inline constexpr Phrase notes = {"Notes of the recorder", "Tallentimen merkinnät"};  // heading
inline constexpr Phrase about = {"About this recording", "Tietoja tallenteesta"};    // heading
inline constexpr Phrase file = {"File", "Tiedosto"};
inline constexpr Phrase device = {"Device", "Laite"};
inline constexpr Phrase writer = {"Recorded by", "Tallentanut"};
inline constexpr Phrase bytes_sent = {"Bytes to the vehicle", "Tavuja ajoneuvolle"};
inline constexpr Phrase bytes_received = {"Bytes from the vehicle", "Tavuja ajoneuvolta"};
inline constexpr Phrase out_of_step = {"Frames out of step", "Tahdista pudonneita viestejä"};
inline constexpr Phrase stray_bytes = {"Bytes that answer no frame",
                                       "Tavuja, jotka eivät vastaa mihinkään viestiin"};
inline constexpr Phrase shortest = {"Shortest", "Lyhin"};
inline constexpr Phrase longest = {"Longest", "Pisin"};
inline constexpr Phrase mean = {"Mean", "Keskiarvo"};
inline constexpr Phrase deviation = {"Standard deviation", "Keskihajonta"};
inline constexpr Phrase lowest = {"Lowest", "Pienin"};
inline constexpr Phrase highest = {"Highest", "Suurin"};
inline constexpr Phrase at_first = {"First", "Ensin"};
inline constexpr Phrase at_last = {"Last", "Viimeksi"};
inline constexpr Phrase table = {"As a table", "Taulukkona"};
inline constexpr Phrase times = {"times", "kertaa"};                     // how often
inline constexpr Phrase or_longer = {"or longer", "tai pidempi"};        // behind a time
inline constexpr Phrase closed_area = {"port closed", "portti kiinni"};  // legend
inline constexpr Phrase nothing = {"Nothing to show", "Ei näytettävää"};
inline constexpr Phrase none = {"none", "ei yhtään"};  // an empty value
inline constexpr Phrase first_of = {"The first %s of %s", "Ensimmäiset %s, kaikkiaan %s"};
inline constexpr Phrase value = {"Value", "Arvo"};
inline constexpr Phrase all_good = {"All well", "Kaikki kunnossa"};
inline constexpr Phrase look = {"Worth a look", "Huomioitavaa"};
inline constexpr Phrase trouble = {"Something went wrong", "Jotain meni vikaan"};

}  // namespace vehicle_recorder::report_phrases

#endif

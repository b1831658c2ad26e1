#include "small_files.h"

#include <array>

#include "../transfer/import_fixture.h"

namespace tolma::test {
namespace {

constexpr int kBusinessNumbers = 36;
constexpr int kPersonNumbers = 48;

struct Place {
    const char* gemKz;
    const char* plz;
    const char* town;
};
constexpr std::array<Place, 4> kPlaces = {{{"01001000", "24937", "Flensburg"},
                                           {"01002000", "24103", "Kiel"},
                                           {"01003000", "23552", "Lübeck"},
                                           {"01004000", "24534", "Neumünster"}}};
constexpr std::array<const char*, 8> kNames = {
    "Bäckerei Müller", "Fischhandel Jensen", "Schmiede Groß",  "Kiosk am Hafen",
    "Möbel Schröder",  "Café Süderstraße",   "Elektro Hansen", "Autohaus Weiß"};
constexpr std::array<const char*, 6> kStreets = {"Hauptstraße", "Große Straße",  "Mühlenweg",
                                                 "Am Markt",    "Kieler Straße", "Fischerweg"};
constexpr std::array<const char*, 8> kSurnames = {"Müller", "Jensen",  "Schröder", "Hansen",
                                                  "Möller", "Schmidt", "Weiß",     "Petersen"};
constexpr std::array<const char*, 6> kFirstNames = {"Jörn",  "Anke", "Sönke",
                                                    "Birte", "Uwe",  "Meike"};
struct Activity {
    const char* key;
    const char* text;
};
constexpr std::array<Activity, 4> kActivities = {{{"10710", "Herstellung von Backwaren"},
                                                  {"47230", "Einzelhandel mit Fisch"},
                                                  {"25500", "Schmieden und Pressen"},
                                                  {"47110", "Einzelhandel mit Waren"}}};

std::string number(int n, int base) {
    return std::to_string(base + n);
}

class Writer {
  public:
    explicit Writer(std::mt19937& random) : random_(random) {}
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }
    bool chance(int percent) { return pick(100) < percent; }
    void field(const std::string& name, const std::string& value) {
        text += "<" + name + ">" + value + "</" + name + ">\n";
    }
    void line(const std::string& l) { text += l + "\n"; }
    std::string text;

  private:
    std::mt19937& random_;
};

void naturalPerson(Writer& w, const std::string& persNr, char function) {
    w.line("<person>");
    w.field("p-funktion", std::string(1, function));
    w.field("pers-nr", persNr);
    w.field("p-art", "NP");
    w.field("fam-name", kSurnames[static_cast<size_t>(w.pick(kSurnames.size()))]);
    w.field("vornamen", kFirstNames[static_cast<size_t>(w.pick(kFirstNames.size()))]);
    w.field("geb-datum", "19" + std::to_string(50 + w.pick(40)) + "0" +
                             std::to_string(1 + w.pick(9)) + "1" + std::to_string(w.pick(9)));
    const Place& home = kPlaces[static_cast<size_t>(w.pick(kPlaces.size()))];
    w.field("p-strasse", kStreets[static_cast<size_t>(w.pick(kStreets.size()))]);
    w.field("p-plz", home.plz);
    w.field("p-ort", home.town);
    w.line("<staatsangehoerigkeiten>");
    w.line("<staatsangehoerigkeit>");
    w.field("staat-text", w.chance(80) ? "deutsch" : "dänisch");
    w.field("staat-schl", "000");
    w.line("</staatsangehoerigkeit>");
    w.line("</staatsangehoerigkeiten>");
    if (w.chance(25)) {
        w.line("<p-erlaubnisse>");
        w.line("<p-erlaubnis>");
        w.field("p-erl-art", "Erlaubnis nach § 34c GewO");
        w.field("p-erl-status", "erteilt");
        w.line("</p-erlaubnis>");
        w.line("</p-erlaubnisse>");
    }
    w.line("</person>");
}

void legalPerson(Writer& w, const std::string& persNr, const std::string& name) {
    w.line("<person>");
    w.field("p-funktion", "1");
    w.field("pers-nr", persNr);
    w.field("p-art", "JP");
    w.field("p-eintr-name", name + " GmbH");
    w.field("p-rechtsform-text", "Gesellschaft mit beschränkter Haftung (GmbH)");
    w.line("</person>");
}

// One state of a business: the lines between <betrieb> and </betrieb>.
std::string business(Writer& w, int nr, int hist) {
    w.text.clear();
    const Place& place = kPlaces[static_cast<size_t>(nr % static_cast<int>(kPlaces.size()))];
    const std::string name = kNames[static_cast<size_t>(w.pick(kNames.size()))];
    const bool ended = w.chance(12);
    w.field("gem-kz", place.gemKz);
    w.field("betr-nr", number(nr, 1000));
    w.field("betr-hist-nr", std::to_string(hist));
    w.field("b-eintr-name", name);
    w.field("betr-beginn", "20" + std::to_string(10 + w.pick(14)) + "0401");
    if (ended) w.field("betr-ende", "20240630");
    w.field("meld-art", ended ? "03" : hist == 1 ? "01" : "02");
    if (w.chance(70)) w.field("schluesselfeld", w.chance(50) ? place.town : "Sonder");
    const bool cut = w.chance(4);
    w.line("<adressen>");
    for (int a = 1; a <= 1 + (w.chance(30) ? 1 : 0); ++a) {
        w.line("<adresse art=\"" + std::to_string(a) + "\">");
        w.field("b-adr-art", std::to_string(a));
        w.field("b-strasse", std::string(kStreets[static_cast<size_t>(w.pick(kStreets.size()))]) +
                                 " " + std::to_string(1 + w.pick(60)));
        w.field("b-plz", place.plz);
        w.field("b-ort", place.town);
        // Without its closing line the section runs to the end: the element gives up.
        if (!cut) w.line("</adresse>");
    }
    w.line("</adressen>");
    w.line("<taetigkeiten>");
    const Activity& activity = kActivities[static_cast<size_t>(w.pick(kActivities.size()))];
    w.line("<taetigkeit>");
    w.field("tk-schl", activity.key);
    w.field("tk-originaltext", activity.text);
    w.field("tk-schwerp", "1");
    w.line("</taetigkeit>");
    w.line("</taetigkeiten>");
    // Persons are drawn from a population smaller than twice the businesses': many are shared.
    const int persons = w.pick(4);
    if (persons > 0) {
        w.line("<personen>");
        if (w.chance(20)) legalPerson(w, number(w.pick(kPersonNumbers), 5000), name);
        for (int p = 0; p < persons; ++p)
            naturalPerson(w, number(w.pick(kPersonNumbers), 5000), p == 0 ? '1' : '2');
        w.line("</personen>");
    }
    return w.text;
}

}  // namespace

std::string smallTransferFile(std::mt19937& random, bool byNotification, int businesses) {
    Writer w(random);
    TmlFile file;
    file.struktur = byNotification ? "MELDUNGSBEZOGEN" : "BETRIEBSBEZOGEN";
    for (int i = 0; i < businesses; ++i) {
        const int nr = w.pick(kBusinessNumbers);
        const int hist = byNotification ? 1 + w.pick(3) : 1;
        file.betriebe.push_back(business(w, nr, hist));
        // The same business again in the same file, with other data.
        if (w.chance(5)) file.betriebe.push_back(business(w, nr, hist));
    }
    return file.text();
}

}  // namespace tolma::test

#include "tml_generator.h"

#include <cctype>
#include <charconv>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string_view>

namespace tolma::bench {
namespace {

// ---------------------------------------------------------------------------------------
// Word lists. They are UTF-8 like every source file; the writer converts each chunk to
// Windows-1252 just before it leaves (see FileWriter::flush).
// The tables are laid out by hand, one entry or one row of words per line.
// clang-format off

// The register court and the chambers that serve a place.
enum class Region { Flensburg, Kiel, Luebeck, Pinneberg };

struct Place {
    const char* gemKz;  // the official key, as in data/gemeindekennzahlen.csv
    const char* name;
    const char* plz;
    const char* dialCode;
    Region region;
};

constexpr Place kPlaces[] = {
    {"01001000", "Flensburg", "24937", "0461", Region::Flensburg},
    {"01002000", "Kiel", "24103", "0431", Region::Kiel},
    {"01003000", "Lübeck", "23552", "0451", Region::Luebeck},
    {"01004000", "Neumünster", "24534", "04321", Region::Kiel},
    {"01051011", "Brunsbüttel", "25541", "04852", Region::Pinneberg},
    {"01051013", "Büsum", "25761", "04834", Region::Flensburg},
    {"01051044", "Heide", "25746", "0481", Region::Flensburg},
    {"01051074", "Meldorf", "25704", "04832", Region::Flensburg},
    {"01053032", "Geesthacht", "21502", "04152", Region::Luebeck},
    {"01053090", "Mölln", "23879", "04542", Region::Luebeck},
    {"01053100", "Ratzeburg", "23909", "04541", Region::Luebeck},
    {"01054019", "Bredstedt", "25821", "04671", Region::Flensburg},
    {"01054033", "Friedrichstadt", "25840", "04881", Region::Flensburg},
    {"01054056", "Husum", "25813", "04841", Region::Flensburg},
    {"01054076", "Leck", "25917", "04662", Region::Flensburg},
    {"01054088", "Niebüll", "25899", "04661", Region::Flensburg},
    {"01054113", "Sankt Peter-Ording", "25826", "04863", Region::Flensburg},
    {"01054138", "Tönning", "25832", "04861", Region::Flensburg},
    {"01054164", "Wyk auf Föhr", "25938", "04681", Region::Flensburg},
    {"01054168", "Sylt", "25980", "04651", Region::Flensburg},
    {"01055004", "Bad Schwartau", "23611", "0451", Region::Luebeck},
    {"01055012", "Eutin", "23701", "04521", Region::Luebeck},
    {"01055021", "Heiligenhafen", "23774", "04362", Region::Luebeck},
    {"01055032", "Neustadt in Holstein", "23730", "04561", Region::Luebeck},
    {"01055046", "Fehmarn", "23769", "04371", Region::Luebeck},
    {"01056015", "Elmshorn", "25335", "04121", Region::Pinneberg},
    {"01056039", "Pinneberg", "25421", "04101", Region::Pinneberg},
    {"01056050", "Wedel", "22880", "04103", Region::Pinneberg},
    {"01057057", "Plön", "24306", "04522", Region::Kiel},
    {"01057062", "Preetz", "24211", "04342", Region::Kiel},
    {"01058043", "Eckernförde", "24340", "04351", Region::Kiel},
    {"01058135", "Rendsburg", "24768", "04331", Region::Kiel},
    {"01059045", "Kappeln", "24376", "04642", Region::Flensburg},
    {"01059075", "Schleswig", "24837", "04621", Region::Flensburg},
    {"01059120", "Harrislee", "24955", "0461", Region::Flensburg},
    {"01060005", "Bad Segeberg", "23795", "04551", Region::Luebeck},
    {"01060044", "Kaltenkirchen", "24568", "04191", Region::Luebeck},
    {"01060063", "Norderstedt", "22844", "040", Region::Luebeck},
    {"01061046", "Itzehoe", "25524", "04821", Region::Pinneberg},
    {"01062001", "Ahrensburg", "22926", "04102", Region::Luebeck},
    {"01062004", "Bad Oldesloe", "23843", "04531", Region::Luebeck},
    {"01062060", "Reinbek", "21465", "040", Region::Luebeck},
};

struct Institution {
    const char* name;
    const char* plz;
    const char* town;
};

// Indexed by Region.
constexpr Institution kRegisterCourts[] = {
    {"Amtsgericht Flensburg", "24937", "FL"},
    {"Amtsgericht Kiel", "24103", "KI"},
    {"Amtsgericht Lübeck", "23552", "HL"},
    {"Amtsgericht Pinneberg", "25421", "PI"},
};
constexpr Institution kCraftChambers[] = {
    {"Handwerkskammer Flensburg", "24937", "Flensburg"},
    {"Handwerkskammer Flensburg", "24937", "Flensburg"},
    {"Handwerkskammer Lübeck", "23552", "Lübeck"},
    {"Handwerkskammer Lübeck", "23552", "Lübeck"},
};
constexpr Institution kTradeChambers[] = {
    {"IHK Flensburg", "24939", "Flensburg"},
    {"IHK zu Kiel", "24103", "Kiel"},
    {"IHK zu Lübeck", "23552", "Lübeck"},
    {"IHK zu Kiel", "24103", "Kiel"},
};

constexpr const char* kStreets[] = {
    "Hauptstraße", "Bahnhofstraße", "Dorfstraße", "Schulstraße", "Gartenstraße",
    "Kirchenstraße", "Mühlenweg", "Lindenstraße", "Birkenweg", "Am Markt", "Industriestraße",
    "Gewerbestraße", "Rosenstraße", "Wiesenweg", "Am Hafen", "Poststraße", "Feldstraße",
    "Amselweg", "Lerchenweg", "Königstraße", "Rathausplatz", "Theodor-Storm-Straße",
    "Schillerstraße", "Goethestraße", "Kieler Straße", "Hamburger Straße", "Lübecker Straße",
    "Friedrichstraße", "Norderstraße", "Süderstraße", "Osterstraße", "Westerstraße",
    "Große Straße", "Neustadt", "Am Deich", "Deichstraße", "Strandweg", "Fischerweg",
    "Eichenweg", "Buchenweg", "Tannenweg", "Ahornweg", "Kastanienallee", "Parkstraße",
    "Bismarckstraße", "Moltkestraße", "Wilhelmstraße", "Ringstraße", "Sandweg", "Hafenstraße",
    "Holmer Straße", "Klaus-Groth-Straße", "Am Kanal", "Brückenstraße", "Mühlenstraße",
    "Schmiedestraße", "Ziegeleiweg", "Koogstraße", "Marschweg", "Geestweg",
};

constexpr const char* kSurnames[] = {
    "Petersen", "Jensen", "Hansen", "Nissen", "Carstensen", "Johannsen", "Christiansen",
    "Thomsen", "Lorenzen", "Jacobsen", "Paulsen", "Andresen", "Brodersen", "Clausen",
    "Ingwersen", "Sönnichsen", "Momsen", "Boysen", "Ketels", "Jessen", "Hinrichsen",
    "Frerichs", "Bleicken", "Rickertsen", "Dethlefsen", "Jürgensen", "Ehlers", "Harms",
    "Thiessen", "Martens", "Friedrichsen", "Dührsen", "Möller", "Müller", "Schmidt",
    "Schneider", "Fischer", "Weber", "Meyer", "Wagner", "Becker", "Schulz", "Hoffmann",
    "Schäfer", "Koch", "Bauer", "Richter", "Klein", "Wolf", "Schröder", "Neumann", "Schwarz",
    "Zimmermann", "Braun", "Krüger", "Hartmann", "Lange", "Werner", "Krause", "Lehmann",
    "Köhler", "Böhm", "Voß", "Rohwer", "Sievers", "Stoltenberg", "Timm", "Kröger", "Hein",
    "Lüthje", "Rathjen", "Wulf", "Asmussen", "Marquardt", "Kühl", "Göttsche",
};

constexpr const char* kMaleNames[] = {
    "Jens", "Hauke", "Ole", "Sönke", "Uwe", "Klaus", "Peter", "Thomas", "Michael", "Andreas",
    "Stefan", "Frank", "Dirk", "Jörn", "Kai", "Lars", "Nils", "Finn", "Lasse", "Malte",
    "Jan-Hendrik", "Hans-Peter", "Karl-Heinz", "Björn", "Sven", "Torben", "Matthias",
    "Jürgen", "Rüdiger", "Henning", "Momme", "Broder", "Knud", "Arfst", "Timo", "Tobias",
};

constexpr const char* kFemaleNames[] = {
    "Anke", "Birte", "Silke", "Kerstin", "Sandra", "Meike", "Wiebke", "Frauke", "Antje",
    "Gesine", "Heike", "Sabine", "Petra", "Claudia", "Nicole", "Julia", "Katrin", "Merle",
    "Jana", "Lena", "Sophie", "Marion", "Elke", "Ute", "Britta", "Inken", "Swantje", "Maren",
    "Jessica", "Christiane", "Hannelore", "Ingrid", "Tanja", "Stefanie", "Lea", "Hanna",
};

constexpr const char* kTitles[] = {"Dr.", "Dipl.-Ing.", "Dipl.-Kfm.", "Prof. Dr."};

struct Nationality {
    const char* text;
    const char* key;
    const char* birthPlace;
    const char* birthCountry;
    bool needsResidencePermit;
};

// Foreign nationalities, with the keys of the official list of states.
constexpr Nationality kForeign[] = {
    {"dänisch", "126", "Tondern", "Dänemark", false},
    {"polnisch", "152", "Gdansk", "Polen", false},
    {"türkisch", "163", "Izmir", "Türkei", true},
    {"italienisch", "137", "Neapel", "Italien", false},
    {"griechisch", "134", "Thessaloniki", "Griechenland", false},
    {"niederländisch", "148", "Groningen", "Niederlande", false},
    {"österreichisch", "151", "Graz", "Österreich", false},
    {"rumänisch", "154", "Cluj-Napoca", "Rumänien", false},
    {"kroatisch", "130", "Split", "Kroatien", false},
    {"ukrainisch", "166", "Charkiw", "Ukraine", true},
    {"syrisch", "475", "Aleppo", "Syrien", true},
    {"vietnamesisch", "432", "Hanoi", "Vietnam", true},
};
constexpr const char* kGerman = "deutsch";
constexpr const char* kGermanKey = "000";

enum class Owner { Sole, Partners, Company, CompanyAndCoKg };

// A GmbH & Co. KG names the legal form of its general partner too.
constexpr const char* kGmbhText = "Gesellschaft mit beschränkter Haftung (GmbH)";

// Keys and texts as in data/rechtsformen.csv; weights give a mix like a town's register.
struct LegalForm {
    const char* key;
    const char* text;
    Owner owner;
    const char* registerSection;  // nullptr: not in the commercial register
    int weight;
};

constexpr LegalForm kLegalForms[] = {
    {"180", "nicht eingetragenes Einzelunternehmen", Owner::Sole, nullptr, 46},
    {"170", "eingetragenes Einzelunternehmen (e.K.; e.Kfm.; e.Kfr.)", Owner::Sole, "HRA", 12},
    {"350", kGmbhText, Owner::Company, "HRB", 17},
    {"351", "Unternehmergesellschaft (haftungsbeschränkt)", Owner::Company, "HRB", 5},
    {"230", "GmbH & Co. KG", Owner::CompanyAndCoKg, "HRA", 7},
    {"210", "Offene Handelsgesellschaft (OHG)", Owner::Partners, "HRA", 3},
    {"220", "Kommanditgesellschaft (KG)", Owner::Partners, "HRA", 2},
    {"270", "Gesellschaft des bürgerlichen Rechts (GbR; BGB-Gesellschaft)", Owner::Partners,
     nullptr, 6},
    {"310", "Aktiengesellschaft (AG)", Owner::Company, "HRB", 1},
    {"400", "eingetragene Genossenschaft (eG)", Owner::Company, "GnR", 1},
};

enum class Issuer { None, TownOffice, TradeChamber };

struct Activity {
    const char* key;  // economic activity key
    const char* text;
};

// A trade: the word that names the business, its kind, the craft it needs registered, the
// permit it needs and the proof of competence its responsible person brings, and up to
// three activities, the first being the main one.
struct Trade {
    const char* stem;
    const char* kind;
    const char* craftKey;
    const char* craftName;
    const char* permit;
    Issuer issuer;
    const char* personPermit;
    Activity activities[3];
};

constexpr Trade kTrades[] = {
    {"Bäckerei", "Handwerk", "A30", "Bäcker", nullptr, Issuer::None, nullptr,
     {{"10.71.0", "Herstellung von Brot, Brötchen und Feingebäck"},
      {"47.24.0", "Einzelhandel mit Back- und Konditoreiwaren"},
      {"56.10.3", "Café mit Ausschank alkoholfreier Getränke"}}},
    {"Konditorei", "Handwerk", "A31", "Konditoren", nullptr, Issuer::None, nullptr,
     {{"10.71.0", "Herstellung von Torten, Pralinen und Feingebäck"},
      {"47.24.0", "Einzelhandel mit Süßwaren"},
      {"56.10.3", "Café mit Kuchenverkauf"}}},
    {"Schlachterei", "Handwerk", "A32", "Fleischer", nullptr, Issuer::None, nullptr,
     {{"10.13.0", "Herstellung von Wurst- und Fleischwaren"},
      {"47.22.0", "Einzelhandel mit Fleisch und Fleischwaren"},
      {"56.21.0", "Partyservice und Mittagstisch"}}},
    {"Friseursalon", "Handwerk", "A38", "Friseure", nullptr, Issuer::None, nullptr,
     {{"96.02.1", "Friseursalon für Damen und Herren"},
      {"47.75.0", "Einzelhandel mit Haarpflegeprodukten"},
      {"96.02.2", "Kosmetische Behandlungen und Maniküre"}}},
    {"Elektrotechnik", "Handwerk", "A25", "Elektrotechniker", nullptr, Issuer::None, nullptr,
     {{"43.21.0", "Elektroinstallation in Gebäuden"},
      {"43.21.0", "Planung und Montage von Photovoltaikanlagen und Wallboxen"},
      {"47.54.0", "Einzelhandel mit elektrischen Haushaltsgeräten"}}},
    {"Heizung und Sanitär", "Handwerk", "A24", "Installateur und Heizungsbauer", nullptr,
     Issuer::None, nullptr,
     {{"43.22.0", "Gas-, Wasser- und Heizungsinstallation"},
      {"43.22.0", "Badsanierung und barrierefreie Umbauten"},
      {"43.22.0", "Einbau und Wartung von Wärmepumpen"}}},
    {"Tischlerei", "Handwerk", "A27", "Tischler", nullptr, Issuer::None, nullptr,
     {{"16.23.0", "Herstellung von Fenstern und Türen aus Holz"},
      {"31.09.0", "Möbelbau nach Maß"},
      {"43.32.0", "Innenausbau und Montage von Bauelementen"}}},
    {"Malerbetrieb", "Handwerk", "A10", "Maler und Lackierer", nullptr, Issuer::None, nullptr,
     {{"43.34.1", "Maler- und Lackierarbeiten, Tapezieren"},
      {"43.33.0", "Verlegen von Bodenbelägen"},
      {"43.34.1", "Fassadengestaltung und Wärmedämmung"}}},
    {"Dachdeckerei", "Handwerk", "A04", "Dachdecker", nullptr, Issuer::None, nullptr,
     {{"43.91.1", "Dachdeckerarbeiten"},
      {"43.91.1", "Bauklempnerei und Dachentwässerung"},
      {"43.99.9", "Gerüstbau für eigene Aufträge"}}},
    {"Autoservice", "Handwerk", "A20", "Kraftfahrzeugtechniker", nullptr, Issuer::None,
     nullptr,
     {{"45.20.1", "Reparatur und Wartung von Kraftwagen"},
      {"45.32.0", "Einzelhandel mit Kfz-Teilen und Reifen"},
      {"45.11.0", "Handel mit Gebrauchtwagen"}}},
    {"Bau", "Handwerk", "A01", "Maurer und Betonbauer", nullptr, Issuer::None, nullptr,
     {{"41.20.1", "Hochbau, Maurer- und Betonarbeiten"},
      {"43.11.0", "Abbruch- und Sanierungsarbeiten"},
      {"43.12.0", "Erdarbeiten und Pflasterarbeiten"}}},
    {"Zimmerei", "Handwerk", "A03", "Zimmerer", nullptr, Issuer::None, nullptr,
     {{"43.91.2", "Zimmerei und Holzbau"},
      {"43.91.2", "Reetdacharbeiten"},
      {"16.10.0", "Bearbeitung von Bauholz"}}},
    {"Fahrradladen", "Handwerk", "A17", "Zweiradmechaniker", nullptr, Issuer::None, nullptr,
     {{"47.64.0", "Einzelhandel mit Fahrrädern, E-Bikes und Zubehör"},
      {"95.29.0", "Reparatur von Fahrrädern"},
      {"77.21.0", "Vermietung von Fahrrädern"}}},
    {"Gebäudereinigung", "Handwerk", "B1-33", "Gebäudereiniger", nullptr, Issuer::None,
     nullptr,
     {{"81.21.0", "Unterhalts- und Glasreinigung"},
      {"81.22.0", "Hausmeisterdienste und Winterdienst"},
      {"81.29.9", "Bauendreinigung"}}},
    {"Garten- und Landschaftsbau", "Sonstiges", nullptr, nullptr, nullptr, Issuer::None,
     nullptr,
     {{"81.30.1", "Garten- und Landschaftsbau"},
      {"81.30.1", "Pflege von Grünanlagen und Baumschnitt"},
      {"81.22.0", "Winterdienst"}}},
    {"Restaurant", "Sonstiges", nullptr, nullptr, "Erlaubnis nach § 2 Gaststättengesetz",
     Issuer::TownOffice, nullptr,
     {{"56.10.1", "Restaurant mit Ausschank alkoholischer Getränke"},
      {"56.21.0", "Catering für Feiern und Veranstaltungen"},
      {"56.10.2", "Außer-Haus-Verkauf von Speisen"}}},
    {"Gaststätte", "Sonstiges", nullptr, nullptr, "Erlaubnis nach § 2 Gaststättengesetz",
     Issuer::TownOffice, nullptr,
     {{"56.30.0", "Schankwirtschaft"},
      {"56.10.1", "Speisegaststätte mit kleinem Speiseangebot"},
      {"93.29.0", "Veranstaltung von Tanzabenden"}}},
    {"Imbiss", "Sonstiges", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"56.10.4", "Imbiss: Fischbrötchen, Pommes frites und Currywurst"},
      {"56.10.2", "Lieferdienst für Speisen"},
      {"47.25.0", "Verkauf von Getränken in Flaschen"}}},
    {"Hotel", "Sonstiges", nullptr, nullptr, "Erlaubnis nach § 2 Gaststättengesetz",
     Issuer::TownOffice, nullptr,
     {{"55.10.1", "Hotel mit Restaurant"},
      {"56.10.1", "Hotelrestaurant mit Ausschank alkoholischer Getränke"},
      {"55.20.1", "Vermietung von Ferienwohnungen"}}},
    {"Ferienwohnungen", "Sonstiges", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"55.20.1", "Vermietung von Ferienwohnungen und Ferienhäusern"},
      {"68.32.0", "Verwaltung von Ferienwohnungen für Dritte"},
      {"77.21.0", "Verleih von Strandkörben und Fahrrädern"}}},
    {"Sicherheitsdienst", "Sonstiges", nullptr, nullptr,
     "Erlaubnis nach § 34a GewO (Bewachungsgewerbe)", Issuer::TownOffice,
     "Sachkundeprüfung nach § 34a GewO",
     {{"80.10.0", "Objektschutz und Revierdienst"},
      {"80.10.0", "Veranstaltungsschutz und Einlasskontrolle"},
      {"80.20.0", "Aufschaltung und Überwachung von Alarmanlagen"}}},
    {"Immobilien", "Sonstiges", nullptr, nullptr,
     "Erlaubnis nach § 34c Abs. 1 Satz 1 Nr. 1 GewO (Immobilienmakler)", Issuer::TownOffice,
     "Erlaubnis nach § 34c GewO",
     {{"68.31.1", "Vermittlung von Grundstücken, Wohnräumen und gewerblichen Räumen"},
      {"68.32.0", "Verwaltung von Wohnungseigentum"},
      {"68.31.1", "Erstellung von Wertgutachten"}}},
    {"Versicherungsbüro", "Sonstiges", nullptr, nullptr,
     "Erlaubnis nach § 34d Abs. 1 GewO (Versicherungsmakler)", Issuer::TradeChamber,
     "Sachkundeprüfung Versicherungsfachmann (IHK)",
     {{"66.22.0", "Vermittlung von Versicherungen als Makler"},
      {"66.19.3", "Vermittlung von Finanzanlagen nach § 34f GewO"},
      {"66.22.0", "Vermittlung von Bausparverträgen"}}},
    {"Taxi", "Sonstiges", nullptr, nullptr, "Genehmigung nach § 47 PBefG (Taxenverkehr)",
     Issuer::TownOffice, nullptr,
     {{"49.32.0", "Taxiverkehr"},
      {"49.32.0", "Krankenfahrten und Dialysefahrten"},
      {"53.20.0", "Kurierfahrten"}}},
    {"Fahrschule", "Sonstiges", nullptr, nullptr, "Fahrschulerlaubnis nach § 17 FahrlG",
     Issuer::TownOffice, nullptr,
     {{"85.53.0", "Fahrschule für die Klassen A, B und BE"},
      {"85.53.0", "Ausbildung für die Klassen C und CE"},
      {"85.59.9", "Erste-Hilfe-Kurse"}}},
    {"Blumenhaus", "Handel", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"47.76.1", "Einzelhandel mit Blumen und Pflanzen"},
      {"47.76.1", "Floristik und Trauerbinderei"},
      {"81.30.1", "Grabpflege"}}},
    {"Modehaus", "Handel", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"47.71.0", "Einzelhandel mit Damen- und Herrenbekleidung"},
      {"47.72.1", "Einzelhandel mit Schuhen"},
      {"47.91.1", "Internethandel mit Bekleidung"}}},
    {"Getränkehandel", "Handel", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"47.25.0", "Einzelhandel mit Getränken (Getränkemarkt)"},
      {"46.34.0", "Großhandel mit Getränken für Gastronomie"},
      {"49.41.0", "Getränkelieferdienst"}}},
    {"Kiosk", "Handel", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"47.26.0", "Einzelhandel mit Tabakwaren und Zeitschriften"},
      {"47.11.0", "Verkauf von Lebensmitteln und Getränken"},
      {"53.20.0", "Paketannahmestelle"}}},
    {"IT-Service", "Sonstiges", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"62.02.0", "IT-Beratung und Einrichtung von Netzwerken"},
      {"62.01.9", "Entwicklung von Software und Webseiten"},
      {"95.11.0", "Reparatur von Computern"}}},
    {"Hausmeisterservice", "Sonstiges", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"81.22.0", "Hausmeisterdienste"},
      {"81.30.1", "Gartenpflege, Rasen- und Heckenschnitt"},
      {"81.22.0", "Winterdienst"}}},
    {"Versandhandel", "Handel", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"47.91.9", "Internethandel mit Geschenkartikeln und Wohnaccessoires"},
      {"47.91.9", "Handel über Online-Marktplätze"},
      {"47.78.9", "Verkauf auf Märkten"}}},
    {"Kosmetikstudio", "Sonstiges", nullptr, nullptr, nullptr, Issuer::None, nullptr,
     {{"96.02.2", "Kosmetikstudio"},
      {"96.02.2", "Nagelstudio und nichtmedizinische Fußpflege"},
      {"96.04.0", "Sonnenstudio"}}},
    {"Spielhalle", "Sonstiges", nullptr, nullptr, "Erlaubnis nach § 33i GewO (Spielhalle)",
     Issuer::TownOffice, nullptr,
     {{"92.00.0", "Betrieb einer Spielhalle"},
      {"92.00.0", "Aufstellung von Geldspielgeräten"},
      {"56.30.0", "Ausschank alkoholfreier Getränke"}}},
};

constexpr const char* kRegistrationReasons[] = {
    "Neuerrichtung/Neugründung", "Neuerrichtung/Neugründung", "Neuerrichtung/Neugründung",
    "Übernahme (Kauf, Pacht)", "Wechsel der Rechtsform", "Gesellschaftereintritt",
    "Zuzug aus anderem Meldebezirk"};
constexpr const char* kChangeReasons[] = {
    "Verlegung innerhalb des Meldebezirks", "Wechsel/Ausdehnung der Tätigkeit",
    "Änderung des Namens", "Änderung der Beschäftigtenzahl"};
constexpr const char* kDeregistrationReasons[] = {
    "Vollständige Aufgabe", "Vollständige Aufgabe", "Vollständige Aufgabe", "Übergabe",
    "Verlegung in einen anderen Meldebezirk", "Wechsel der Rechtsform",
    "Gesellschafteraustritt"};
constexpr const char* kFurtherReasons[] = {
    "Altersgründe", "Wirtschaftliche Schwierigkeiten", "Gesundheitliche Gründe",
    "Aufnahme einer abhängigen Beschäftigung", "Kein Nachfolger", "Insolvenzverfahren",
    "Umzug ins Ausland"};
constexpr const char* kRemarks[] = {
    "Betriebsstätte im Gewerbegebiet, Zufahrt über Nebenstraße.",
    "Gewerbeanzeige aus Altbestand übernommen.",
    "Saisonbetrieb von April bis Oktober.",
    "Anzeige nach Prüfung durch das Ordnungsamt vervollständigt.",
};
constexpr const char* kMailProviders[] = {"web.de", "gmx.de", "t-online.de", "gmail.com",
                                          "outlook.de"};
constexpr const char* kMobilePrefixes[] = {"0151", "0152", "0157", "0160", "0170",
                                           "0171", "0172", "0176"};
// clang-format on

// ---------------------------------------------------------------------------------------
// Dates as day numbers, so that ranges and offsets are plain arithmetic.

constexpr long kUnknownDate = -1;    // written as 88888888
constexpr long kUnlimitedDate = -2;  // written as 99999999

constexpr long dayNumber(int year, int month, int day) {
    year -= month <= 2;
    const long era = (year >= 0 ? year : year - 399) / 400;
    const long yearOfEra = year - era * 400;
    const long dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

// Eight digits "YYYYMMDD", the date form of the transfer file.
void appendDate(std::string& out, long day) {
    if (day == kUnknownDate) {
        out += "88888888";
        return;
    }
    if (day == kUnlimitedDate) {
        out += "99999999";
        return;
    }
    day += 719468;
    const long era = (day >= 0 ? day : day - 146096) / 146097;
    const long dayOfEra = day - era * 146097;
    const long yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long mp = (5 * dayOfYear + 2) / 153;
    const long d = dayOfYear - (153 * mp + 2) / 5 + 1;
    const long m = mp < 10 ? mp + 3 : mp - 9;
    const long y = yearOfEra + era * 400 + (m <= 2);
    char digits[8] = {char('0' + y / 1000), char('0' + y / 100 % 10), char('0' + y / 10 % 10),
                      char('0' + y % 10),   char('0' + m / 10),       char('0' + m % 10),
                      char('0' + d / 10),   char('0' + d % 10)};
    out.append(digits, 8);
}

constexpr long kEarliestBegin = dayNumber(1975, 1, 1);
constexpr long kExportDay = dayNumber(2026, 11, 20);
constexpr long kLatestNotice = dayNumber(2026, 10, 31);

// ---------------------------------------------------------------------------------------
// Random choices from one std::mt19937 stream, so a seed fixes the whole file.

class Random {
  public:
    explicit Random(unsigned seed) : engine_(seed) {}

    // The modulo bias is far below anything a benchmark could notice.
    long below(long n) { return static_cast<long>(engine_() % static_cast<unsigned long>(n)); }
    long between(long low, long high) { return low + below(high - low + 1); }
    bool percent(int p) { return below(100) < p; }

    template <class T, std::size_t N>
    int index(const T (&)[N]) {
        return static_cast<int>(below(static_cast<long>(N)));
    }

  private:
    std::mt19937 engine_;
};

// ---------------------------------------------------------------------------------------
// The plan of one business: every random choice, made once, so that all history states of
// the business tell the same story. Persons are plain values, so a person can be kept and
// written again at a later business exactly as before.

struct PersonPlan {
    long number = 0;
    bool female = false;
    int surname = 0;
    int firstName = 0;
    int birthSurname = -1;
    int title = -1;
    long birthDay = 0;
    int birthPlace = 0;
    int nationality = -1;  // index into kForeign; -1 German only
    bool alsoGerman = false;
    int street = 0;
    int houseNumber = 1;
    int place = 0;
    long phone = 0;
    int mobilePrefix = -1;  // -1 landline
    int mailProvider = -1;
    bool sideline = false;
    long residencePermitDay = 0;
    long masterDay = 0;       // 0: no master craftsman's certificate
    long certificateDay = 0;  // 0: no certificate of conduct asked for
    long permitDay = 0;
};

struct AddressPlan {
    int kind = 1;
    int place = 0;
    int street = 0;
    int houseNumber = 1;
    char houseSuffix = 0;
    long phone = 0;
    long fax = 0;
    bool mail = false;
    bool web = false;
};

struct BusinessPlan {
    long number = 0;
    int place = 0;
    int trade = 0;
    int legalForm = 0;
    std::string name;
    std::string mailDomain;
    long beginDay = 0;
    long endDay = 0;
    bool deregistered = false;
    bool changed = false;  // a single state that is a change notice
    bool sideline = false;
    int registrationReason = 0;
    int changeReason = 0;
    int deregistrationReason = 0;
    int furtherReasons[2] = {-1, -1};
    int remark = -1;
    int previousOwnerSurname = -1;
    int previousOwnerFirstName = 0;
    int fullTime = 0;
    int partTime = 0;
    long registerNumber = 0;
    long registerDay = 0;
    int addressCount = 0;
    AddressPlan addresses[3];
    int activityCount = 0;
    long activityBegin[3] = {};
    int personCount = 0;
    PersonPlan persons[3];
    bool legal[3] = {};
    char function[3] = {};
    long entryDay[3] = {};
    long companyNumber = 0;  // the general partner's register number, GmbH & Co. KG only
};

const LegalForm& pickLegalForm(Random& random, int& index) {
    int total = 0;
    for (const auto& form : kLegalForms) total += form.weight;
    long roll = random.below(total);
    index = 0;
    for (const auto& form : kLegalForms) {
        if (roll < form.weight) return form;
        roll -= form.weight;
        ++index;
    }
    return kLegalForms[0];
}

// Lower-case ASCII for e-mail addresses and host names: umlauts spelt out, anything else
// that is no letter or digit becomes one hyphen.
void appendSlug(std::string& out, std::string_view text) {
    bool hyphen = false;
    bool wrote = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const char* spelt = nullptr;
        if (c == 0xC3 && i + 1 < text.size()) {
            switch (static_cast<unsigned char>(text[++i])) {
                case 0xA4:
                case 0x84:
                    spelt = "ae";
                    break;
                case 0xB6:
                case 0x96:
                    spelt = "oe";
                    break;
                case 0xBC:
                case 0x9C:
                    spelt = "ue";
                    break;
                case 0x9F:
                    spelt = "ss";
                    break;
                default:
                    spelt = "e";
                    break;
            }
        }
        if (spelt || std::isalnum(c)) {
            if (hyphen && wrote) out += '-';
            hyphen = false;
            wrote = true;
            if (spelt)
                out += spelt;
            else
                out += static_cast<char>(std::tolower(c));
        } else {
            hyphen = true;
        }
    }
}

class PlanMaker {
  public:
    explicit PlanMaker(unsigned seed) : random_(seed) {}

    void makeBusiness(long number, BusinessPlan& b) {
        b.number = number;
        b.place = random_.index(kPlaces);
        b.trade = random_.index(kTrades);
        const LegalForm& form = pickLegalForm(random_, b.legalForm);
        const Trade& trade = kTrades[b.trade];

        b.beginDay = random_.between(kEarliestBegin, kLatestNotice - 60);
        b.deregistered = random_.percent(33);
        b.endDay = b.deregistered ? random_.between(b.beginDay + 30, kLatestNotice) : 0;
        b.changed = !b.deregistered && random_.percent(25);
        b.registrationReason = random_.index(kRegistrationReasons);
        b.changeReason = random_.index(kChangeReasons);
        b.deregistrationReason = random_.index(kDeregistrationReasons);
        b.furtherReasons[0] = random_.percent(50) ? random_.index(kFurtherReasons) : -1;
        b.furtherReasons[1] = random_.percent(15) ? random_.index(kFurtherReasons) : -1;
        b.remark = random_.percent(4) ? random_.index(kRemarks) : -1;
        b.previousOwnerSurname = random_.index(kSurnames);
        b.previousOwnerFirstName = random_.index(kMaleNames);
        b.sideline = form.owner == Owner::Sole && random_.percent(20);
        b.fullTime =
            b.sideline ? 0 : static_cast<int>(random_.below(form.owner == Owner::Sole ? 6 : 40));
        b.partTime = static_cast<int>(random_.below(12));
        b.registerNumber = random_.between(100, 19999);
        b.registerDay = b.beginDay - random_.between(5, 60);

        makePersons(b, form);
        makeName(b, form, trade);
        makeAddresses(b);

        b.activityCount = random_.percent(60) ? 1 : random_.percent(60) ? 2 : 3;
        for (int i = 0; i < b.activityCount; ++i) {
            // Old records taken over from card files often lack the start of an activity.
            if (random_.percent(2))
                b.activityBegin[i] = kUnknownDate;
            else if (i == 0)
                b.activityBegin[i] = b.beginDay;
            else
                b.activityBegin[i] = random_.between(b.beginDay, lastDay(b));
        }
    }

  private:
    static long lastDay(const BusinessPlan& b) { return b.deregistered ? b.endDay : kLatestNotice; }

    // Dates of a person are drawn around the start of the business they first appear at.
    void makeNaturalPerson(PersonPlan& p, const BusinessPlan& b) {
        constexpr long kYear = 365;
        p.number = ++personCounter_;
        p.female = random_.percent(38);
        p.surname = random_.index(kSurnames);
        p.firstName = p.female ? random_.index(kFemaleNames) : random_.index(kMaleNames);
        p.birthSurname = p.female && random_.percent(30) ? random_.index(kSurnames) : -1;
        p.title = random_.percent(3) ? random_.index(kTitles) : -1;
        p.birthDay = random_.percent(1) ? kUnknownDate
                                        : b.beginDay - random_.between(19 * kYear, 60 * kYear);
        p.nationality = random_.percent(12) ? random_.index(kForeign) : -1;
        p.alsoGerman = p.nationality >= 0 && random_.percent(20);
        p.birthPlace = random_.index(kPlaces);
        p.street = random_.index(kStreets);
        p.houseNumber = static_cast<int>(random_.between(1, 120));
        p.place = random_.percent(80) ? b.place : random_.index(kPlaces);
        p.mobilePrefix = random_.percent(70) ? random_.index(kMobilePrefixes) : -1;
        p.phone = !random_.percent(60)  ? 0
                  : p.mobilePrefix >= 0 ? random_.between(1000000, 99999999)
                                        : random_.between(1000, 9999999);
        p.mailProvider = random_.percent(40) ? random_.index(kMailProviders) : -1;
        p.sideline = random_.percent(10);
        p.residencePermitDay =
            random_.percent(30) ? kUnlimitedDate : b.beginDay - random_.between(30, 8 * kYear);
        p.masterDay = random_.percent(60) ? b.beginDay - random_.between(30, 15 * kYear) : 0;
        // Permit-bound trades ask for the certificate of conduct and the extract of the
        // central trade register; both stay with the person at any later business.
        p.certificateDay = kTrades[b.trade].permit ? b.beginDay - random_.between(10, 60) : 0;
        p.permitDay =
            random_.percent(3) ? kUnknownDate : b.beginDay - random_.between(20, 5 * kYear);
    }

    // Now and then a person who already stands at an earlier business comes back, as an
    // owner of several businesses does; the ring keeps the memory bounded.
    void naturalPerson(BusinessPlan& b, int slot) {
        PersonPlan& p = b.persons[slot];
        if (ringSize_ > 0 && random_.percent(4)) {
            p = ring_[random_.below(ringSize_)];
            for (int i = 0; i < slot; ++i)
                if (b.persons[i].number == p.number) {
                    makeNaturalPerson(p, b);
                    break;
                }
        } else {
            makeNaturalPerson(p, b);
        }
        ring_[ringNext_] = p;
        ringNext_ = (ringNext_ + 1) % kRingSize;
        if (ringSize_ < kRingSize) ++ringSize_;
        b.legal[slot] = false;
    }

    void legalPerson(BusinessPlan& b, int slot) {
        b.persons[slot] = PersonPlan{};
        b.persons[slot].number = ++personCounter_;
        b.persons[slot].street = random_.index(kStreets);
        b.persons[slot].houseNumber = static_cast<int>(random_.between(1, 120));
        b.legal[slot] = true;
    }

    void makePersons(BusinessPlan& b, const LegalForm& form) {
        const long entry = b.beginDay;
        switch (form.owner) {
            case Owner::Sole:
                b.personCount = 1;
                naturalPerson(b, 0);
                b.function[0] = '1';
                b.entryDay[0] = 0;
                break;
            case Owner::Partners:
                b.personCount = random_.percent(70) ? 2 : 3;
                for (int i = 0; i < b.personCount; ++i) {
                    naturalPerson(b, i);
                    b.function[i] = '2';
                    b.entryDay[i] = entry;
                }
                break;
            case Owner::Company:
            case Owner::CompanyAndCoKg:
                // The company itself, or its general partner, comes first; the natural
                // persons who represent it follow it.
                b.personCount = random_.percent(65) ? 2 : 3;
                legalPerson(b, 0);
                b.function[0] = form.owner == Owner::Company ? '4' : '2';
                b.entryDay[0] = entry;
                b.companyNumber = random_.between(100, 19999);
                for (int i = 1; i < b.personCount; ++i) {
                    naturalPerson(b, i);
                    b.function[i] = '3';
                    b.entryDay[i] = i == 1 ? entry : random_.between(entry, lastDay(b));
                }
                break;
        }
    }

    void makeName(BusinessPlan& b, const LegalForm& form, const Trade& trade) {
        // Companies are named after the first natural person who represents them.
        const bool company = form.owner == Owner::Company || form.owner == Owner::CompanyAndCoKg;
        const PersonPlan& owner = b.persons[company ? 1 : 0];
        const char* surname = kSurnames[owner.surname];
        const char* second = kSurnames[b.persons[1].surname];
        const char* town = kPlaces[b.place].name;
        const std::string_view key = form.key;
        std::string& n = b.name;
        n.clear();
        const long pattern = random_.below(3);
        if (key == "180") {
            if (pattern == 0) {
                n.append(trade.stem).append(" ").append(surname);
            } else if (pattern == 1) {
                n.append(trade.stem).append(" Inh. ");
                n.append(owner.female ? kFemaleNames[owner.firstName]
                                      : kMaleNames[owner.firstName]);
                n.append(" ").append(surname);
            } else {
                n.append(surname).append(" ").append(trade.stem);
            }
        } else if (key == "170") {
            n.append(trade.stem).append(" ").append(surname).append(" e.K.");
        } else if (key == "350" || key == "351" || key == "230") {
            if (pattern == 2)
                n.append(town).append(" ").append(trade.stem);
            else
                n.append(surname).append(" ").append(trade.stem);
            n.append(key == "350"   ? " GmbH"
                     : key == "351" ? " UG (haftungsbeschränkt)"
                                    : " GmbH & Co. KG");
        } else if (key == "210" || key == "270") {
            n.append(trade.stem).append(" ").append(surname).append(" & ").append(second);
            n.append(key == "210" ? " OHG" : " GbR");
        } else if (key == "220") {
            n.append(trade.stem).append(" ").append(surname).append(" KG");
        } else if (key == "400") {
            n.append(trade.stem).append(" ").append(town).append(" eG");
        } else {
            n.append(town).append(" ").append(trade.stem).append(" AG");
        }
        b.mailDomain.clear();
        appendSlug(b.mailDomain, trade.stem);
        b.mailDomain += '-';
        appendSlug(b.mailDomain, pattern == 2 && form.owner != Owner::Sole ? town : surname);
        b.mailDomain += ".de";
    }

    void makeAddresses(BusinessPlan& b) {
        b.addressCount = random_.percent(70) ? 1 : random_.percent(65) ? 2 : 3;
        for (int i = 0; i < b.addressCount; ++i) {
            AddressPlan& a = b.addresses[i];
            // The first address is the site; further ones are a head office elsewhere, a
            // branch, or the site the business moved from.
            a.kind = i == 0 ? 1 : static_cast<int>(random_.between(2, 4));
            const bool reachable = a.kind != 4;
            a.place = i == 0 || random_.percent(50) ? b.place : random_.index(kPlaces);
            a.street = random_.index(kStreets);
            a.houseNumber = static_cast<int>(random_.between(1, 150));
            a.houseSuffix = random_.percent(8) ? static_cast<char>('a' + random_.below(3)) : 0;
            a.phone = reachable && random_.percent(75) ? random_.between(1000, 999999) : 0;
            a.fax = a.phone && random_.percent(30) ? a.phone + 1 : 0;
            a.mail = reachable && random_.percent(60);
            a.web = i == 0 && random_.percent(35);
        }
    }

  public:
    // A later version of the business, as an office receives it again: renamed, moved, a
    // person joined or left. The new person's number lies beyond any the plan gives out.
    static void change(BusinessPlan& b, Random& random, unsigned round) {
        b.name += round % 2 ? " Nord" : " Süd";
        b.name += std::to_string(round);
        AddressPlan& site = b.addresses[0];
        site.street = (site.street + 1 + static_cast<int>(random.below(5))) %
                      static_cast<int>(std::size(kStreets));
        site.houseNumber = static_cast<int>(random.between(1, 150));
        const bool sole = b.personCount == 1 && !b.legal[0];
        if (!sole && b.personCount > 2 && random.percent(50)) {
            --b.personCount;
        } else if (b.personCount < 3 && !sole) {
            PersonPlan& p = b.persons[b.personCount];
            p = b.persons[b.personCount - 1];
            p.number = 900000000 + b.number * 10 + static_cast<long>(round % 10);
            p.firstName = static_cast<int>(random.below(std::size(kMaleNames)));
            p.female = false;
            p.birthSurname = -1;
            b.legal[b.personCount] = false;
            b.function[b.personCount] =
                b.function[b.personCount - 1] == '4' ? '3' : b.function[b.personCount - 1];
            b.entryDay[b.personCount] = b.entryDay[b.personCount - 1];
            ++b.personCount;
        }
    }

  private:
    static constexpr int kRingSize = 64;
    Random random_;
    long personCounter_ = 0;
    PersonPlan ring_[kRingSize];
    int ringSize_ = 0;
    int ringNext_ = 0;
};

// ---------------------------------------------------------------------------------------
// The writer: lines gathered in one buffer that is converted and written out in large
// chunks, always at a line end.

class FileWriter {
  public:
    explicit FileWriter(std::ostream& out) : out_(out) { buffer_.reserve(kChunk + kChunk / 4); }

    void line(std::string_view text) {
        buffer_ += text;
        buffer_ += "\r\n";
    }

    // A field element, or nothing when the value is empty, as the export leaves out blank
    // fields.
    void field(std::string_view name, std::string_view value) {
        if (value.empty()) return;
        open(name);
        buffer_ += value;
        close(name);
    }
    // Head elements stand even when empty.
    void headField(std::string_view name, std::string_view value) {
        open(name);
        buffer_ += value;
        close(name);
    }
    void number(std::string_view name, long value) {
        open(name);
        appendNumber(value);
        close(name);
    }
    // A number padded with zeros to a fixed width, as keys are written.
    void key(std::string_view name, long value, int width) {
        open(name);
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        const int length = static_cast<int>(end - digits);
        if (length < width) buffer_.append(static_cast<std::size_t>(width - length), '0');
        buffer_.append(digits, end);
        close(name);
    }
    void date(std::string_view name, long day) {
        if (day == 0) return;
        open(name);
        appendDate(buffer_, day);
        close(name);
    }

    // For values composed of several pieces: open, append to text(), close.
    void open(std::string_view name) {
        buffer_ += '<';
        buffer_ += name;
        buffer_ += '>';
    }
    void close(std::string_view name) {
        buffer_ += "</";
        buffer_ += name;
        buffer_ += ">\r\n";
    }
    std::string& text() { return buffer_; }
    void appendNumber(long value) {
        char digits[24];
        buffer_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    }

    void flushIfFull() {
        if (buffer_.size() >= kChunk) flush();
    }

    // The word lists are UTF-8 and hold only characters of Latin-1, which Windows-1252
    // shares: each two-byte sequence becomes the one byte of its code point.
    void flush() {
        std::size_t to = 0;
        for (std::size_t from = 0; from < buffer_.size(); ++from) {
            const auto c = static_cast<unsigned char>(buffer_[from]);
            if (c < 0x80) {
                buffer_[to++] = static_cast<char>(c);
            } else if ((c == 0xC2 || c == 0xC3) && from + 1 < buffer_.size()) {
                const auto next = static_cast<unsigned char>(buffer_[++from]);
                buffer_[to++] = static_cast<char>(((c & 0x03) << 6) | (next & 0x3F));
            } else {
                throw std::logic_error("Zeichen außerhalb von Windows-1252 in den Wortlisten");
            }
        }
        out_.write(buffer_.data(), static_cast<std::streamsize>(to));
        buffer_.clear();
    }

  private:
    static constexpr std::size_t kChunk = std::size_t{1} << 20;
    std::ostream& out_;
    std::string buffer_;
};

// ---------------------------------------------------------------------------------------
// Writing one state of a business in the order of the export.

enum class Notice { Registration, Change, Deregistration };

struct State {
    int historyNumber;
    Notice notice;
    long noticeDay;
};

void writePhone(FileWriter& w, const char* dialField, const char* numberField, const char* dialCode,
                long number) {
    if (number == 0) return;
    w.field(dialField, dialCode);
    w.number(numberField, number);
}

void writeAddress(FileWriter& w, const BusinessPlan& b, const AddressPlan& a) {
    static constexpr const char* kKinds[] = {"", "Betriebsstätte", "Hauptniederlassung",
                                             "Zweigniederlassung", "Frühere Betriebsstätte"};
    static constexpr const char* kOpenTags[] = {"", "<adresse art=\"1\">", "<adresse art=\"2\">",
                                                "<adresse art=\"3\">", "<adresse art=\"4\">"};
    const Place& place = kPlaces[a.place];
    w.line(kOpenTags[a.kind]);
    w.number("b-adr-art", a.kind);
    w.field("b-adr-art-text", kKinds[a.kind]);
    w.field("b-strasse", kStreets[a.street]);
    w.open("b-hausnr-von");
    w.appendNumber(a.houseNumber);
    if (a.houseSuffix) w.text() += a.houseSuffix;
    w.close("b-hausnr-von");
    w.field("b-plz", place.plz);
    w.field("b-ort", place.name);
    w.field("b-land-text", "Deutschland");
    writePhone(w, "b-tel-vw", "b-tel-nr", place.dialCode, a.phone);
    writePhone(w, "b-fax-vw", "b-fax-nr", place.dialCode, a.fax);
    if (a.mail) {
        w.open("b-email");
        w.text().append(a.kind == 1 ? "info@" : a.kind == 2 ? "zentrale@" : "filiale@");
        w.text().append(b.mailDomain);
        w.close("b-email");
    }
    if (a.web) {
        w.open("b-homepage");
        w.text().append("www.").append(b.mailDomain);
        w.close("b-homepage");
    }
    w.line("</adresse>");
}

void writeNaturalPerson(FileWriter& w, const BusinessPlan& b, const PersonPlan& p,
                        const Trade& trade) {
    const Place& home = kPlaces[p.place];
    const char* firstName = p.female ? kFemaleNames[p.firstName] : kMaleNames[p.firstName];
    const Nationality* foreign = p.nationality >= 0 ? &kForeign[p.nationality] : nullptr;
    w.key("pers-nr", p.number, 12);
    w.field("p-art", "NP");
    if (p.sideline) w.field("p-nebenerwerb", "ja");
    w.field("fam-name", kSurnames[p.surname]);
    w.field("vornamen", firstName);
    if (p.birthSurname >= 0 && p.birthSurname != p.surname)
        w.field("geb-name", kSurnames[p.birthSurname]);
    if (p.title >= 0) w.field("namenstitel-text", kTitles[p.title]);
    w.field("geschlecht", p.female ? "weiblich" : "männlich");
    w.date("geb-datum", p.birthDay);
    w.field("geb-ort", foreign ? foreign->birthPlace : kPlaces[p.birthPlace].name);
    w.field("geb-land", foreign ? foreign->birthCountry : "Deutschland");
    w.field("p-strasse", kStreets[p.street]);
    w.number("p-hausnr-von", p.houseNumber);
    w.field("p-plz", home.plz);
    w.field("p-ort", home.name);
    w.field("p-land-text", "Deutschland");
    writePhone(w, "p-tel-vw", "p-tel-nr",
               p.mobilePrefix >= 0 ? kMobilePrefixes[p.mobilePrefix] : home.dialCode, p.phone);
    if (p.mailProvider >= 0) {
        w.open("p-email");
        appendSlug(w.text(), firstName);
        w.text() += '.';
        appendSlug(w.text(), kSurnames[p.surname]);
        w.text().append("@").append(kMailProviders[p.mailProvider]);
        w.close("p-email");
    }
    if (foreign && foreign->needsResidencePermit && !p.alsoGerman) {
        w.field("aufenth-vor", p.residencePermitDay == kUnlimitedDate ? "Niederlassungserlaubnis"
                                                                      : "Aufenthaltserlaubnis");
        w.date("aufenth-datum", p.residencePermitDay);
        w.field("aufenth-auflage", "Selbständige Erwerbstätigkeit gestattet");
        w.field("aufenth-behoerde", "Ausländerbehörde");
        w.field("aufenth-plz", home.plz);
        w.field("aufenth-ort", home.name);
    }
    if (p.certificateDay) {
        w.date("fzeug-datum", p.certificateDay);
        w.date("p-gzr-ausk-datum", p.certificateDay + 2);
    }

    w.line("<staatsangehoerigkeiten>");
    if (!foreign || p.alsoGerman) {
        w.line("<staatsangehoerigkeit>");
        w.headField("staat-text", kGerman);
        w.headField("staat-schl", kGermanKey);
        w.line("</staatsangehoerigkeit>");
    }
    if (foreign) {
        w.line("<staatsangehoerigkeit>");
        w.headField("staat-text", foreign->text);
        w.headField("staat-schl", foreign->key);
        w.line("</staatsangehoerigkeit>");
    }
    w.line("</staatsangehoerigkeiten>");

    const Region region = kPlaces[b.place].region;
    if (trade.personPermit) {
        const Institution& office = kTradeChambers[static_cast<int>(region)];
        w.line("<p-erlaubnisse>");
        w.line("<p-erlaubnis>");
        w.field("p-erl-art", trade.personPermit);
        w.field("p-erl-status", "erteilt");
        w.date("p-erl-datum", p.permitDay);
        w.field("p-erl-behoerde", office.name);
        w.field("p-erl-plz", office.plz);
        w.field("p-erl-ort", office.town);
        w.field("p-erl-relevant", "ja");
        w.line("</p-erlaubnis>");
        w.line("</p-erlaubnisse>");
    }
    if (trade.craftKey && trade.craftKey[0] == 'A' && p.masterDay) {
        const Institution& chamber = kCraftChambers[static_cast<int>(region)];
        w.line("<p-handwerkskarten>");
        w.line("<p-handwerkskarte>");
        w.field("p-hwk-schl", trade.craftKey);
        w.open("p-hwk-art");
        w.text().append("Meisterprüfung (").append(trade.craftName).append(")");
        w.close("p-hwk-art");
        w.field("p-hwk-status", "bestanden");
        w.date("p-hwk-datum", p.masterDay);
        w.field("p-hwk-behoerde", chamber.name);
        w.field("p-hwk-plz", chamber.plz);
        w.field("p-hwk-ort", chamber.town);
        w.field("p-hwk-relevant", "ja");
        w.line("</p-handwerkskarte>");
        w.line("</p-handwerkskarten>");
    }
}

// "HRB 1234 FL": section, number and the court's town code.
void writeRegisterEntry(FileWriter& w, const char* name, std::string_view section,
                        const Institution& court, long number) {
    w.open(name);
    w.text().append(section).append(" ");
    w.appendNumber(number);
    w.text().append(" ").append(court.town);
    w.close(name);
}

// "Handelsregister Abteilung B" or "Genossenschaftsregister".
void writeRegisterKind(FileWriter& w, const char* name, std::string_view section) {
    w.open(name);
    if (section == "GnR") {
        w.text() += "Genossenschaftsregister";
    } else {
        w.text() += "Handelsregister Abteilung ";
        w.text() += section.back();
    }
    w.close(name);
}

void writeLegalPerson(FileWriter& w, const BusinessPlan& b, int slot) {
    const PersonPlan& p = b.persons[slot];
    const LegalForm& form = kLegalForms[b.legalForm];
    const Place& place = kPlaces[b.place];
    const Institution& court = kRegisterCourts[static_cast<int>(place.region)];
    const bool generalPartner = form.owner == Owner::CompanyAndCoKg;
    w.key("pers-nr", p.number, 12);
    w.field("p-art", "JP");
    w.field("p-strasse", kStreets[b.addresses[0].street]);
    w.number("p-hausnr-von", b.addresses[0].houseNumber);
    w.field("p-plz", place.plz);
    w.field("p-ort", place.name);
    w.field("p-land-text", "Deutschland");
    w.open("p-eintr-name");
    if (generalPartner) {
        w.text().append(kSurnames[b.persons[1].surname]).append(" Verwaltungs-GmbH");
    } else {
        w.text() += b.name;
    }
    w.close("p-eintr-name");
    w.field("p-rechtsform-text", generalPartner ? kGmbhText : form.text);
    w.number("p-zahl-vertreter", b.personCount - 1);
    const char* section = generalPartner ? "HRB" : form.registerSection;
    w.field("p-reg-schl", section);
    writeRegisterKind(w, "p-reg-art-text", section);
    w.field("p-reg-plz", court.plz);
    w.field("p-reg-ort", court.name);
    writeRegisterEntry(w, "p-eintr-nr", section, court,
                       generalPartner ? b.companyNumber : b.registerNumber);
    w.date("p-reg-datum", b.registerDay - (generalPartner ? 20 : 0));
}

void writeNotice(FileWriter& w, const BusinessPlan& b, Notice notice) {
    switch (notice) {
        case Notice::Registration:
            w.field("meld-art", "01");
            w.field("meld-art-text", "Anmeldung");
            w.field("meld-grund-text", kRegistrationReasons[b.registrationReason]);
            break;
        case Notice::Change:
            w.field("meld-art", "02");
            w.field("meld-art-text", "Ummeldung");
            w.field("meld-grund-text", kChangeReasons[b.changeReason]);
            break;
        case Notice::Deregistration:
            w.field("meld-art", "03");
            w.field("meld-art-text", "Abmeldung");
            w.field("meld-grund-text", kDeregistrationReasons[b.deregistrationReason]);
            break;
    }
}

// The business's own fields, before its sub-sections.
void writeBusinessFields(FileWriter& w, const BusinessPlan& b, const State& s) {
    const LegalForm& form = kLegalForms[b.legalForm];
    const Trade& trade = kTrades[b.trade];
    const Place& place = kPlaces[b.place];
    const Region region = place.region;
    const bool ended = s.notice == Notice::Deregistration;
    w.field("b-eintr-name", b.name);
    w.field("b-rechtsform", form.key);
    w.field("b-rechtsform-text", form.text);
    if (b.remark >= 0) w.field("b-bemerkung", kRemarks[b.remark]);
    w.field("b-nebenerwerb", b.sideline ? "ja" : "nein");
    w.field("betr-art-text", trade.kind);
    w.field("selbst-grad-text", "Hauptniederlassung");
    w.date("betr-beginn", b.beginDay);
    if (ended) w.date("betr-ende", b.endDay);
    w.date("anzeige-datum", s.noticeDay);
    w.date("meld-datum", s.noticeDay);
    writeNotice(w, b, s.notice);
    w.field("daten-weit", b.number % 9 == 4 ? "nein" : "ja");
    w.number("besch-zahl-vollzeit", b.fullTime);
    w.number("besch-zahl-teilzeit", b.partTime);
    if (form.owner == Owner::Company || form.owner == Owner::CompanyAndCoKg) {
        const PersonPlan& agent = b.persons[1];
        w.number("zahl-vertreter", b.personCount - 1);
        w.field("vertreter-nname", kSurnames[agent.surname]);
        w.field("vertreter-vname",
                agent.female ? kFemaleNames[agent.firstName] : kMaleNames[agent.firstName]);
    }
    const bool takeover = (s.notice == Notice::Registration && b.registrationReason == 3) ||
                          (ended && b.deregistrationReason == 3);
    if (takeover) {
        w.open("inhaber-bname");
        w.text().append(kSurnames[b.previousOwnerSurname]).append(", ");
        w.text().append(kMaleNames[b.previousOwnerFirstName]);
        w.close("inhaber-bname");
    }
    if (form.registerSection) {
        const Institution& court = kRegisterCourts[static_cast<int>(region)];
        const std::string_view section = form.registerSection;
        w.field("b-reg-schl", section);
        writeRegisterKind(w, "b-reg-art-text", section);
        w.field("b-reg-plz", court.plz);
        w.field("b-reg-ort", court.name);
        writeRegisterEntry(w, "b-eintr-nr", section, court, b.registerNumber);
        w.date("b-reg-datum", b.registerDay);
    }
    w.field("schluesselfeld", place.name);
}

void writeActivities(FileWriter& w, const BusinessPlan& b, const State& s, const Trade& trade) {
    const bool ended = s.notice == Notice::Deregistration;
    w.line("<taetigkeiten>");
    for (int i = 0; i < b.activityCount; ++i) {
        w.line("<taetigkeit>");
        w.field("tk-schl", trade.activities[i].key);
        w.field("tk-originaltext", trade.activities[i].text);
        w.date("tk-beginn", b.activityBegin[i]);
        if (ended) w.date("tk-ende", b.endDay);
        w.field("tk-schwerp", i == 0 ? "1" : "0");
        if (s.notice == Notice::Change) w.field("tk-ummeldung", i == 0 ? "2" : "1");
        w.line("</taetigkeit>");
    }
    w.line("</taetigkeiten>");
}

void writeBusinessCraftCard(FileWriter& w, const BusinessPlan& b, const Trade& trade, Region region,
                            bool ended) {
    if (!trade.craftKey) return;
    {
        const Institution& chamber = kCraftChambers[static_cast<int>(region)];
        w.line("<b-handwerkskarten>");
        w.line("<b-handwerkskarte>");
        w.field("b-hwk-schl", trade.craftKey);
        w.open("b-hwk-art");
        w.text().append(trade.craftKey[0] == 'A'
                            ? "Eintragung in die Handwerksrolle ("
                            : "Eintragung in das Verzeichnis zulassungsfreier Handwerke (");
        w.text().append(trade.craftName).append(")");
        w.close("b-hwk-art");
        w.field("b-hwk-status", ended ? "gelöscht" : "eingetragen");
        w.date("b-hwk-datum", b.beginDay - 10);
        w.field("b-hwk-behoerde", chamber.name);
        w.field("b-hwk-plz", chamber.plz);
        w.field("b-hwk-ort", chamber.town);
        w.line("</b-handwerkskarte>");
        w.line("</b-handwerkskarten>");
    }
}

void writeBusinessPermit(FileWriter& w, const BusinessPlan& b, const Trade& trade,
                         const Place& place, bool ended) {
    if (!trade.permit) return;
    {
        w.line("<b-erlaubnisse>");
        w.line("<b-erlaubnis>");
        w.field("b-erl-art", trade.permit);
        w.field("b-erl-status", ended ? "erloschen" : "erteilt");
        w.date("b-erl-datum", b.beginDay - 5);
        if (trade.issuer == Issuer::TradeChamber) {
            const Institution& chamber = kTradeChambers[static_cast<int>(place.region)];
            w.field("b-erl-behoerde", chamber.name);
            w.field("b-erl-plz", chamber.plz);
            w.field("b-erl-ort", chamber.town);
        } else {
            w.open("b-erl-behoerde");
            w.text().append("Ordnungsamt ").append(place.name);
            w.close("b-erl-behoerde");
            w.field("b-erl-plz", place.plz);
            w.field("b-erl-ort", place.name);
        }
        w.line("</b-erlaubnis>");
        w.line("</b-erlaubnisse>");
    }
}

void writeBusinessState(FileWriter& w, const BusinessPlan& b, const State& s) {
    const Trade& trade = kTrades[b.trade];
    const Place& place = kPlaces[b.place];
    const bool ended = s.notice == Notice::Deregistration;

    w.line("<betrieb>");
    w.headField("gem-kz", place.gemKz);
    w.key("betr-nr", b.number, 12);
    w.number("betr-hist-nr", s.historyNumber);
    writeBusinessFields(w, b, s);

    if (ended && b.furtherReasons[0] >= 0) {
        w.line("<meld-gruende-sonst>");
        for (int reason : b.furtherReasons) {
            if (reason < 0) continue;
            w.line("<meld-grund-sonst>");
            w.field("meld-grund-sonst-text", kFurtherReasons[reason]);
            w.line("</meld-grund-sonst>");
        }
        w.line("</meld-gruende-sonst>");
    }

    w.line("<adressen>");
    for (int i = 0; i < b.addressCount; ++i) writeAddress(w, b, b.addresses[i]);
    w.line("</adressen>");

    writeActivities(w, b, s, trade);
    writeBusinessCraftCard(w, b, trade, place.region, ended);
    writeBusinessPermit(w, b, trade, place, ended);

    w.line("<personen>");
    for (int i = 0; i < b.personCount; ++i) {
        w.line("<person>");
        const char function[2] = {b.function[i], 0};
        w.headField("p-funktion", function);
        w.date("p-eintr-datum", b.entryDay[i]);
        if (b.legal[i])
            writeLegalPerson(w, b, i);
        else
            writeNaturalPerson(w, b, b.persons[i], trade);
        w.line("</person>");
    }
    w.line("</personen>");
    w.line("</betrieb>");
}

// The states of one business: a registration, changes, and at last a deregistration if
// the business has ended. A single state shows how the business stands now.
void writeBusiness(FileWriter& w, const BusinessPlan& b, int states) {
    const long last = b.deregistered ? b.endDay : kLatestNotice;
    for (int k = 1; k <= states; ++k) {
        State s{k, Notice::Change, 0};
        if (states == 1) {
            s.notice = b.deregistered ? Notice::Deregistration
                       : b.changed    ? Notice::Change
                                      : Notice::Registration;
        } else if (k == 1) {
            s.notice = Notice::Registration;
        } else if (k == states && b.deregistered) {
            s.notice = Notice::Deregistration;
        }
        if (s.notice == Notice::Registration)
            s.noticeDay = b.beginDay - 7;
        else if (s.notice == Notice::Deregistration)
            s.noticeDay = b.endDay;
        else
            s.noticeDay = b.beginDay + (last - b.beginDay) * (states == 1 ? 1 : k - 1) /
                                           (states == 1 ? 2 : states);
        writeBusinessState(w, b, s);
    }
}

void writeHead(FileWriter& w, const GeneratorOptions& options) {
    w.line("<gewerbedatei xmlns:tolmaML='http://www.tolma.de/tolma.htm'>");
    w.line("<verwaltungsblock>");
    w.headField("verarbeitungsart", "MIGRATION");
    w.headField("struktur", options.structure);
    w.headField("tml-version", "1.5.1");
    // A fixed creation stamp keeps the output a function of the options alone.
    w.open("erstelldatum");
    appendDate(w.text(), kExportDay);
    w.close("erstelldatum");
    w.headField("erstellzeit", "12.00.00");
    w.headField("ersteller", "Testdatenerzeugung");
    w.headField("ersteller-id", "tolma-generate-tml");
    w.headField("erstellquelle", "MIGRATION ACCESS");
    w.headField("ersteller-email", "");
    w.open("berichts-zeitraum-von");
    appendDate(w.text(), kEarliestBegin);
    w.close("berichts-zeitraum-von");
    w.open("berichts-zeitraum-bis");
    appendDate(w.text(), kExportDay);
    w.close("berichts-zeitraum-bis");
    w.number("zahl-betriebe-gesamt", options.businesses * options.historyStates);
    w.line("<gemeinden>");
    w.line("<gemeinde>");
    w.headField("gem-name", "Schleswig-Holstein");
    w.headField("gem-kz", "01000000");
    w.headField("gem-telefon", "");
    w.line("</gemeinde>");
    w.line("</gemeinden>");
    w.line("</verwaltungsblock>");
    w.line("<datenblock>");
}

}  // namespace

void writeTransferFile(std::ostream& out, const GeneratorOptions& options) {
    if (options.businesses < 0) throw std::invalid_argument("negative Anzahl Betriebe");
    // betr-hist-nr has room for four digits.
    if (options.historyStates < 1 || options.historyStates > 9999)
        throw std::invalid_argument("Anzahl Stände muss zwischen 1 und 9999 liegen");

    FileWriter writer(out);
    writeHead(writer, options);
    PlanMaker planner(options.seed);
    Random changes(options.seed * 7919u + options.changeRound);
    BusinessPlan plan;
    for (long i = 1; i <= options.businesses; ++i) {
        planner.makeBusiness(i, plan);
        if (options.changedEvery > 0 && i % options.changedEvery == 0)
            PlanMaker::change(plan, changes, options.changeRound);
        writeBusiness(writer, plan, options.historyStates);
        writer.flushIfFull();
    }
    writer.line("</datenblock>");
    writer.line("</gewerbedatei>");
    writer.flush();
}

}  // namespace tolma::bench

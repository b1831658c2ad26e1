#include "protection/disclosure_report.h"

#include <algorithm>

#include "print/printer.h"
#include "text/text.h"

namespace tolma::protection {
namespace {

constexpr double kIndent = 300;        // a row's fields under its title
constexpr double kValueColumn = 3300;  // where the values start, beyond the longest field name

// Lines go down the page; a line that would reach into the foot starts a new page first.
class Pages {
  public:
    explicit Pages(print::Printer& p) : p_(p) {}

    // Makes room for `lines` lines of the body font on this page, else turns the page.
    void keep(int lines) {
        if (p_.CurrentY() + lines * bodyLine() > bottom()) turn();
    }
    void line(double x, const std::string& s, double size, bool bold) {
        set(size, bold);
        keep(1);
        p_.setCurrentX(x);
        p_.Print(s);
        set(kBody, false);
    }
    // A field and its value, the value wrapped in its column.
    void fact(const std::string& field, const std::string& value) {
        set(kBody, false);
        const auto lines = wrapText(p_, value, p_.ScaleWidth() - kValueColumn);
        for (size_t i = 0; i < lines.size(); ++i) {
            keep(1);
            const double y = p_.CurrentY();
            if (i == 0 || p_.CurrentY() == 0) {
                p_.setCurrentX(kIndent);
                p_.Print(i == 0 ? field : field + " (Forts.)");
                p_.setCurrentY(y);
            }
            p_.setCurrentX(kValueColumn);
            p_.Print(lines[i]);
        }
    }
    void gap() {
        set(kBody, false);
        if (p_.CurrentY() > 0) p_.Print("");
    }
    void finish() {
        foot();
        p_.EndDoc();
    }

  private:
    static constexpr double kBody = 10;

    void set(double size, bool bold) { p_.font = print::Font{"Arial", size, bold, false}; }
    double bodyLine() const { return p_.TextHeight(); }
    // The foot takes the last two lines of the body font.
    double bottom() const {
        print::Font keepFont = p_.font;
        p_.font = print::Font{"Arial", kBody, false, false};
        const double b = p_.ScaleHeight() - 2 * p_.TextHeight();
        p_.font = keepFont;
        return b;
    }
    void foot() {
        const print::Font keepFont = p_.font;
        const double y = p_.CurrentY();
        p_.font = print::Font{"Arial", 9, false, false};
        const std::string page = "Seite " + std::to_string(p_.Page());
        p_.setCurrentY(p_.ScaleHeight() - p_.TextHeight());
        p_.setCurrentX(p_.ScaleWidth() - p_.TextWidth(page));
        p_.Print(page);
        p_.font = keepFont;
        p_.setCurrentY(y);
    }
    void turn() {
        foot();
        p_.NewPage();
    }

    print::Printer& p_;
};

void cut(const print::Printer& p, const std::string& word, double width,
         std::vector<std::string>& lines, std::string& current) {
    // A word wider than the column goes in pieces, character by character.
    size_t i = 0;
    while (i < word.size()) {
        const size_t start = i;
        text::nextCodePoint(word, i);
        const std::string ch = word.substr(start, i - start);
        if (!current.empty() && p.TextWidth(current + ch) > width) {
            lines.push_back(current);
            current.clear();
        }
        current += ch;
    }
}

}  // namespace

std::vector<std::string> wrapText(const print::Printer& p, const std::string& value, double width) {
    std::vector<std::string> lines;
    size_t from = 0;
    while (from <= value.size()) {
        const size_t end = std::min(value.find('\n', from), value.size());
        std::string paragraph = value.substr(from, end - from);
        if (!paragraph.empty() && paragraph.back() == '\r') paragraph.pop_back();
        std::string current;
        size_t at = 0;
        while (at < paragraph.size()) {
            const size_t blank = std::min(paragraph.find(' ', at), paragraph.size());
            const std::string word = paragraph.substr(at, blank - at);
            at = blank + 1;
            if (word.empty()) continue;
            const std::string joined = current.empty() ? word : current + " " + word;
            if (p.TextWidth(joined) <= width) {
                current = joined;
            } else if (p.TextWidth(word) <= width) {
                if (!current.empty()) lines.push_back(current);
                current = word;
            } else {
                if (!current.empty()) current += " ";
                cut(p, word, width, lines, current);
            }
        }
        lines.push_back(current);
        from = end + 1;
    }
    return lines;
}

void printDisclosure(print::Printer& p, const Disclosure& d) {
    Pages pages(p);
    pages.line(0, "Auskunft über gespeicherte Daten", 14, true);
    pages.gap();
    pages.fact("Datum der Auskunft", d.date);
    pages.fact("Personennummer", d.persNr);
    for (const auto& section : d.sections) {
        pages.gap();
        // A section's heading stays with its first row.
        pages.keep(3);
        pages.line(0, section.title, 12, true);
        if (section.groups.empty()) pages.line(kIndent, "keine gespeichert", 10, false);
        for (const auto& group : section.groups) {
            if (!group.title.empty()) {
                pages.keep(2);
                pages.line(kIndent / 2, group.title, 10, true);
            }
            for (const auto& f : group.facts) pages.fact(f.field, f.value);
        }
    }
    pages.finish();
}

}  // namespace tolma::protection

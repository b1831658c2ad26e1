#pragma once

#include <string>

// The old platform's Printer object, as the reports use it.
namespace tolma::print {

// Printer.Font: name, size in points, bold, underline.
struct Font {
    std::string name = "Arial";
    double size = 10;
    bool bold = false;
    bool underline = false;
};

// Positions and widths are in twips (1/1440 inch) on the printable area of the page, with the
// origin at its top left. Print writes a text at the current position in the current font and
// moves to the start of the next line. A backend supplies the page, the measure of text and the
// drawing; a failure of the device is thrown as a run-time error, which the reports trap.
class Printer {
  public:
    virtual ~Printer() = default;

    virtual double ScaleWidth() const = 0;
    virtual double ScaleHeight() const = 0;

    double CurrentX() const { return x_; }
    double CurrentY() const { return y_; }
    void setCurrentX(double x) { x_ = x; }
    void setCurrentY(double y) { y_ = y; }

    Font font;

    double TextWidth(const std::string& text) const { return measureText(text, font); }
    double TextHeight() const { return lineHeight(font); }

    // An empty text prints an empty line: it moves down all the same.
    void Print(const std::string& text) {
        drawText(text, x_, y_, font);
        x_ = 0;
        y_ += lineHeight(font);
    }
    void NewPage() {
        startNewPage();
        ++page_;
        x_ = y_ = 0;
    }
    // Ends the document; the next output starts a new one on page 1.
    void EndDoc() {
        endDocument();
        page_ = 1;
        x_ = y_ = 0;
    }
    int Page() const { return page_; }

  protected:
    virtual double measureText(const std::string& text, const Font& font) const = 0;
    virtual double lineHeight(const Font& font) const = 0;
    virtual void drawText(const std::string& text, double x, double y, const Font& font) = 0;
    virtual void startNewPage() = 0;
    virtual void endDocument() = 0;

  private:
    double x_ = 0, y_ = 0;
    int page_ = 1;
};

// The old printer error's number.
inline constexpr long kPrinterError = 482;

}  // namespace tolma::print

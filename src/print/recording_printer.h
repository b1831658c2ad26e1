#pragma once

#include <string>
#include <vector>

#include "print/printer.h"

namespace tolma::print {

// A printer for tests: it records every output with its position, font and page, and measures
// every font as "Courier New" does (a character is 0.6 of the size wide, a line 1.1328 high).
class RecordingPrinter : public Printer {
  public:
    enum class Kind { Print, NewPage, EndDoc };
    struct Call {
        Kind kind;
        std::string text;
        double x = 0, y = 0;
        Font font;
        int page = 1;
    };

    // An A4 sheet's printable area, about 19.4 by 27.9 cm.
    explicit RecordingPrinter(double scaleWidth = 11000, double scaleHeight = 15800)
        : width_(scaleWidth), height_(scaleHeight) {}

    double ScaleWidth() const override { return width_; }
    double ScaleHeight() const override { return height_; }

    static double characterWidth(double size) { return size * 12; }
    static double lineHeightOf(double size) { return size * 20 * 1.1328125; }

    std::vector<Call> calls;
    // Output number n (counted from 1) fails with the printer error; 0: none fails.
    int failAtPrint = 0;

    // The printed lines only, in their order.
    std::vector<Call> printed() const;
    // The first printed line with this text, or nullptr.
    const Call* find(const std::string& text) const;

  protected:
    double measureText(const std::string& text, const Font& font) const override;
    double lineHeight(const Font& font) const override { return lineHeightOf(font.size); }
    void drawText(const std::string& text, double x, double y, const Font& font) override;
    void startNewPage() override;
    void endDocument() override;

  private:
    double width_, height_;
    int prints_ = 0;
};

}  // namespace tolma::print

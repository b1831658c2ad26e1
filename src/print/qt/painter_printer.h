#pragma once

#include <QFont>
#include <QPainter>
#include <functional>
#include <memory>
#include <string>

#include "print/printer.h"

class QGuiApplication;
class QPagedPaintDevice;
class QPdfWriter;

namespace tolma::print {

// The printer painted with a QPainter on a paged device: a QPrinter chosen in the print dialog,
// or a QPdfWriter. The document begins with the first output and ends with EndDoc; twips are
// turned into the device's units by its resolution.
class PainterPrinter : public Printer {
  public:
    // The device must outlive the printer.
    explicit PainterPrinter(QPagedPaintDevice& device);
    ~PainterPrinter() override;
    PainterPrinter(const PainterPrinter&) = delete;
    PainterPrinter& operator=(const PainterPrinter&) = delete;

    double ScaleWidth() const override;
    double ScaleHeight() const override;

    // The Qt font for a font of the old system: "Courier New" is drawn with the metrically
    // equal "Liberation Mono", as the reports measure their lines in it.
    static QFont qtFont(const Font& font);

  protected:
    double measureText(const std::string& text, const Font& font) const override;
    double lineHeight(const Font& font) const override;
    void drawText(const std::string& text, double x, double y, const Font& font) override;
    void startNewPage() override;
    void endDocument() override;

  private:
    void begin();
    double toDeviceX(double twips) const;
    double toDeviceY(double twips) const;

    QPagedPaintDevice& device_;
    QPainter painter_;
};

// A4 with about the margins a printer leaves, so that lines fall as on paper; 7200 dots per
// inch, at which every whole point size is a whole number of dots and a font's widths are
// those of its design.
void setUpPdfPage(QPdfWriter& writer);

// A document that `paint` prints, as the bytes of a PDF file of A4 pages. Qt writes its files
// unchecked: the caller writes the bytes whole or not at all. Throws what the printing throws.
std::string paintPdf(const std::function<void(Printer&)>& paint);

// Painting text needs a QGuiApplication. Where none runs (the command line), this makes one on
// the "offscreen" platform, which needs no display; it lives as long as the returned pointer.
std::unique_ptr<QGuiApplication> ensureGuiApplication();

}  // namespace tolma::print

#include "print/qt/painter_printer.h"

#include <QBuffer>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPageLayout>
#include <QPageSize>
#include <QPagedPaintDevice>
#include <QPdfWriter>

#include "core/error_log.h"

namespace tolma::print {
namespace {

constexpr double kTwipsPerInch = 1440;

QString text(const std::string& s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

// Fonts of the old system and the metric-compatible families that stand in for them.
struct FontSubstitute {
    const char* name;
    const char* family;
    QFont::StyleHint hint;
};
constexpr FontSubstitute kSubstitutes[] = {
    {"Courier New", "Liberation Mono", QFont::Monospace},
    {"Arial", "Liberation Sans", QFont::SansSerif},
    {"Times New Roman", "Liberation Serif", QFont::Serif},
};

[[noreturn]] void printerError(const char* what) {
    throw core::RuntimeError(kPrinterError, std::string("Druckerfehler: ") + what);
}

}  // namespace

PainterPrinter::PainterPrinter(QPagedPaintDevice& device) : device_(device) {}

PainterPrinter::~PainterPrinter() {
    if (painter_.isActive()) painter_.end();
}

QFont PainterPrinter::qtFont(const Font& font) {
    QFont f;
    QStringList families{text(font.name)};
    for (const auto& s : kSubstitutes) {
        if (font.name == s.name) {
            families.prepend(s.family);
            f.setStyleHint(s.hint);
        }
    }
    f.setFamilies(families);
    f.setPointSizeF(font.size > 0 ? font.size : 1);
    f.setBold(font.bold);
    f.setUnderline(font.underline);
    // Widths must add up character by character, as the reports count them.
    f.setKerning(false);
    f.setHintingPreference(QFont::PreferNoHinting);
    return f;
}

double PainterPrinter::ScaleWidth() const {
    return device_.width() * kTwipsPerInch / device_.logicalDpiX();
}

double PainterPrinter::ScaleHeight() const {
    return device_.height() * kTwipsPerInch / device_.logicalDpiY();
}

double PainterPrinter::toDeviceX(double twips) const {
    return twips * device_.logicalDpiX() / kTwipsPerInch;
}

double PainterPrinter::toDeviceY(double twips) const {
    return twips * device_.logicalDpiY() / kTwipsPerInch;
}

double PainterPrinter::measureText(const std::string& s, const Font& font) const {
    const QFontMetricsF metrics(qtFont(font), &device_);
    return metrics.horizontalAdvance(text(s)) * kTwipsPerInch / device_.logicalDpiX();
}

double PainterPrinter::lineHeight(const Font& font) const {
    const QFontMetricsF metrics(qtFont(font), &device_);
    return metrics.height() * kTwipsPerInch / device_.logicalDpiY();
}

void PainterPrinter::begin() {
    if (painter_.isActive()) return;
    if (!painter_.begin(&device_))
        printerError("Der Drucker oder die Datei kann nicht beschrieben werden.");
}

void PainterPrinter::drawText(const std::string& s, double x, double y, const Font& font) {
    begin();
    const QFont f = qtFont(font);
    painter_.setFont(f);
    // The position is the top of the line; Qt draws on the baseline.
    const QFontMetricsF metrics(f, &device_);
    if (!s.empty())
        painter_.drawText(QPointF(toDeviceX(x), toDeviceY(y) + metrics.ascent()), text(s));
}

void PainterPrinter::startNewPage() {
    begin();
    if (!device_.newPage()) printerError("Eine neue Seite konnte nicht begonnen werden.");
}

void PainterPrinter::endDocument() {
    if (painter_.isActive() && !painter_.end())
        printerError("Das Dokument konnte nicht abgeschlossen werden.");
}

void setUpPdfPage(QPdfWriter& writer) {
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageMargins(QMarginsF(5, 5, 5, 5), QPageLayout::Millimeter);
    writer.setResolution(7200);
    writer.setCreator("TOLMA_4x_Access");
}

namespace {
QtMessageHandler qtHandler = nullptr;

// Without a desktop session Qt notes that it makes a runtime directory of its own; on the
// command line that notice is noise.
void quietHandler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.contains(QLatin1String("XDG_RUNTIME_DIR"))) return;
    if (qtHandler) qtHandler(type, context, message);
}
}  // namespace

std::unique_ptr<QGuiApplication> ensureGuiApplication() {
    if (QCoreApplication::instance()) return nullptr;
    if (!qtHandler) qtHandler = qInstallMessageHandler(quietHandler);
    // Qt keeps argc and argv for the application's life and takes "-platform" out of them.
    static int argc;
    static char program[] = "tolma-cli", option[] = "-platform", platform[] = "offscreen";
    static char* argv[4];
    argc = 3;
    argv[0] = program;
    argv[1] = option;
    argv[2] = platform;
    argv[3] = nullptr;
    return std::make_unique<QGuiApplication>(argc, argv);
}

std::string paintPdf(const std::function<void(Printer&)>& paint) {
    const auto app = ensureGuiApplication();
    QByteArray document;
    {
        QBuffer buffer(&document);
        buffer.open(QIODevice::WriteOnly);
        QPdfWriter writer(&buffer);
        setUpPdfPage(writer);
        PainterPrinter printer(writer);
        paint(printer);
    }
    return std::string(document.constData(), static_cast<size_t>(document.size()));
}

}  // namespace tolma::print

#include "print/qt/evaluation_paint.h"

#include <QBuffer>
#include <QImage>
#include <QPagedPaintDevice>
#include <QPainter>
#include <QPdfWriter>
#include <algorithm>
#include <cmath>
#include <vector>

#include "core/output_file.h"

namespace tolma::print {
namespace {

const QColor kAn(25, 55, 110), kAb(225, 110, 60), kSaldo(0, 0, 0);

// The deregistrations' bar: its colour with a dark hatching, a cue that needs no colour vision.
void fillDeregistrations(QPainter& p, const QRectF& bar) {
    p.fillRect(bar, kAb);
    p.fillRect(bar, QBrush(QColor(60, 20, 0), Qt::BDiagPattern));
}

QString q(const std::string& s) {
    return QString::fromStdString(s);
}

// The three series' keys in a row from `at`, each drawn as the chart draws it.
void paintLegend(QPainter& p, QPointF at) {
    const QFontMetricsF fm(p.font());
    double lx = at.x();
    for (const auto& [color, text] :
         {std::pair{kAn, QString("Anmeldungen")}, std::pair{kAb, QString("Abmeldungen")},
          std::pair{kSaldo, QString("Saldo")}}) {
        const QRectF key(lx, at.y() + 2, fm.height() * 0.8, fm.height() * 0.8);
        if (color == kAb) {
            fillDeregistrations(p, key);
        } else if (color == kSaldo) {  // a piece of the line
            p.setPen(QPen(kSaldo, std::max(1.5, fm.height() / 8)));
            p.drawLine(QPointF(key.left(), key.center().y()),
                       QPointF(key.right(), key.center().y()));
            p.setBrush(kSaldo);
            p.drawEllipse(key.center(), 2.5, 2.5);
            p.setBrush(Qt::NoBrush);
        } else {
            p.fillRect(key, color);
        }
        p.setPen(Qt::black);
        p.drawText(QPointF(lx + fm.height(), at.y() + fm.ascent()), text);
        lx += fm.height() * 1.4 + fm.horizontalAdvance(text) + 16;
    }
}

// The balance as a line with a dot per month. It stands on a white halo, so that it stays apart
// from the bars it crosses; where the months are narrow, a thin one, which must not hide them.
void paintBalance(QPainter& p, const QPolygonF& saldo, double width, double slot) {
    const double halo = width + std::min(2 * width, slot * 0.2);
    p.setPen(QPen(Qt::white, halo, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPolyline(saldo);
    for (const auto& point : saldo) p.drawEllipse(point, 3.5, 3.5);
    p.setPen(QPen(kSaldo, width));
    p.setBrush(kSaldo);
    p.drawPolyline(saldo);
    for (const auto& point : saldo) p.drawEllipse(point, 2.5, 2.5);
}

}  // namespace

ChartColors chartColors() {
    return {Qt::white, kAn, kAb, kSaldo};
}

void paintEvaluationChart(QPainter& p, const QRectF& area, const evaluation::Result& r) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const QFontMetricsF fm(p.font());
    const double legend = fm.height() * 1.6, axis = fm.height() * 2.2,
                 left = fm.horizontalAdvance("-00000") + 8;
    const QRectF plot(area.left() + left, area.top() + legend, area.width() - left - 8,
                      area.height() - legend - axis);
    long top = 1, bottom = 0;
    for (const auto& [month, c] : r.months) {
        top = std::max({top, c.anmeldungen, c.abmeldungen, c.saldo()});
        bottom = std::min(bottom, c.saldo());
    }
    auto y = [&](double v) {
        return plot.bottom() - (v - bottom) / double(top - bottom) * plot.height();
    };

    paintLegend(p, QPointF(plot.left(), area.top()));
    const long step = std::max(1L, (top - bottom) / 5);
    p.setPen(QColor(220, 220, 220));
    for (long v = bottom - bottom % step; v <= top; v += step) {
        p.drawLine(QPointF(plot.left(), y(double(v))), QPointF(plot.right(), y(double(v))));
        p.setPen(Qt::black);
        p.drawText(QRectF(area.left(), y(double(v)) - fm.height() / 2, left - 6, fm.height()),
                   Qt::AlignRight | Qt::AlignVCenter, QString::number(v));
        p.setPen(QColor(220, 220, 220));
    }
    p.setPen(Qt::black);
    p.drawLine(QPointF(plot.left(), y(0)), QPointF(plot.right(), y(0)));

    // Bars side by side in each month's slot, and the balance as a line through their middles.
    const int n = std::max<int>(1, static_cast<int>(r.months.size()));
    const double slot = plot.width() / n, bar = slot * 0.35;
    QPolygonF saldo;
    for (int i = 0; i < static_cast<int>(r.months.size()); ++i) {
        const auto& [month, c] = r.months[static_cast<size_t>(i)];
        const double x = plot.left() + i * slot + slot * 0.15;
        p.fillRect(QRectF(QPointF(x, y(double(c.anmeldungen))), QPointF(x + bar, y(0))), kAn);
        fillDeregistrations(
            p, QRectF(QPointF(x + bar, y(double(c.abmeldungen))), QPointF(x + 2 * bar, y(0))));
        saldo << QPointF(x + bar, y(double(c.saldo())));
        const QString label = QString("%1/%2")
                                  .arg(month.month, 2, 10, QChar('0'))
                                  .arg(month.year % 100, 2, 10, QChar('0'));
        // Every month gets its label where there is room, else every second, third...
        const int every =
            std::max(1, static_cast<int>(std::ceil(fm.horizontalAdvance("00/00") * 1.3 / slot)));
        if (i % every == 0)
            p.drawText(QRectF(plot.left() + (i + 0.5) * slot - every * slot / 2, plot.bottom() + 4,
                              every * slot, fm.height()),
                       Qt::AlignHCenter, label);
    }
    paintBalance(p, saldo, std::max(1.5, fm.height() / 8), slot);
    p.restore();
}

namespace {

// Qt writes its files unchecked: the picture or document is made in memory and written whole.
// Evaluations hold counts only, no names: the files are readable as the umask allows.
void writeOutput(const std::string& path, const QByteArray& bytes) {
    if (bytes.isEmpty())
        throw core::RuntimeError(75, "Die Datei '" + path + "' konnte nicht erzeugt werden.");
    core::writeFileAtomically(
        path, std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())),
        core::FileAccess::Shared);
}

// The title and the period with the municipalities counted; returns where the table starts.
double printHeading(QPainter& p, QPagedPaintDevice& device, const QFont& font,
                    const evaluation::Result& r) {
    const QFontMetricsF fm(font, &device);
    double yPos = 0;
    QFont title = font;
    title.setBold(true);
    title.setPointSizeF(14);
    p.setFont(title);
    p.drawText(QPointF(0, yPos + QFontMetricsF(title, &device).ascent()),
               "Auswertung der Gewerbemeldungen");
    yPos += QFontMetricsF(title, &device).height() * 1.4;
    p.setFont(font);
    p.drawText(QPointF(0, yPos + fm.ascent()), "Zeitraum: " + q(evaluation::periodText(r.query)) +
                                                   ", " + q(evaluation::scopeText(r.query)));
    return yPos + fm.height() * 2;
}

}  // namespace

void saveEvaluationChart(const std::string& path, const evaluation::Result& r) {
    QImage image(1000, 480, QImage::Format_RGB32);
    image.fill(Qt::white);
    {
        QPainter p(&image);
        QFont font("DejaVu Sans");
        font.setPixelSize(13);
        p.setFont(font);
        paintEvaluationChart(p, QRectF(10, 10, 980, 460), r);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG")) bytes.clear();
    writeOutput(path, bytes);
}

void printEvaluation(QPagedPaintDevice& device, const evaluation::Result& r) {
    QPainter p(&device);
    const QRectF page(0, 0, device.width(), device.height());
    QFont font("Liberation Sans");
    font.setPointSizeF(10);
    p.setFont(font);
    QFontMetricsF fm(p.font(), &device);
    double yPos = printHeading(p, device, font, r);

    // The table: the group's name, then the five counts right-aligned, each count's column as
    // wide as its heading needs, the name's column the rest of the page. A name longer than that
    // wraps onto further lines, so that a section stands whole as the classification names it.
    const QStringList heads = {QString(evaluation::groupingCaption(r.query.grouping)),
                               "Anmeldungen",
                               "Ummeldungen",
                               "Abmeldungen",
                               "Saldo",
                               "Nebenerwerb"};
    QFont boldFont = font;
    boldFont.setBold(true);
    const QFontMetricsF bold(boldFont, &device);
    std::vector<double> numbers;
    double nameWidth = page.width();
    for (int i = 1; i < heads.size(); ++i) {
        numbers.push_back(
            std::max(bold.horizontalAdvance(heads[i]), bold.horizontalAdvance("-000.000")) +
            fm.height());
        nameWidth -= numbers.back();
    }
    const int wrap = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap;
    auto row = [&](const QStringList& cells, bool isBold) {
        p.setFont(isBold ? boldFont : font);
        const QFontMetricsF& metrics = isBold ? bold : fm;
        const QRectF nameBox(0, 0, nameWidth - fm.height() / 2, page.height());
        const double height =
            std::max(metrics.boundingRect(nameBox, wrap, cells[0]).height(), metrics.height());
        if (yPos + height > page.height() - fm.height() && yPos > 0) {
            device.newPage();
            yPos = 0;
        }
        p.drawText(nameBox.translated(0, yPos), wrap, cells[0]);
        double x = nameWidth;
        for (int i = 1; i < cells.size(); ++i) {
            const double w = numbers[static_cast<size_t>(i - 1)];
            p.drawText(QRectF(x, yPos, w, metrics.height()), Qt::AlignRight | Qt::AlignVCenter,
                       cells[i]);
            x += w;
        }
        yPos += height + fm.height() * 0.2;
        // A hairline between the lines tells where a wrapped name ends.
        p.setPen(QColor(200, 200, 200));
        p.drawLine(QPointF(0, yPos - fm.height() * 0.1),
                   QPointF(page.width(), yPos - fm.height() * 0.1));
        p.setPen(Qt::black);
    };
    row(heads, true);
    auto counts = [](const std::string& name, const evaluation::Counts& c) {
        return QStringList{q(name),
                           q(evaluation::germanNumber(c.anmeldungen)),
                           q(evaluation::germanNumber(c.ummeldungen)),
                           q(evaluation::germanNumber(c.abmeldungen)),
                           q(evaluation::germanNumber(c.saldo())),
                           q(evaluation::germanNumber(c.nebenerwerb))};
    };
    for (const auto& [name, c] : r.lines) row(counts(name, c), false);
    row(counts("Summe", r.sum), true);

    // The chart below the table, on a page of its own when too little room is left.
    const double chartHeight = page.height() / 3;
    if (page.height() - yPos < chartHeight + fm.height() * 2) {
        device.newPage();
        yPos = 0;
    }
    p.setFont(font);
    paintEvaluationChart(p, QRectF(0, yPos + fm.height(), page.width(), chartHeight), r);
}

void saveEvaluationPdf(const std::string& path, const evaluation::Result& r) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    {
        QPdfWriter writer(&buffer);
        writer.setPageSize(QPageSize(QPageSize::A4));
        writer.setPageMargins(QMarginsF(15, 15, 15, 15), QPageLayout::Millimeter);
        writer.setResolution(300);
        writer.setTitle("Auswertung der Gewerbemeldungen");
        printEvaluation(writer, r);
    }
    writeOutput(path, bytes);
}

}  // namespace tolma::print

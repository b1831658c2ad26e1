#pragma once

#include <QColor>
#include <QRectF>
#include <string>

#include "evaluation/evaluation.h"

class QPainter;
class QPagedPaintDevice;

// The evaluation drawn with Qt: the chart of notifications per month, and the page with the
// table and the chart for the printer or a PDF file.
namespace tolma::print {

// The chart's colours. The two bars differ by more than hue (their lightness differs at least
// threefold, and the deregistrations are hatched); the balance is a black line on a white halo.
struct ChartColors {
    QColor background, registrations, deregistrations, balance;
};
ChartColors chartColors();

// Grouped bars of the registrations and deregistrations per month, the balance as a line.
void paintEvaluationChart(QPainter& p, const QRectF& area, const evaluation::Result& r);
// Writes the chart as a PNG picture, whole or not at all; throws core::FileWriteError (or a
// core::RuntimeError when Qt makes no picture).
void saveEvaluationChart(const std::string& path, const evaluation::Result& r);
// The heading, the table and the chart on one page (more where the table needs them).
void printEvaluation(QPagedPaintDevice& device, const evaluation::Result& r);
// The same into a PDF file of A4 pages, whole or not at all; throws as saveEvaluationChart.
void saveEvaluationPdf(const std::string& path, const evaluation::Result& r);

}  // namespace tolma::print

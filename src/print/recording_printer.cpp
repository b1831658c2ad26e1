#include "print/recording_printer.h"

#include "core/error_log.h"
#include "model/values.h"

namespace tolma::print {

std::vector<RecordingPrinter::Call> RecordingPrinter::printed() const {
    std::vector<Call> out;
    for (const auto& c : calls)
        if (c.kind == Kind::Print) out.push_back(c);
    return out;
}

const RecordingPrinter::Call* RecordingPrinter::find(const std::string& text) const {
    for (const auto& c : calls)
        if (c.kind == Kind::Print && c.text == text) return &c;
    return nullptr;
}

double RecordingPrinter::measureText(const std::string& text, const Font& font) const {
    return static_cast<double>(model::characterCount(text)) * characterWidth(font.size);
}

void RecordingPrinter::drawText(const std::string& text, double x, double y, const Font& font) {
    if (++prints_ == failAtPrint) throw core::RuntimeError(kPrinterError, "Druckerfehler");
    calls.push_back({Kind::Print, text, x, y, font, Page()});
}

void RecordingPrinter::startNewPage() {
    calls.push_back({Kind::NewPage, {}, CurrentX(), CurrentY(), font, Page()});
}

void RecordingPrinter::endDocument() {
    calls.push_back({Kind::EndDoc, {}, CurrentX(), CurrentY(), font, Page()});
}

}  // namespace tolma::print

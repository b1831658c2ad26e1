#include "transfer/extract.h"

namespace tolma::transfer {

std::string_view contentOf(std::string_view line) {
    const size_t gt = line.find('>');
    const size_t a = gt == std::string_view::npos ? 0 : gt + 1;
    const size_t b = line.find('<', a);
    if (b == std::string_view::npos) return kKeinInhalt;
    std::string_view value = line.substr(a, b - a);
    if (value.find_first_not_of(' ') == std::string_view::npos) return kKeinInhalt;
    return value;
}

std::string_view nameOf(std::string_view line) {
    const size_t lt = line.find('<');
    const size_t a = lt == std::string_view::npos ? 0 : lt + 1;
    const size_t b = line.find('>', a);
    if (b == std::string_view::npos) return kKeinName;
    return line.substr(a, b - a);
}

std::string Upd_8_ExtrFeldInhalt(std::string_view line) {
    return std::string(contentOf(line));
}

std::string Upd_9_ExtrFeldInhalt(std::string_view line) {
    return std::string(nameOf(line));
}

}  // namespace tolma::transfer

#include "store/variant.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tolma::store {

Variant Variant::fromOptional(const std::optional<std::string>& text) {
    return text ? Variant(*text) : Variant();
}

std::string Variant::toString() const {
    if (const auto* s = std::get_if<std::string>(&v_)) return *s;
    if (const auto* i = std::get_if<long long>(&v_)) return std::to_string(*i);
    if (const auto* d = std::get_if<double>(&v_)) {
        if (std::floor(*d) == *d && std::fabs(*d) < 1e15) return std::to_string((long long)*d);
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.15g", *d);
        return buf;
    }
    return {};
}

std::optional<std::string> Variant::text() const {
    if (isNull()) return std::nullopt;
    return toString();
}

long long Variant::toInteger() const {
    if (const auto* i = std::get_if<long long>(&v_)) return *i;
    if (const auto* d = std::get_if<double>(&v_)) return static_cast<long long>(*d);
    if (const auto* s = std::get_if<std::string>(&v_)) return std::strtoll(s->c_str(), nullptr, 10);
    return 0;
}

double Variant::toReal() const {
    if (const auto* i = std::get_if<long long>(&v_)) return static_cast<double>(*i);
    if (const auto* d = std::get_if<double>(&v_)) return *d;
    if (const auto* s = std::get_if<std::string>(&v_)) return std::strtod(s->c_str(), nullptr);
    return 0;
}

bool Variant::toBool() const {
    if (const auto* s = std::get_if<std::string>(&v_)) {
        if (*s == "True" || *s == "Wahr") return true;
        return std::strtod(s->c_str(), nullptr) != 0;
    }
    return toReal() != 0;
}

}  // namespace tolma::store

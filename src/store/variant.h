#pragma once

#include <optional>
#include <string>
#include <variant>

namespace tolma::store {

// A field's value: Null, a whole number, a real number or a text (UTF-8).
class Variant {
  public:
    Variant() = default;
    Variant(std::string text) : v_(std::move(text)) {}
    Variant(const char* text) : v_(std::string(text)) {}
    Variant(long long number) : v_(number) {}
    Variant(int number) : v_(static_cast<long long>(number)) {}
    Variant(double number) : v_(number) {}
    // The engine's truth values: -1 for true, 0 for false.
    static Variant boolean(bool b) { return Variant(b ? -1LL : 0LL); }
    static Variant fromOptional(const std::optional<std::string>& text);

    bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
    bool isInteger() const { return std::holds_alternative<long long>(v_); }
    bool isReal() const { return std::holds_alternative<double>(v_); }
    bool isText() const { return std::holds_alternative<std::string>(v_); }

    // Text form; Null gives the empty text, as concatenation does.
    std::string toString() const;
    std::optional<std::string> text() const;
    // The text itself without a copy; null unless the value is a text.
    const std::string* textPointer() const { return std::get_if<std::string>(&v_); }
    // Number form; a text counts by its leading number, Null and other text as 0.
    long long toInteger() const;
    double toReal() const;
    // True for any number other than 0; a text that reads as a number counts by that number.
    bool toBool() const;

    bool operator==(const Variant& other) const = default;

  private:
    std::variant<std::monostate, long long, double, std::string> v_;
};

}  // namespace tolma::store

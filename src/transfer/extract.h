#pragma once

#include <string>
#include <string_view>

#include "core/globals.h"

namespace tolma::transfer {

inline constexpr const char* kKeinInhalt = "kein Inhalt";
inline constexpr const char* kKeinName = "kein Name";

// The value of a line "<name>value</name>": what stands between the first ">" and the next
// "<", not trimmed; "kein Inhalt" when there is none or it is only blanks.
std::string Upd_8_ExtrFeldInhalt(std::string_view line);
// The name: what stands between the first "<" and the next ">"; "kein Name" without one.
std::string Upd_9_ExtrFeldInhalt(std::string_view line);

// The same two without copying: views into the line, or onto the placeholder words.
std::string_view contentOf(std::string_view line);
// Whether a line begins with a tag; most lines differ from it in their second character,
// which is looked at first.
inline bool lineStartsWith(std::string_view line, std::string_view prefix) {
    return line.size() >= prefix.size() && line[1] == prefix[1] &&
           line.compare(0, prefix.size(), prefix) == 0;
}
std::string_view nameOf(std::string_view line);

}  // namespace tolma::transfer

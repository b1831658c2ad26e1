#pragma once

// The program's version record. Its minor number is the transfer format version that the
// import compares a file's <tml-version> with.
namespace tolma::core {

inline constexpr const char* kProductName = "TOLMA_4x_Access";
inline constexpr const char* kCompanyName =
    "Gewerbeamt – Schnittstellenprogramm für Gewerbemeldungen";
inline constexpr int kVersionMajor = 420;
inline constexpr int kVersionMinor = 151;
inline constexpr int kVersionRevision = 3;
inline constexpr const char* kVersionText = "420.151.3";
inline constexpr const char* kLegalLine =
    "Gemeindeverzeichnis: © Statistisches Bundesamt (Destatis), Datenlizenz Deutschland – "
    "Namensnennung – Version 2.0";

}  // namespace tolma::core

#pragma once

#include <string>
#include <string_view>

// Store paths that name a store on a PostgreSQL server instead of a file.
namespace tolma::store {

// True for a connection text: "postgresql://…", "postgres://…", "service=…", or a text of
// libpq keywords that names a database, host or service ("host=/run/x dbname=y"). A file
// path, however it is written, is none.
bool isServerText(std::string_view text);

// The server and database a connection text names, for captions and logs:
// "benutzer@rechner:5432/datenbank", "Dienst NAME". Never holds the password.
std::string describeServer(std::string_view text);

// The password a connection text carries, empty when none: messages are cleaned of it.
std::string passwordIn(std::string_view text);

}  // namespace tolma::store

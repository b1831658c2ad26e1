#include "store/server_address.h"

#include <libpq-fe.h>

#include <map>
#include <memory>
#include <optional>

namespace tolma::store {
namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool isUri(std::string_view text) {
    return startsWith(text, "postgresql://") || startsWith(text, "postgres://");
}

// The options libpq reads from the text; none when libpq does not understand it.
std::optional<std::map<std::string, std::string>> parse(std::string_view text) {
    char* message = nullptr;
    std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> options(
        PQconninfoParse(std::string(text).c_str(), &message), &PQconninfoFree);
    if (message) PQfreemem(message);
    if (!options) return std::nullopt;
    std::map<std::string, std::string> values;
    for (const PQconninfoOption* o = options.get(); o->keyword; ++o)
        if (o->val && *o->val) values[o->keyword] = o->val;
    return values;
}

std::string valueOf(const std::map<std::string, std::string>& values, const std::string& key) {
    auto it = values.find(key);
    return it == values.end() ? std::string() : it->second;
}

}  // namespace

bool isServerText(std::string_view text) {
    if (isUri(text) || startsWith(text, "service=")) return true;
    // A keyword text only when libpq reads it whole: a path with "host=" in a folder's name
    // has words without "=" and is refused.
    if (text.find('=') == std::string_view::npos) return false;
    const auto values = parse(text);
    return values && (values->count("dbname") || values->count("host") ||
                      values->count("hostaddr") || values->count("service"));
}

std::string describeServer(std::string_view text) {
    const auto values = parse(text);
    if (!values) return "Datenbankserver (Verbindungsangabe nicht lesbar)";
    const std::string service = valueOf(*values, "service");
    const std::string db = valueOf(*values, "dbname");
    if (!service.empty()) return "Dienst " + service + (db.empty() ? std::string() : "/" + db);
    std::string host = valueOf(*values, "host");
    if (host.empty()) host = valueOf(*values, "hostaddr");
    if (host.empty()) host = "lokal";
    const std::string user = valueOf(*values, "user");
    const std::string port = valueOf(*values, "port");
    std::string out = user.empty() ? host : user + "@" + host;
    if (!port.empty()) out += ":" + port;
    if (!db.empty()) out += "/" + db;
    return out;
}

std::string passwordIn(std::string_view text) {
    if (const auto values = parse(text)) return valueOf(*values, "password");
    // A text libpq cannot read: the user part of a URI up to "@" may still hold one.
    if (!isUri(text)) return {};
    const size_t start = text.find("://") + 3;
    const size_t at = text.find('@', start);
    const size_t end = text.find_first_of("/?", start);
    if (at == std::string_view::npos || (end != std::string_view::npos && end < at)) return {};
    const size_t colon = text.find(':', start);
    if (colon == std::string_view::npos || colon > at) return {};
    return std::string(text.substr(colon + 1, at - colon - 1));
}

}  // namespace tolma::store

#include "store/text_list.h"

namespace tolma::store {

std::string jsonArray(const std::vector<std::string>& texts) {
    std::string json = "[";
    for (const auto& t : texts) {
        if (json.size() > 1) json += ',';
        json += '"';
        for (const char ch : t) {
            const auto u = static_cast<unsigned char>(ch);
            if (ch == '"' || ch == '\\') {
                json += '\\';
                json += ch;
            } else if (u < 0x20) {
                static const char hex[] = "0123456789abcdef";
                json += "\\u00";
                json += hex[u >> 4];
                json += hex[u & 15];
            } else {
                json += ch;
            }
        }
        json += '"';
    }
    return json + "]";
}

}  // namespace tolma::store

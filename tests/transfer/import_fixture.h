#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "../core/core_fixture.h"
#include "model/codepage.h"
#include "transfer/import_driver.h"

namespace tolma::test {

// A transfer file as the writer writes it, with the parts a test wants to change.
struct TmlFile {
    std::string struktur = "BETRIEBSBEZOGEN";
    std::string version = "1.5.1";
    std::string announced;              // the count of <betrieb> when empty
    std::vector<std::string> betriebe;  // the lines between <betrieb> and </betrieb>, LF-separated
    std::string lineEnd = "\r\n";
    bool cp1252 = true;

    std::string text() const {
        std::string t =
            "<gewerbedatei xmlns:tolmaML='http://www.tolma.de/tolma.htm'>\n<verwaltungsblock>\n"
            "<verarbeitungsart>MIGRATION</verarbeitungsart>\n<struktur>" +
            struktur +
            "</struktur>\n"
            "<tml-version>" +
            version + "</tml-version>\n<zahl-betriebe-gesamt>" +
            (announced.empty() ? std::to_string(betriebe.size()) : announced) +
            "</zahl-betriebe-gesamt>\n</verwaltungsblock>\n<datenblock>\n";
        for (const auto& b : betriebe)
            t += "<betrieb>\n" + b + (b.empty() || b.back() == '\n' ? "" : "\n") + "</betrieb>\n";
        t += "</datenblock>\n</gewerbedatei>\n";
        std::string out;
        for (char c : t) {
            if (c == '\n')
                out += lineEnd;
            else
                out += c;
        }
        return cp1252 ? model::utf8ToCp1252(out) : out;
    }
};

// A started program into whose store files are imported.
struct ImportFixture : CoreFixture {
    ImportFixture() { start(); }

    std::string write(const std::string& bytes, const std::string& name = "test.tml") {
        const auto p = dir.path() / name;
        std::ofstream(p, std::ios::binary) << bytes;
        return p.string();
    }
    transfer::ImportOutcome import(const TmlFile& file,
                                   std::deque<int> answers = {core::msg::vbYes}) {
        return importBytes(file.text(), std::move(answers));
    }
    transfer::ImportOutcome importBytes(const std::string& bytes,
                                        std::deque<int> answers = {core::msg::vbYes}) {
        dialogs.answers = std::move(answers);
        return transfer::Upd_1_Start(g(), write(bytes));
    }
    // The rows of a query on the data store, each as its fields joined by "|".
    std::vector<std::string> rows(const std::string& sql) {
        std::vector<std::string> out;
        auto rs = g().stores.db_daten.OpenRecordset(sql);
        for (long r = 0; r < rs.RecordCount(); ++r) {
            std::string line;
            bool first = true;
            for (const auto& v : rs.rowAt(r)) {
                line += (first ? "" : "|") + v.toString();
                first = false;
            }
            out.push_back(line);
        }
        return out;
    }
    long count(const std::string& table) {
        return g().stores.db_daten.OpenRecordset(table).RecordCount();
    }
    std::string lastMessage() const {
        return dialogs.shown.empty() ? "" : dialogs.shown.back().text;
    }
    int entries(const std::string& procedure) const {
        const std::string log = logText(), key = "Fehler in Sub/Function: " + procedure + "\r\n";
        int n = 0;
        for (size_t p = log.find(key); p != std::string::npos; p = log.find(key, p + 1)) ++n;
        return n;
    }
};

using Strings = std::vector<std::string>;

}  // namespace tolma::test

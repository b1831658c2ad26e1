// How values travel between a transfer file and a store.
#include <gtest/gtest.h>

#include "model/values.h"

namespace tolma::model {
namespace {

TEST(DateRules, FileToStoreAndBack) {
    struct Case {
        const char* file;
        const char* store;
    } cases[] = {
        {"20011231", "31.12.2001"},
        {"88888888", "unbekannt"},
        {"99999999", "unbegrenzt"},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(dateFileToStore(c.file), c.store);
        EXPECT_EQ(dateStoreToFile(c.store), c.file);
    }
    // Nothing checks the form: short or odd values are cut by position.
    EXPECT_EQ(dateFileToStore("2001"), "..2001");
    EXPECT_EQ(dateStoreToFile("1.1.2001"), "01.21.");
    EXPECT_EQ(dateStoreToFile("Unbekannt"), "nntekUn");  // the words are compared exactly
}

TEST(DateRules, DateFieldsAreKnownByNameWithoutRegardToCase) {
    EXPECT_EQ(kDatumsfelder.size(), 18u);
    EXPECT_TRUE(isDateField("betr-ende"));
    EXPECT_TRUE(isDateField("P-ERL-DATUM"));
    EXPECT_FALSE(isDateField("betr-nr"));
    EXPECT_FALSE(isDateField("datum"));
}

TEST(Cleaning, ExportStepsInTheirOrder) {
    struct Case {
        const char* stored;
        const char* written;
    } cases[] = {
        {";abc;", "abc"},   {" ;abc", ";abc"},
        {"a<b>c", "a b c"}, {"Zeile1\r\nZeile2", "Zeile1  Zeile2"},
        {";;x;;", ";x;"},   {"  a & \"b\"  ", "a & \"b\""},
        {";", ""},          {"\n;x", ";x"},
        {"<x> ", " x "},    {"  ", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(cleanForExport(c.stored), c.written) << c.stored;
}

TEST(Cleaning, BlankTest) {
    EXPECT_TRUE(isBlank(std::nullopt));
    EXPECT_TRUE(isBlank(std::string("   ")));
    EXPECT_FALSE(isBlank(std::string(" x ")));
}

TEST(Cutting, LongTextsAreCutToTheFieldSizeByCharacters) {
    std::string exact = "12345678";
    EXPECT_FALSE(cutToFieldSize(exact, 8, false));
    std::string umlauts = "Äußerst langer Name";
    EXPECT_TRUE(cutToFieldSize(umlauts, 4, false));
    EXPECT_EQ(umlauts, "Äuße");
    std::string memo(10000, 'x');
    EXPECT_FALSE(cutToFieldSize(memo, 0, true));
    EXPECT_EQ(memo.size(), 10000u);
}

}  // namespace
}  // namespace tolma::model

// The export's bytes on a generated store with every kind of subordinate row, in one file and
// in one file per key. The figures were taken from the export as it stood before it was made
// faster; a change to what the export writes must show here.
#include <gtest/gtest.h>

#include <sstream>

#include "import_fixture.h"
#include "tml_generator.h"
#include "transfer/export_form.h"

namespace tolma::test {
namespace {

std::uint64_t fnv1a(const std::string& bytes) {
    std::uint64_t h = 1469598103934665603ull;
    for (unsigned char c : bytes) h = (h ^ c) * 1099511628211ull;
    return h;
}

std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(ExportIdentityTest, AGeneratedStoreIsWrittenByteForByteAsBefore) {
    ImportFixture f;
    std::ostringstream file;
    bench::GeneratorOptions options;
    options.businesses = 400;
    options.seed = 11;
    bench::writeTransferFile(file, options);
    ASSERT_EQ(f.importBytes(file.str()), transfer::ImportOutcome::Finished);
    for (const char* table :
         {"betrieb_meldgrundsonst", "betrieb_erlaubnis", "betrieb_handwerkskarte",
          "person_staatsang", "person_erlaubnis", "person_handwerkskarte"})
        ASSERT_GT(f.count(table), 0) << table;

    transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(f.g());
    auto all = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
    ASSERT_EQ(all.files.size(), 1u);
    const std::string whole = contentOf(all.files[0]);
    EXPECT_EQ(whole.size(), 1405715u);
    EXPECT_EQ(fnv1a(whole), 11577715037492655186ull);

    std::filesystem::remove(all.files[0]);
    form = transfer::Frm_Verwaltungsblock_Load(f.g());
    form.Check1[0].value = 1;
    auto byKey = transfer::Frm_Verwaltungsblock_Command1_Click(f.g(), form, 0);
    ASSERT_GT(byKey.files.size(), 1u);
    std::uint64_t combined = 0;
    size_t size = 0;
    for (const auto& path : byKey.files) {
        const std::string bytes = contentOf(path);
        combined = combined * 31 + fnv1a(bytes);
        size += bytes.size();
    }
    EXPECT_EQ(byKey.files.size(), 42u);
    EXPECT_EQ(size, 1437060u);
    EXPECT_EQ(combined, 18095646420715752581ull);
}

}  // namespace
}  // namespace tolma::test

// tolma-cli commands, run in-process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "cli/cli.h"

namespace tolma::cli {
namespace {

struct Result {
    int code;
    std::string out, err;
};

Result runCli(std::vector<std::string> args) {
    std::ostringstream out, err;
    int code = run(args, out, err);
    return {code, out.str(), err.str()};
}

class CliTest : public ::testing::Test {
protected:
    std::string home = (std::filesystem::temp_directory_path() / ("tolma-cli-" + std::to_string(::getpid()))).string();
    void SetUp() override { std::filesystem::remove_all(home); }
    void TearDown() override { std::filesystem::remove_all(home); }
};

TEST_F(CliTest, VersionPrintsTheVersionRecord) {
    auto r = runCli({"--version"});
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out, "TOLMA_4x_Access 420.151.3\n");
}

TEST_F(CliTest, SqlPrintsHeaderAndTabSeparatedRowsWithNullAsEmpty) {
    ASSERT_EQ(runCli({"--home", home, "sql", "INSERT INTO betrieb ([betr-nr], [betr-hist-nr], [b-eintr-name]) VALUES ('1', '1', 'A\tB')"}).out, "1\n");
    auto r = runCli({"--home", home, "sql", "SELECT DISTINCTROW [betr-nr], [betr-ende], [b-eintr-name] FROM betrieb;"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "betr-nr\tbetr-ende\tb-eintr-name\n1\t\tA\\tB\n");
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(home) / "DB" / "tl_4x_b.mdb"));
}

TEST_F(CliTest, SqlOnTheSettingsStoreAndErrors) {
    auto r = runCli({"--home", home, "sql", "--settings", "SELECT [gem-name] FROM gemeindekennzahlen WHERE [gem-kz] = '01001000'"});
    EXPECT_EQ(r.out, "gem-name\nFlensburg, Stadt\n");
    r = runCli({"--home", home, "sql", "SELECT * FROM gibtsnicht"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("3078"), std::string::npos);
    EXPECT_EQ(runCli({"--home", home, "sql"}).code, 2);
    EXPECT_EQ(runCli({"frage"}).code, 2);
}

}  // namespace
}  // namespace tolma::cli

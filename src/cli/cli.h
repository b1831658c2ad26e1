#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace tolma::cli {

// Exit codes of tolma-cli.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitCancelled = 3;

// Runs one command line (without the program name); output and messages go to the streams,
// so that tests run commands in-process.
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        std::istream& in, bool interactive);

struct Options;
int commandImport(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err);
int commandExport(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err);
int commandPrint(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                 std::ostream& err);
int commandOptions(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                   std::ostream& err);
int commandImports(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                   std::ostream& err);
int commandTakeBack(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err);
int commandAuswertung(const Options& options, const std::vector<std::string>& args,
                      std::ostream& out, std::ostream& err);
int commandSearch(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err);
int commandSql(const Options& options, const std::vector<std::string>& args, std::ostream& out,
               std::ostream& err);
int commandLoeschen(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err);
int commandAuskunft(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err);
int commandProtokoll(const Options& options, const std::vector<std::string>& args,
                     std::ostream& out, std::ostream& err);
int commandKopieren(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err);
int commandServer(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err);

}  // namespace tolma::cli

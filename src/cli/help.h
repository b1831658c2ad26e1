#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// The help of tolma-cli: an overview of the commands, and a page for each command.
namespace tolma::cli {

void printOverview(std::ostream& out);
// False for a command that has no page.
bool printCommandHelp(const std::string& command, std::ostream& out);
// "--help" or "-h" among a command's arguments: they are never its input.
bool asksForHelp(const std::vector<std::string>& args);
// A call that cannot be run: what is wrong, and where the help is. Returns the usage exit code.
int badCall(std::ostream& err, const std::string& command, const std::string& what);

}  // namespace tolma::cli

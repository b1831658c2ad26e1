#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace tolma::cli {

struct Result {
    int code;
    std::string out, err;
};

inline Result runCli(std::vector<std::string> args) {
    std::ostringstream out, err;
    int code = run(args, out, err);
    return {code, out.str(), err.str()};
}

// A home of its own for each test.
class CliTest : public ::testing::Test {
  protected:
    std::string home =
        (std::filesystem::temp_directory_path() / ("tolma-cli-" + std::to_string(::getpid())))
            .string();
    void SetUp() override { std::filesystem::remove_all(home); }
    void TearDown() override { std::filesystem::remove_all(home); }
};

}  // namespace tolma::cli

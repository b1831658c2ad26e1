#pragma once

#include <filesystem>
#include <string>

// A PostgreSQL cluster of the test program's own: made in a fresh temporary directory at first
// use, reachable only through a socket in that directory, stopped and removed when the program
// ends. A server that cannot start fails the test that asked for it, with the reason.
namespace tolma::testing {

class PgCluster {
  public:
    // The one cluster of this program, started on the first call.
    static PgCluster& get();

    // A fresh, empty database (an older one of the name is dropped); returns its connection text.
    std::string createDatabase(const std::string& name);
    // The connection text of a database, logging in as `user` (the cluster's superuser when
    // empty), with a password in the text when one is given.
    std::string connectionText(const std::string& database, const std::string& user = {},
                               const std::string& password = {}) const;

    const std::filesystem::path& dataDir() const { return dataDir_; }
    const std::filesystem::path& socketDir() const { return dir_; }

    ~PgCluster();
    PgCluster(const PgCluster&) = delete;
    PgCluster& operator=(const PgCluster&) = delete;

  private:
    PgCluster();
    void start();
    void stop();
    // Runs a program of the server's, as the unprivileged user when this process is root.
    void run(const std::string& program, const std::string& arguments) const;

    std::filesystem::path binDir_, dir_, dataDir_;
    bool asPostgres_ = false;
    bool running_ = false;
};

}  // namespace tolma::testing

#include "pg_cluster.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "store/server_session.h"

namespace tolma::testing {
namespace {

// Not 5432: nothing here may meet a server that runs on the machine anyway.
constexpr int kPort = 54329;

std::string shellQuoted(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string readAll(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::filesystem::path findBinDir() {
    namespace fs = std::filesystem;
    std::string out;
    if (std::unique_ptr<FILE, decltype(&pclose)> p(popen("pg_config --bindir 2>/dev/null", "r"),
                                                   &pclose);
        p) {
        char buffer[512];
        while (fgets(buffer, sizeof buffer, p.get())) out += buffer;
    }
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    if (!out.empty() && fs::exists(fs::path(out) / "initdb")) return out;
    // Debian's pg_config of libpq-dev may stand apart from the server; its binaries are here.
    fs::path best;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", ec))
        if (fs::exists(entry.path() / "bin" / "initdb") && entry.path() > best.parent_path())
            best = entry.path() / "bin";
    if (best.empty())
        throw std::runtime_error(
            "PostgreSQL-Server nicht gefunden: weder pg_config --bindir noch "
            "/usr/lib/postgresql/*/bin enthält initdb (Paket postgresql fehlt?)");
    return best;
}

std::string currentUserName() {
    const passwd* pw = getpwuid(geteuid());
    return pw ? pw->pw_name : "postgres";
}

}  // namespace

PgCluster& PgCluster::get() {
    // A failed start is reported to every test that asks, not tried again each time.
    static std::string failure;
    static std::unique_ptr<PgCluster> cluster;
    if (!cluster && failure.empty()) {
        try {
            cluster.reset(new PgCluster());
        } catch (const std::exception& e) {
            failure = e.what();
        }
    }
    if (!cluster) throw std::runtime_error("Testcluster startet nicht: " + failure);
    return *cluster;
}

PgCluster::PgCluster() {
    // Settings of the environment would lead connections elsewhere.
    for (const char* name : {"PGHOST", "PGHOSTADDR", "PGPORT", "PGUSER", "PGDATABASE", "PGSERVICE",
                             "PGPASSWORD", "PGSSLMODE", "PGOPTIONS"})
        unsetenv(name);
    // Nor may a password file of the user's answer a server's question for a password.
    setenv("PGPASSFILE", "/nonexistent/pgpass", 1);
    binDir_ = findBinDir();
    std::string pattern = (std::filesystem::temp_directory_path() / "tolma-pg-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("kein temporäres Verzeichnis: " + pattern);
    dir_ = pattern;
    dataDir_ = dir_ / "data";
    try {
        start();
    } catch (...) {
        stop();
        throw;
    }
}

PgCluster::~PgCluster() {
    stop();
}

void PgCluster::run(const std::string& program, const std::string& arguments) const {
    const std::filesystem::path output = dir_ / "ausgabe.txt";
    std::string command = shellQuoted((binDir_ / program).string()) + " " + arguments;
    if (asPostgres_) command = "runuser -u postgres -- " + command;
    const int status =
        std::system((command + " > " + shellQuoted(output.string()) + " 2>&1").c_str());
    if (status != 0)
        throw std::runtime_error(program + " scheitert (" + std::to_string(status) +
                                 "): " + readAll(output) + readAll(dir_ / "server.log"));
}

void PgCluster::start() {
    // The server refuses to run as root.
    asPostgres_ = geteuid() == 0;
    if (asPostgres_) {
        const passwd* pw = getpwnam("postgres");
        if (!pw)
            throw std::runtime_error(
                "als root gestartet, aber den Benutzer postgres gibt es nicht");
        if (chown(dir_.c_str(), pw->pw_uid, pw->pw_gid) != 0)
            throw std::runtime_error("chown von " + dir_.string() + " scheitert");
    }
    // The superuser bears the name of this process's user, so connection texts need none.
    run("initdb", "-A trust -E UTF8 --locale=C.UTF-8 --no-sync -U " +
                      shellQuoted(currentUserName()) + " -D " + shellQuoted(dataDir_.string()));
    run("pg_ctl", "start -w -t 30 -D " + shellQuoted(dataDir_.string()) + " -l " +
                      shellQuoted((dir_ / "server.log").string()) + " -o " +
                      shellQuoted("-k " + dir_.string() + " -p " + std::to_string(kPort) +
                                  " -c listen_addresses='' -c fsync=off"));
    running_ = true;
}

void PgCluster::stop() {
    if (running_) {
        try {
            run("pg_ctl", "stop -m immediate -D " + shellQuoted(dataDir_.string()));
        } catch (const std::exception&) {
            // Removing the directory below takes the socket away all the same.
        }
        running_ = false;
    }
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
}

std::string PgCluster::connectionText(const std::string& database, const std::string& user,
                                      const std::string& password) const {
    const std::string login = user + (password.empty() ? "" : ":" + password);
    return "postgresql://" + (login.empty() ? "" : login + "@") + "/" + database +
           "?host=" + dir_.string() + "&port=" + std::to_string(kPort);
}

std::string PgCluster::createDatabase(const std::string& name) {
    auto admin = store::ServerSession::connect(connectionText("postgres"));
    const std::string quoted = store::quoteIdentifier(name);
    admin->execute("DROP DATABASE IF EXISTS " + quoted + " WITH (FORCE)");
    admin->execute("CREATE DATABASE " + quoted);
    return connectionText(name);
}

}  // namespace tolma::testing

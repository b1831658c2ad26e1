#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tolma::core {
struct Globals;
}
namespace tolma::store {
class Connection;
}

// Deleting businesses once the period after their deregistration has passed: everything that
// belongs to them, the persons no other business refers to, their old images in the take-back
// record and their words in the search index.
namespace tolma::protection {

// A day as a number JJJJMMTT, from "JJJJ-MM-TT" (as given) or "TT.MM.JJJJ" (as stored).
std::optional<int> isoDay(std::string_view text);
std::optional<int> storedDay(std::string_view text);
std::string showDay(int day);  // "TT.MM.JJJJ"
// The day `years` before `today` (both JJJJMMTT); the 29th of February goes to the 28th.
int yearsBefore(int today, int years);

inline constexpr int kDefaultRetentionYears = 5;
// "Aufbewahrung nach der Abmeldung: N Jahre" of the options.
int retentionYears(core::Globals& g);
void setRetentionYears(core::Globals& g, int years);

struct DeletionPlan {
    int before = 0;  // deregistered before this day
    struct Business {
        std::string nr, name, deregistered;
    };
    struct Person {
        std::string nr, name;
    };
    std::vector<Business> businesses;
    std::vector<Person> persons;                          // go with them
    std::vector<Person> kept;                             // tied to a business that stays
    std::vector<std::pair<std::string, long long>> rows;  // per table, rows that go
    long long totalRows() const;
};

// What would go: every business whose latest stored state is a deregistration dated (by its
// betr-ende, else its meld-datum) before `before`, with all its states. Changes nothing.
DeletionPlan planDeletion(store::Connection& c, int before);

// Deletes what the plan names in one transaction, with its protocol entry, and overwrites what
// it freed. Raises when anything fails; the store is then unchanged.
void deletePlanned(store::Connection& c, const DeletionPlan& plan, const std::string& when);

// The plan as the check shows it: businesses, persons that go, persons kept, rows per table.
std::string describePlan(const DeletionPlan& plan);

// From the menu and the command line: plans, shows the plan, asks once (unless only checking),
// deletes, builds the search index anew and compacts the store.
enum class DeletionOutcome { Deleted, Nothing, Checked, Refused, Failed };
struct DeletionResult {
    DeletionOutcome outcome = DeletionOutcome::Nothing;
    DeletionPlan plan;
};
DeletionResult deleteAfterPeriod(core::Globals& g, int before, bool checkOnly,
                                 const std::function<void(const DeletionPlan&)>& showPlan);

}  // namespace tolma::protection

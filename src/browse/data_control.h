#pragma once

#include <functional>
#include <string>

#include "store/database.h"

namespace tolma::browse {

// A data control of a form: a database file, a record source (table name or query text) and
// the recordset that Refresh makes of them. Bound boxes read its current row; Reposition is
// raised synchronously inside Refresh and each move of its recordset.
class DataControl {
  public:
    explicit DataControl(std::string name) : name_(std::move(name)) {}
    DataControl(const DataControl&) = delete;
    DataControl& operator=(const DataControl&) = delete;

    const std::string& name() const { return name_; }

    std::string DatabaseName;
    std::string RecordSource;
    std::string Caption;
    std::function<void()> Reposition;

    // Runs the record source. With an empty DatabaseName the control lets go of its file.
    void Refresh();
    // The recordset of the last Refresh; "not set" before it or after letting go.
    store::Recordset& Recordset() { return recordset_; }
    const store::Recordset& Recordset() const { return recordset_; }
    bool holdsFile() const { return database_.isSet() || recordset_.isSet(); }

    // A bound box: the field of the current row, empty without one.
    std::string fieldText(const std::string& field) const;

  private:
    std::string name_;
    store::Database database_;
    store::Recordset recordset_;
};

}  // namespace tolma::browse

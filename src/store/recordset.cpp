#include "store/recordset.h"

#include "store/dao_error.h"
#include "store/keyset_cursor.h"
#include "store/snapshot_cursor.h"
#include "store/table_cursor.h"
#include "text/text.h"

namespace tolma::store {

Recordset Recordset::open(std::shared_ptr<Connection> connection, const std::string& source) {
    Recordset rs;
    const std::string table = jet::bareTableName(source);
    if (!table.empty()) {
        rs.impl_ = std::make_shared<TableCursor>(std::move(connection), source, table);
        return rs;
    }
    const jet::Prepared query = jet::prepare(source, &connection->catalog());
    if (query.shape->parts.keyable())
        rs.impl_ = std::make_shared<KeysetCursor>(std::move(connection), source, query);
    else
        rs.impl_ = std::make_shared<SnapshotCursor>(std::move(connection), source, query);
    return rs;
}

RecordsetImpl& Recordset::impl() const {
    if (!impl_)
        throwDao(kRecordsetSource, err::kObjectNotSet,
                 "Objektvariable oder With-Blockvariable nicht festgelegt.");
    impl_->check();
    return *impl_;
}

const std::string& Recordset::Name() const {
    return impl().name;
}
bool Recordset::Updatable() const {
    return impl().updatable;
}
long Recordset::RecordCount() const {
    return impl().count();
}
long Recordset::KnownCount() const {
    return impl().knownCount();
}
bool Recordset::CountFinal() const {
    return impl().countFinal();
}
bool Recordset::ReadAhead(int milliseconds) const {
    return impl().readAhead(std::chrono::milliseconds(milliseconds));
}
bool Recordset::Eof() const {
    return impl().eof;
}
bool Recordset::Bof() const {
    return impl().bof;
}
long Recordset::AbsolutePosition() const {
    return impl().position();
}
void Recordset::setAbsolutePosition(long position) {
    impl().setPosition(position);
    impl_->moved();
}
void Recordset::MoveFirst() {
    impl().moveFirst();
    impl_->moved();
}
void Recordset::MoveLast() {
    impl().moveLast();
    impl_->moved();
}
void Recordset::MoveNext() {
    impl().moveNext();
    impl_->moved();
}
void Recordset::MovePrevious() {
    impl().movePrevious();
    impl_->moved();
}
void Recordset::FindFirst(const std::string& criteria) {
    impl().find(criteria, true);
    if (!impl_->noMatch) impl_->moved();
}
void Recordset::FindNext(const std::string& criteria) {
    impl().find(criteria, false);
    if (!impl_->noMatch) impl_->moved();
}
void Recordset::setMoveListener(std::function<void()> listener) const {
    impl().setMoveListener(std::move(listener));
}
bool Recordset::NoMatch() const {
    return impl().noMatch;
}
void Recordset::AddNew() {
    impl().addNew();
}
void Recordset::Edit() {
    impl().beginEdit();
}
void Recordset::Update() {
    impl().update();
}
void Recordset::CancelUpdate() {
    impl().cancelUpdate();
}
void Recordset::Delete() {
    impl().remove();
}
long long Recordset::deleteWhere(const std::string& criteria, bool rowsAreNew, bool counted) {
    return impl().deleteWhere(criteria, rowsAreNew, counted);
}
bool Recordset::editing() const {
    return impl().edit != RecordsetImpl::EditMode::None;
}
int Recordset::FieldCount() const {
    return static_cast<int>(impl().fields().size());
}
const std::vector<FieldInfo>& Recordset::fieldInfos() const {
    return impl().fields();
}
std::vector<Variant> Recordset::rowAt(long position) const {
    return impl().rowAt(position);
}
std::vector<Variant> Recordset::LastRow() const {
    return impl().lastRow();
}
const std::vector<Variant>& Recordset::currentRow() const {
    return impl().currentRow();
}

int Recordset::fieldIndex(const std::string& name) const {
    const FieldSet& set = *impl().fieldSet;
    if (auto it = set.exact.find(name); it != set.exact.end()) return it->second;
    if (auto it = set.folded.find(text::lower(name)); it != set.folded.end()) return it->second;
    return -1;
}

Field Recordset::Fields(int index) const {
    if (index < 0 || index >= FieldCount())
        throwDao("DAO.Fields", err::kItemNotFound, "Element in dieser Auflistung nicht gefunden.");
    return Field(impl_, index);
}

Field Recordset::Fields(const std::string& name) const {
    const int i = fieldIndex(name);
    if (i < 0)
        throwDao("DAO.Fields", err::kItemNotFound, "Element in dieser Auflistung nicht gefunden.");
    return Field(impl_, i);
}

void Recordset::Close() {
    if (!impl_) return;
    impl_->close();
    impl_.reset();
}

const std::string& Field::Name() const {
    return rs_->fields()[static_cast<size_t>(index_)].name;
}
int Field::Type() const {
    return rs_->fields()[static_cast<size_t>(index_)].type;
}
int Field::Size() const {
    return rs_->fields()[static_cast<size_t>(index_)].size;
}
Variant Field::Value() const {
    return rs_->fieldValue(index_);
}
void Field::setValue(const Variant& value) {
    rs_->setField(index_, value);
}

}  // namespace tolma::store

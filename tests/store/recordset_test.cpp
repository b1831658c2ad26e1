// What the import, the export and the views rely on in a recordset.
#include <gtest/gtest.h>

#include "store/dao_error.h"
#include "test_db.h"

namespace tolma::test {
namespace {

using store::DaoError;
using store::Recordset;

int errorNumber(const std::function<void()>& f) {
    try {
        f();
    } catch (const DaoError& e) {
        return e.number();
    }
    return 0;
}

class RecordsetTest : public ::testing::Test {
  protected:
    TempDir dir;
    store::Database db = makeSampleStore(dir.path() / "tl_4x_b.mdb");
};

TEST_F(RecordsetTest, TableRecordsetIsLiveAndWritable) {
    Recordset rs = db.OpenRecordset("person");
    EXPECT_EQ(rs.Name(), "person");
    EXPECT_EQ(rs.RecordCount(), 4);
    rs.AddNew();
    rs.Fields("pers-nr").setValue("7001");
    rs.Fields("p-art").setValue("JP");
    // The row under AddNew is readable before it is stored.
    EXPECT_EQ(rs.Fields("p-art").Value().toString(), "JP");
    rs.Update();
    EXPECT_EQ(rs.RecordCount(), 5);
    rs.MoveFirst();
    rs.FindFirst("[pers-nr] = '7001'");
    ASSERT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.Fields("p-art").Value().toString(), "JP");
    EXPECT_EQ(db.OpenRecordset("SELECT * FROM person WHERE [pers-nr] = '7001'").RecordCount(), 1);
}

TEST_F(RecordsetTest, UpdateAfterAddNewKeepsTheCurrentRow) {
    Recordset rs = db.OpenRecordset("SELECT * FROM person ORDER BY [pers-nr]");
    rs.MoveNext();
    rs.AddNew();
    rs.Fields("pers-nr").setValue("0001");
    rs.Update();
    EXPECT_EQ(rs.Fields("pers-nr").Value().toString(), "5002");
    // A row added through a query recordset stands at its end, whatever the order.
    rs.MoveLast();
    EXPECT_EQ(rs.Fields("pers-nr").Value().toString(), "0001");
    rs.FindFirst("[pers-nr] = '0001'");
    EXPECT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.AbsolutePosition(), 4);
}

TEST_F(RecordsetTest, SecondAddNewDropsThePendingRowAndCancelUpdateDropsIt) {
    Recordset rs = db.OpenRecordset("person");
    rs.AddNew();
    rs.Fields("pers-nr").setValue("8001");
    rs.AddNew();
    rs.Fields("pers-nr").setValue("8002");
    rs.Update();
    rs.AddNew();
    rs.Fields("pers-nr").setValue("8003");
    rs.CancelUpdate();
    EXPECT_EQ(db.OpenRecordset("SELECT * FROM person WHERE [pers-nr] LIKE '800*'").RecordCount(),
              1);
    EXPECT_EQ(errorNumber([&] { rs.Update(); }), 3020);
    EXPECT_EQ(errorNumber([&] { rs.Fields("pers-nr").setValue("x"); }), 3020);
}

TEST_F(RecordsetTest, FindFirstAndFindNextWalkEveryMatchInOrder) {
    Recordset rs =
        db.OpenRecordset("SELECT * FROM betrieb ORDER BY [betr-nr] DESC, [betr-hist-nr]");
    std::vector<std::string> seen;
    rs.FindFirst("[gem-kz] = '01001000'");
    while (!rs.NoMatch()) {
        seen.push_back(rs.Fields("betr-nr").Value().toString() + "/" +
                       rs.Fields("betr-hist-nr").Value().toString());
        rs.FindNext("[gem-kz] = '01001000'");
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"1003/1", "1001/1", "1001/2"}));

    Recordset table = db.OpenRecordset("betrieb_adresse");
    table.FindFirst("[b-ort] LIKE 'flensburg*'");
    table.FindNext("[b-ort] LIKE 'flensburg*'");
    EXPECT_EQ(table.Fields("b-adr-art").Value().toString(), "2");
    table.FindNext("[b-ort] = 'Kiel'");
    EXPECT_FALSE(table.NoMatch());
    table.FindNext("[b-ort] = 'Kiel'");
    EXPECT_TRUE(table.NoMatch());
    EXPECT_EQ(table.Fields("b-ort").Value().toString(), "Kiel");
}

TEST_F(RecordsetTest, FindOnAGroupedSnapshot) {
    Recordset rs =
        db.OpenRecordset("SELECT [gem-kz], count(*) AS n FROM betrieb GROUP BY [gem-kz]");
    rs.FindFirst("[n] = 2");
    ASSERT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.Fields("gem-kz").Value().toString(), "01002000");
}

TEST_F(RecordsetTest, JoinIsReadOnlySingleTableQueryIsWritable) {
    Recordset join = db.OpenRecordset(
        "SELECT * FROM betrieb INNER JOIN betrieb_adresse ON betrieb.[betr-nr] = "
        "betrieb_adresse.[betr-nr]");
    EXPECT_FALSE(join.Updatable());
    EXPECT_EQ(errorNumber([&] { join.AddNew(); }), 3027);
    EXPECT_EQ(errorNumber([&] { join.Edit(); }), 3027);

    Recordset one = db.OpenRecordset("SELECT * FROM betrieb WHERE [betr-nr] = '1002'");
    one.Edit();
    one.Fields("b-eintr-name").setValue("Öztürk Grill");
    one.Update();
    EXPECT_EQ(one.Fields("b-eintr-name").Value().toString(), "Öztürk Grill");
    EXPECT_EQ(db.OpenRecordset("SELECT * FROM betrieb WHERE [b-eintr-name] = 'Öztürk Grill'")
                  .RecordCount(),
              1);
}

TEST_F(RecordsetTest, FieldsByNameAndNumberWithTheirTypes) {
    Recordset rs = db.OpenRecordset("betrieb");
    EXPECT_EQ(rs.Fields("BETR-ENDE").Name(), "betr-ende");
    EXPECT_EQ(rs.Fields("betr-nr").Size(), 12);
    EXPECT_EQ(rs.Fields("betr-nr").Type(), store::dao::dbText);
    EXPECT_EQ(rs.Fields("b-bemerkung").Type(), store::dao::dbMemo);
    EXPECT_EQ(rs.Fields(0).Name(), "betr-nr");
    EXPECT_TRUE(rs.Fields("betr-ende").Value().isNull());
    EXPECT_EQ(errorNumber([&] { rs.Fields("gibt-es-nicht"); }), 3265);
    EXPECT_EQ(errorNumber([&] { rs.Fields(rs.FieldCount()); }), 3265);
    Recordset links = db.OpenRecordset("beziehung_betrieb_person");
    EXPECT_EQ(links.Fields("bez-sort-nr").Type(), store::dao::dbLong);
}

TEST_F(RecordsetTest, TooLongTextIsRefusedWithFieldTooSmall) {
    Recordset rs = db.OpenRecordset("betrieb");
    rs.AddNew();
    EXPECT_EQ(errorNumber([&] { rs.Fields("betr-hist-nr").setValue("12345"); }), 3163);
    rs.Fields("betr-hist-nr").setValue("1234");
    rs.Fields("b-bemerkung").setValue(std::string(5000, 'x'));
    rs.Update();
}

TEST_F(RecordsetTest, MovesBofEofAndNoCurrentRecord) {
    Recordset empty = db.OpenRecordset("SELECT * FROM person WHERE [pers-nr] = 'keiner'");
    EXPECT_TRUE(empty.Bof());
    EXPECT_TRUE(empty.Eof());
    EXPECT_EQ(empty.RecordCount(), 0);
    EXPECT_EQ(errorNumber([&] { empty.MoveFirst(); }), 3021);
    EXPECT_EQ(errorNumber([&] { empty.Fields("pers-nr").Value(); }), 3021);

    for (Recordset rs : {db.OpenRecordset("person"), db.OpenRecordset("SELECT * FROM person")}) {
        EXPECT_FALSE(rs.Bof());
        rs.MoveLast();
        EXPECT_EQ(rs.AbsolutePosition(), 3);
        rs.MoveNext();
        EXPECT_TRUE(rs.Eof());
        EXPECT_EQ(errorNumber([&] { rs.MoveNext(); }), 3021);
        EXPECT_EQ(errorNumber([&] { rs.Fields("pers-nr").Value(); }), 3021);
        rs.MovePrevious();
        EXPECT_EQ(rs.Fields("pers-nr").Value().toString(), "5004");
        rs.setAbsolutePosition(1);
        EXPECT_EQ(rs.Fields("pers-nr").Value().toString(), "5002");
        rs.MoveFirst();
        rs.MovePrevious();
        EXPECT_TRUE(rs.Bof());
        EXPECT_EQ(errorNumber([&] { rs.setAbsolutePosition(9); }), 3001);
    }
}

TEST_F(RecordsetTest, DeleteRemovesTheRowAndMoveNextGoesOn) {
    for (Recordset rs : {db.OpenRecordset("SELECT * FROM person ORDER BY [pers-nr]"),
                         db.OpenRecordset("person")}) {
        rs.MoveFirst();
        rs.MoveNext();
        const std::string gone = rs.Fields("pers-nr").Value().toString();
        rs.Delete();
        EXPECT_EQ(errorNumber([&] { rs.Fields("pers-nr").Value(); }), 3167);
        rs.MoveNext();
        EXPECT_NE(rs.Fields("pers-nr").Value().toString(), gone);
        EXPECT_EQ(
            db.OpenRecordset("SELECT * FROM person WHERE [pers-nr] = '" + gone + "'").RecordCount(),
            0);
    }
    EXPECT_EQ(db.OpenRecordset("person").RecordCount(), 2);
}

TEST_F(RecordsetTest, CopiesShareOneCursorAndCloseEndsThem) {
    Recordset a = db.OpenRecordset("person");
    Recordset b = a;
    b.MoveLast();
    EXPECT_EQ(a.AbsolutePosition(), 3);
    a.Close();
    EXPECT_FALSE(a.isSet());
    EXPECT_EQ(errorNumber([&] { b.MoveFirst(); }), 3420);
    Recordset nothing;
    EXPECT_EQ(errorNumber([&] { nothing.MoveFirst(); }), 91);
}

TEST_F(RecordsetTest, FieldsOfEveryDeclaredTypeTakeTheirValuesAsTheOldEngineDid) {
    db.Execute(
        "CREATE TABLE arten (ja BOOLEAN, klein SMALLINT, lang INTEGER, datum DATETIME, "
        "zahl DOUBLE, bild BLOB)");
    Recordset rs = db.OpenRecordset("arten");
    EXPECT_EQ(rs.Fields("ja").Type(), store::dao::dbBoolean);
    EXPECT_EQ(rs.Fields("klein").Type(), store::dao::dbInteger);
    EXPECT_EQ(rs.Fields("lang").Type(), store::dao::dbLong);
    EXPECT_EQ(rs.Fields("datum").Type(), store::dao::dbDate);
    EXPECT_EQ(rs.Fields("zahl").Type(), store::dao::dbDouble);
    EXPECT_EQ(rs.Fields("bild").Type(), store::dao::dbText);

    EXPECT_EQ(errorNumber([&] { rs.Fields("lang").setValue("1"); }), 3020);
    rs.AddNew();
    rs.Fields("ja").setValue(store::Variant::boolean(true));
    rs.Fields("lang").setValue("12");
    EXPECT_EQ(errorNumber([&] { rs.Fields("klein").setValue("zwölf"); }), 3464);
    rs.Fields("zahl").setValue("2.5");
    rs.Fields("bild").setValue(7);
    rs.Update();
    rs.MoveFirst();
    EXPECT_EQ(rs.Fields("ja").Value().toInteger(), -1);
    EXPECT_EQ(rs.Fields("lang").Value().toInteger(), 12);
    EXPECT_DOUBLE_EQ(rs.Fields("zahl").Value().toReal(), 2.5);
    EXPECT_EQ(rs.Fields("bild").Value().toString(), "7");
    EXPECT_TRUE(rs.Fields("klein").Value().isNull());
    EXPECT_EQ(db.OpenRecordset("SELECT * FROM arten WHERE lang = '12' AND zahl > 2").RecordCount(),
              1);
}

TEST_F(RecordsetTest, DeleteWhereRemovesEveryMatchingRowInOneGo) {
    Recordset rs = db.OpenRecordset("person");
    EXPECT_EQ(rs.deleteWhere("[pers-nr] IN ('5001', '5003') OR [fam-name] = 'nobody'"), 2);
    EXPECT_EQ(rs.RecordCount(), 2);
    Recordset join = db.OpenRecordset(
        "SELECT * FROM person INNER JOIN beziehung_betrieb_person ON person.[pers-nr] = "
        "beziehung_betrieb_person.[bez-pers-nr]");
    EXPECT_EQ(errorNumber([&] { join.deleteWhere("[pers-nr] = '5002'"); }), 3027);
}

// A list longer than the rows read ahead, ordered by a name the select list gives a column.
TEST_F(RecordsetTest, LongListOrderedByAnAliasKeepsThatOrderAndFindsAlongIt) {
    for (int i = 0; i < 40; ++i)
        insert(db, "person", {{"pers-nr", std::to_string(6000 + i)}, {"fam-name", "Name"}});
    Recordset rs = db.OpenRecordset(
        "SELECT [pers-nr] AS nummer, [fam-name] FROM person WHERE [pers-nr] >= '5002' ORDER BY "
        "nummer DESC");
    ASSERT_EQ(rs.RecordCount(), 43);
    EXPECT_EQ(rs.Fields("nummer").Value().toString(), "6039");
    rs.MoveLast();
    EXPECT_EQ(rs.Fields("nummer").Value().toString(), "5002");
    rs.MoveFirst();
    rs.FindFirst("[fam-name] = 'NAME' AND [pers-nr] < '6030'");
    ASSERT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.Fields("nummer").Value().toString(), "6029");
    EXPECT_EQ(rs.AbsolutePosition(), 10);
}

TEST_F(RecordsetTest, MissingTableOrBrokenQueryIsAnError) {
    EXPECT_EQ(errorNumber([&] { db.OpenRecordset("gibtsnicht"); }), 3078);
    EXPECT_EQ(
        errorNumber([&] { db.OpenRecordset("SELECT * FROM person WHERE [pers-nr] = 'O'Brien'"); }),
        3075);
    EXPECT_EQ(errorNumber([&] { db.OpenRecordset("SELECT [keinfeld] FROM person"); }), 3061);
}

}  // namespace
}  // namespace tolma::test

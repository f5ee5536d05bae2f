#include "OrmTestSupport.h"

#include <Zel/Db/Recordset.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Orm/Exception.h>
#include <functional>
#include <gmock/gmock.h>
#include <limits>

namespace Zel::Orm::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

std::string str(std::int32_t id) {
    return std::to_string(id);
}

TEST_F(OrmTest, SavingANewObjectInsertsTheInfoRowAndOneRowPerClassTableUnderOneId) {
    const std::string info =
        "INSERT INTO tblOrmObjects (id, orm_class) VALUES (GEN_ID(genOrmObjectId,1), ?) RETURNING id";
    struct Case {
        const char* className;
        std::int32_t id;
        std::vector<std::string> sql;
        std::vector<const char*> tables;
    } cases[] = {
        {"Employee",
         0,
         {info, "INSERT INTO tblPerson (id, name, age, born) VALUES (?, ?, ?, ?)",
          "INSERT INTO tblEmployee (id, salary, remarks) VALUES (?, ?, ?)"},
         {"tblPerson", "tblEmployee"}},
        {"Employee",
         500,
         {"INSERT INTO tblOrmObjects (id, orm_class) VALUES (?, ?)",
          "INSERT INTO tblPerson (id, name, age, born) VALUES (?, ?, ?, ?)",
          "INSERT INTO tblEmployee (id, salary, remarks) VALUES (?, ?, ?)"},
         {"tblPerson", "tblEmployee"}},
        {"Person",
         0,
         {info, "INSERT INTO tblPerson (id, name, age, born) VALUES (?, ?, ?, ?)"},
         {"tblPerson"}},
        // With ORM triggers the first table issues the id and its trigger writes the info row.
        {"Invoice",
         0,
         {"INSERT INTO tblDocument (id, title) VALUES (GEN_ID(genOrmObjectId,1), ?) RETURNING id",
          "INSERT INTO tblInvoice (id, amount) VALUES (?, ?)"},
         {"tblDocument", "tblInvoice"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.className) + " id " + str(c.id));
        Tx tx(session.get());
        auto object = session->create(c.className, c.id);
        EXPECT_TRUE(object->created());
        take();
        EXPECT_TRUE(object->save());
        EXPECT_THAT(take(), ElementsAreArray(c.sql));
        tx.commit();
        if (c.id != 0) EXPECT_EQ(object->id(), c.id);
        auto check = Db::Connection::create(database->connectionString());
        EXPECT_EQ(static_cast<std::string>(
                      check->scalar("SELECT orm_class FROM tblOrmObjects WHERE id=?", {object->id()})),
                  c.className);
        for (const char* table : c.tables)
            EXPECT_EQ(rowCount(table, object->id()), 1) << table;
    }
}

TEST_F(OrmTest, SavingAChangedObjectUpdatesOnlyTheChangedTablesAndTouchesTheFirst) {
    const std::int32_t id = committedEmployee();
    const std::string touch = "UPDATE tblPerson SET id=id WHERE id=" + str(id);
    struct Case {
        const char* what;
        std::function<void(Employee&)> change;
        std::vector<std::string> sql;
    } cases[] = {
        {"nothing", [](Employee&) {}, {}},
        {"base field", [](Employee& e) { e.name = "Grace"; }, {"UPDATE tblPerson SET name=? WHERE id=?"}},
        {"derived field",
         [](Employee& e) { e.salary = 20; },
         {touch, "UPDATE tblEmployee SET salary=? WHERE id=?"}},
        {"both",
         [](Employee& e) { e.age = 36, e.notes = std::nullopt, e.born = Date(1815, 12, 10); },
         {"UPDATE tblPerson SET age=?, born=? WHERE id=?", "UPDATE tblEmployee SET remarks=? WHERE id=?"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Tx tx(session.get());
        auto employee = session->get<Employee>(id);
        c.change(*employee);
        take();
        EXPECT_EQ(employee->save(), !c.sql.empty());
        EXPECT_THAT(take(), ElementsAreArray(c.sql));
        tx.commit();
    }
    auto fresh = factory->create()->get<Employee>(id);
    EXPECT_EQ(fresh->name.get(), "Grace");
    EXPECT_EQ(fresh->age.get(), 36);
    EXPECT_EQ(fresh->born.get(), Date(1815, 12, 10));
    EXPECT_EQ(fresh->salary.get(), 20);
    EXPECT_EQ(fresh->notes.get(), std::nullopt);
}

TEST_F(OrmTest, EveryFieldTypeRoundTrips) {
    const unsigned char bytes[] = {0, 1, 2, 255, 0};
    const std::int32_t id = committed<Note>([&](Note& note) {
        note.done = true, note.priority = -3, note.big = std::int64_t{1} << 40;
        note.text = std::string(5000, 'x') + "é";
        note.at = DateTime(Date(2026, 11, 24), Time(10, 30, 5));
        note.data = LongBinary(bytes, sizeof bytes);
    });
    for (int cacheCapacity : {0, 10}) {
        SCOPED_TRACE(cacheCapacity);
        auto other = makeFactory({.cacheCapacity = cacheCapacity});
        for (int pass = 0; pass < 2; ++pass) { // the second pass comes from the cache when there is one
            auto note = other->create()->get<Note>(id);
            EXPECT_TRUE(note->done.get());
            EXPECT_EQ(note->priority.get(), -3);
            EXPECT_EQ(note->big.get(), std::int64_t{1} << 40);
            EXPECT_EQ(note->text.get(), std::string(5000, 'x') + "é");
            EXPECT_EQ(note->at.get(), DateTime(Date(2026, 11, 24), Time(10, 30, 5)));
            EXPECT_EQ(note->data.get(), LongBinary(bytes, sizeof bytes));
            EXPECT_EQ(note->maybe.get(), std::nullopt);
            EXPECT_FALSE(note->updated());
        }
    }
    auto copy = session->create<Note>();
    copy->load(factory->create()->get<Note>(id)->toVariant());
    EXPECT_EQ(copy->text.get(), std::string(5000, 'x') + "é");
    EXPECT_EQ(copy->data.get(), LongBinary(bytes, sizeof bytes));
}

TEST_F(OrmTest, FieldsRefuseValuesTheyCannotHoldInsteadOfCuttingThem) {
    auto note = session->create<Note>();
    struct Case {
        const char* property;
        Variant value;
        const char* message; // null: taken
    };
    const Case cases[] = {
        {"priority", "42", nullptr},
        {"big", 4.0, nullptr},
        {"priority", 70000, "ORM: value does not fit the field | value=70000 | field=short"},
        {"maybe", std::int64_t{1} << 40,
         "ORM: value does not fit the field | value=1099511627776 | field=int"},
        {"big", "12.50", "ORM: value does not fit the field | value=12.50 | field=integer"},
        {"big", 2.5, "ORM: value does not fit the field | value=2.5 | field=integer"},
        {"big", "seven", "ORM: value does not fit the field | value=seven | field=integer"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value.toJson());
        Variant values = Variant::makeMap();
        values.setAt(c.property, c.value);
        if (c.message == nullptr) {
            EXPECT_NO_THROW(note->load(values));
        } else {
            EXPECT_THROW(
                {
                    try {
                        note->load(values);
                    } catch (const Exception& e) {
                        EXPECT_STREQ(e.what(), c.message);
                        throw;
                    }
                },
                Exception);
        }
    }
    EXPECT_EQ(note->priority.get(), 42);
    EXPECT_EQ(note->big.get(), 4);
}

TEST_F(OrmTest, LoadingLooksInTheIdentityMapThenTheCacheThenTheDatabase) {
    const std::int32_t id = committedEmployee();
    const std::vector<std::string> fromDb = {
        "SELECT orm_class FROM tblOrmObjects WHERE id=" + str(id),
        "SELECT * FROM tblPerson t0 JOIN tblEmployee t1 ON t1.id=t0.id WHERE t0.id=" + str(id)};
    auto first = session->object(id);
    EXPECT_THAT(take(), ElementsAreArray(fromDb));
    EXPECT_EQ(session->object(id), first);
    EXPECT_THAT(take(), IsEmpty());
    first->load(*session->db());
    EXPECT_THAT(take(), ElementsAre(fromDb[1]));
    auto own = session->create<Employee>(); // from a query of one's own, columns in another order
    own->load(
        *session->queryNoFormat("SELECT salary, name FROM tblPerson t0 JOIN tblEmployee t1 ON t1.id=t0.id"));
    EXPECT_EQ(own->name.get(), "Ada");
    EXPECT_EQ(own->salary.get(), 10);
    take();
    EXPECT_EQ(first->modelClass()->name(), "Employee");
    EXPECT_TRUE(first->commited());

    auto second = factory->create();
    auto fromCache = second->get<Employee>(id);
    EXPECT_THAT(recorder(*second).take(), IsEmpty());
    EXPECT_NE(fromCache, first) << "sessions never share objects";
    EXPECT_EQ(fromCache->name.get(), "Ada");
    EXPECT_EQ(factory->metrics().hits, 1u);

    auto uncached = makeFactory({.cacheCapacity = 0});
    auto third = uncached->create();
    third->object(id);
    EXPECT_THAT(recorder(*third).take(), ElementsAreArray(fromDb));
}

TEST_F(OrmTest, ClassFilterAndMissingObjects) {
    const std::int32_t employee = committedEmployee();
    const std::int32_t person = committed<Person>();
    auto other = factory->create();
    struct Case {
        std::int32_t id;
        const char* className;
        bool found;
    } cases[] = {{employee, "Person", true},  {employee, "Employee", true}, {employee, "", true},
                 {person, "Employee", false}, {person, "Person", true},     {999999, "", false},
                 {999999, "Person", false},   {employee, "Document", false}};
    auto third = factory->create();
    for (auto* s : {other.get(), other.get(), third.get()}) { // database, identity map, cache
        for (const Case& c : cases) {
            SCOPED_TRACE(str(c.id) + " " + c.className);
            EXPECT_EQ(s->object(c.id, c.className, false) != nullptr, c.found);
        }
    }
}

TEST_F(OrmTest, MessagesOfMisuse) {
    const std::int32_t employee = committedEmployee();
    auto plain = Db::Connection::create(database->connectionString());
    plain->execute("INSERT INTO tblOrmObjects (id, orm_class) VALUES (900, 'Ghost')");
    auto closed = factory->create();
    auto detached = closed->create<Person>();
    closed->close();
    Model::Model emptyModel;
    emptyModel.setConfigured();

    struct Case {
        const char* what;
        std::function<void()> run;
        std::string message;
    } cases[] = {
        {"closed session", [&] { closed->create("Person"); }, "ORM is not opened!"},
        {"second beginTx",
         [&] {
             auto a = session->beginTx();
             auto b = session->beginTx();
         },
         "Nested transaction not supported"},
        {"save outside tx", [&] { session->create<Person>()->save(); }, "ORM: Transaction required"},
        {"session save outside tx", [&] { session->save(); }, "ORM: Transaction required"},
        {"erase outside tx", [&] { session->object(employee)->erase(); }, "ORM: Transaction required"},
        {"lock outside tx", [&] { session->lock(1); }, "ORM: Transaction required"},
        {"nextId outside tx", [&] { session->nextId("genOrmObjectId"); }, "ORM: Transaction required"},
        {"setNextId outside tx", [&] { session->setNextId("genOrmObjectId", 5); },
         "ORM: Transaction required"},
        {"commit outside tx", [&] { session->commit(); }, "ORM: Transaction required"},
        {"open without db", [&] { Session(factory->model(), nullptr, nullptr, nullptr).open(nullptr); },
         "Session::Open(): The DB must be opened!"},
        {"open with closed db",
         [&] {
             std::shared_ptr<Db::Connection> gone = Db::Connection::create(database->connectionString());
             gone->close();
             Session(factory->model(), nullptr, nullptr, nullptr).open(gone);
         },
         "Session::Open(): The DB must be opened!"},
        {"open on empty model",
         [&] { Session(emptyModel, nullptr, nullptr, nullptr).open(std::move(plain)); },
         "Session::Open(): There is no class in the model!"},
        {"missing", [&] { session->object(999999); }, "ORM: Object not found | id=999999"},
        {"missing in class", [&] { session->object(999999, "Person"); },
         "ORM: Object not found | id=999999 | class=Person"},
        {"other class", [&] { session->object(employee, "Document"); },
         "ORM: Object not found | id=" + str(employee) + " | class=Document"},
        {"unknown DB class", [&] { session->object(900); },
         "ORM: DB class not found. | class=Ghost | id=900"},
        {"model DB class", [&] { factory->model().getByDbClassNameOrThrow("Ghost", 7); },
         "ORM Model: DB class not found | id=7 | class=Ghost"},
        {"unknown class", [&] { session->object(5, "Nope"); },
         "ORM Model: Class not found | id=5 | class=Nope"},
        {"erase without triggers",
         [&] {
             Tx tx(session.get());
             session->erase(employee, "Person");
         },
         "ORM: erase is supported only on classes with the ORM triggers | id=" + str(employee) +
             " | class=Person"},
        {"no id yet", [&] { session->create<Person>()->id(); }, "ORM: Object has no ID yet"},
        {"obsolete", [&] { detached->save(); }, "ORM: The object is obsolete and not attached to any ORM."},
        {"id beyond 32 bits",
         [&] {
             Tx tx(session.get());
             session->setNextId("genOrmObjectId", std::numeric_limits<std::int32_t>::max());
             session->nextId("genOrmObjectId");
         },
         "Session::nextId(): The ID for the 'genOrmObjectId' sequence cannot fit the 32b integer!"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            c.run();
            ADD_FAILURE() << "no exception";
        } catch (const GenericException& error) {
            EXPECT_EQ(error.message(), c.message);
        }
    }
    EXPECT_EQ(rowCount("tblPerson", employee), 1) << "the refused erase deleted nothing";
    try {
        factory->configured();
        ADD_FAILURE() << "configured twice";
    } catch (const InvalidOperationException& error) {
        EXPECT_THAT(error.message(),
                    ::testing::StartsWith(
                        "Invalid operation | func=configured | file=Zel/Orm/SessionFactory | line="));
    }
}

class SelfDeclared : public Object {
public:
    Field<int> value;
    void registerWithModel(Model::Model* model) override {
        model->addClass<SelfDeclared>("SelfDeclared")
            .table("tblSelf")
            .property("value", &SelfDeclared::value);
    }
};

TEST_F(OrmTest, ModelDeclarationErrors) {
    struct Case {
        const char* what;
        std::function<void(Model::Model&)> declare;
        std::string message;
    } cases[] = {
        {"no table", [](Model::Model& m) { m.addClass<Person>("Person"); },
         "ORM Model: class has no table | class=Person"},
        {"unknown base",
         [](Model::Model& m) { m.addClass<Employee>("Employee").table("tblE").base("Person"); },
         "ORM Model: base class not found | class=Employee | base=Person"},
        {"shared table",
         [](Model::Model& m) {
             m.addClass<Person>("Person").table("tblP");
             m.addClass<Document>("Document").table("TBLP");
         },
         "ORM Model: two classes share a table | table=tblP | class=Document | other=Person"},
        {"column twice in a chain",
         [](Model::Model& m) {
             m.addClass<Person>("Person").table("tblP").property("name", &Person::name);
             m.addClass<Employee>("Employee")
                 .table("tblE")
                 .base("Person")
                 .property("x", &Employee::notes, {.column = "NAME"});
         },
         "ORM Model: column repeats in the class chain | class=Employee | column=NAME"},
        {"id as a property",
         [](Model::Model& m) { m.addClass<Person>("Person").table("tblP").property("id", &Person::age); },
         "ORM Model: column repeats in the class chain | class=Person | column=id"},
        {"triggers below the first class",
         [](Model::Model& m) {
             m.addClass<Person>("Person").table("tblP");
             m.addClass<Employee>("Employee").table("tblE").base("Person").ormTriggers(true);
         },
         "ORM Model: ORM triggers are declared on the first class of a chain | class=Employee | "
         "first=Person"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Model::Model model;
        c.declare(model);
        try {
            model.setConfigured();
            ADD_FAILURE() << "no exception";
        } catch (const Exception& error) {
            EXPECT_EQ(error.message(), c.message);
        }
    }
    EXPECT_THROW(factory->model().addClass<Note>("Late"), InvalidOperationException);
    Model::Model selfDeclared;
    selfDeclared.registerClass<SelfDeclared>();
    selfDeclared.setConfigured();
    EXPECT_EQ(selfDeclared.getByType(typeid(SelfDeclared))->table(), "tblSelf");
}

TEST_F(OrmTest, EraseLocksAndSequences) {
    const std::int32_t employee = committedEmployee();
    const std::int32_t invoice = committed<Invoice>([](Invoice& i) { i.amount = 12; });
    {
        Tx tx(session.get());
        auto loaded = session->get<Employee>(employee);
        EXPECT_TRUE(loaded->lock());
        loaded->salary = 1;
        EXPECT_FALSE(loaded->lock()) << "unsaved changes";
        EXPECT_THAT(take(),
                    ElementsAre("SELECT orm_class FROM tblOrmObjects WHERE id=" + str(employee),
                                "SELECT * FROM tblPerson t0 JOIN tblEmployee t1 ON t1.id=t0.id WHERE t0.id=" +
                                    str(employee),
                                "UPDATE tblPerson SET id=id WHERE id=" + str(employee)));
        session->lock(77);
        session->lock(77);
        EXPECT_TRUE(loaded->erase());
        EXPECT_TRUE(loaded->obsolete());
        session->erase(invoice, "Document");
        EXPECT_THAT(take(), ElementsAre("UPDATE OR INSERT INTO tblOrmLocks (id) VALUES (77) MATCHING (id)",
                                        "UPDATE OR INSERT INTO tblOrmLocks (id) VALUES (77) MATCHING (id)",
                                        "DELETE FROM tblOrmObjects WHERE id=" + str(employee),
                                        "DELETE FROM tblDocument WHERE id=" + str(invoice)));
        EXPECT_EQ(session->object(employee, "", false), nullptr);
        EXPECT_THAT(take(), ElementsAre("SELECT orm_class FROM tblOrmObjects WHERE id=" + str(employee)));
        tx.commit();
    }
    for (const char* table : {"tblOrmObjects", "tblPerson", "tblEmployee"})
        EXPECT_EQ(rowCount(table, employee), 0) << table;
    for (const char* table : {"tblOrmObjects", "tblDocument", "tblInvoice"})
        EXPECT_EQ(rowCount(table, invoice), 0) << table;
    EXPECT_EQ(rowCount("tblOrmLocks", 77), 1);

    Tx tx(session.get());
    session->setNextId("genOrmObjectId", 1000);
    EXPECT_EQ(session->peekNextObjectId(), 1001);
    EXPECT_EQ(session->nextId("genOrmObjectId"), 1001);
    EXPECT_EQ(session->nextId("genOrmObjectId", 10), 1011);
    EXPECT_THAT(take(), ElementsAre("SET GENERATOR genOrmObjectId TO 1000",
                                    "SELECT GEN_ID(genOrmObjectId,0) AS id FROM RDB$DATABASE",
                                    "SELECT GEN_ID(genOrmObjectId,1) AS id FROM RDB$DATABASE",
                                    "SELECT GEN_ID(genOrmObjectId,10) AS id FROM RDB$DATABASE"));
    auto person = session->create<Person>();
    person->save();
    EXPECT_EQ(person->id(), 1012);
    person->name = "unsaved";
    Db::Command select("SELECT name FROM tblPerson WHERE id=?", {person->id()});
    EXPECT_EQ(static_cast<std::string>(session->query(select)->value(std::size_t{0})), "unsaved")
        << "query() saves first";
}

} // namespace
} // namespace Zel::Orm::Testing
